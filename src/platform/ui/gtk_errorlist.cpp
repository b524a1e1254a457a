#include "plat/dialogs.h"
#include "plat/windows.h"
#include "ui/gtk_kinds.h"
#include "ui/gtk_rules.h"

namespace plat::ui {

namespace {

// Template 51 is 299 by 131 dialog units in an 8-point font: a unit is 1.5 pixels across, 1.625 down.
constexpr int kListWidth = 449;
constexpr int kListHeight = 213;
constexpr int kListPosition = 40;  // the template's dialog moves to the screen position 40, 40
constexpr int kColumnWidth = 600;  // the one column, wider than the list, so that it scrolls sideways

HWND dialogOf(gpointer data) {
    return static_cast<HWND>(data);
}

void onOk(GtkButton*, gpointer dialog) {
    PostMessageW(dialogOf(dialog), WM_COMMAND, static_cast<WPARAM>(IDC_ERROR_OK), 0);
}

void onCopy(GtkButton*, gpointer dialog) {
    PostMessageW(dialogOf(dialog), WM_COMMAND, static_cast<WPARAM>(IDC_ERROR_COPY), 0);
}

gboolean onDelete(GtkWidget*, GdkEvent*, gpointer dialog) {
    // The close box closes the list exactly as OK does: the list's thread decides, then closed() comes.
    PostMessageW(dialogOf(dialog), WM_CLOSE, 0, 0);
    return TRUE;
}

GtkWidget* rowsView(GtkListStore* rows) {
    GtkWidget* view = gtk_tree_view_new_with_model(GTK_TREE_MODEL(rows));
    GtkCellRenderer* renderer = gtk_cell_renderer_text_new();
    GtkTreeViewColumn* column =
        gtk_tree_view_column_new_with_attributes(tableUtf8(1045).c_str(), renderer, "text", 0, nullptr);
    gtk_tree_view_column_set_fixed_width(column, kColumnWidth);
    gtk_tree_view_column_set_sizing(column, GTK_TREE_VIEW_COLUMN_FIXED);
    gtk_tree_view_append_column(GTK_TREE_VIEW(view), column);
    gtk_tree_view_set_grid_lines(GTK_TREE_VIEW(view), GTK_TREE_VIEW_GRID_LINES_BOTH);
    return view;
}

}  // namespace

GtkErrorList::ListWindow& GtkErrorList::_window(HWND dialog) {
    auto found = m_windows.find(dialog);
    if (found != m_windows.end()) {
        return found->second;
    }
    ListWindow list{gtk_window_new(GTK_WINDOW_TOPLEVEL), gtk_list_store_new(1, G_TYPE_STRING),
                    gtk_label_new(""), false};
    GtkWindow* window = GTK_WINDOW(list.window);
    gtk_window_set_title(window, tableUtf8(kTextErrorListTitle).c_str());
    gtk_window_set_role(window, "velq-errorlist");
    gtk_window_set_default_size(window, kListWidth, kListHeight);
    gtk_window_move(window, kListPosition, kListPosition);
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_container_set_border_width(GTK_CONTAINER(box), 10);
    GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
    gtk_container_add(GTK_CONTAINER(scrolled), rowsView(list.rows));
    gtk_box_pack_start(GTK_BOX(box), scrolled, TRUE, TRUE, 0);
    GtkWidget* bottom = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    gtk_label_set_xalign(GTK_LABEL(list.count), 0.0F);
    GtkWidget* ok = tableButton(kTextOk);
    GtkWidget* copy = tableButton(kTextCopy);
    gtk_box_pack_start(GTK_BOX(bottom), list.count, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(bottom), ok, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(bottom), copy, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box), bottom, FALSE, FALSE, 0);
    gtk_container_add(GTK_CONTAINER(list.window), box);
    gtk_widget_set_can_default(ok, TRUE);
    gtk_window_set_default(window, ok);
    g_signal_connect(ok, "clicked", G_CALLBACK(onOk), dialog);
    g_signal_connect(copy, "clicked", G_CALLBACK(onCopy), dialog);
    g_signal_connect(list.window, "delete-event", G_CALLBACK(onDelete), dialog);
    return m_windows.emplace(dialog, list).first->second;
}

void GtkErrorList::rowAdded(HWND dialog, std::u16string_view text, unsigned count) {
    m_loop.post([this, dialog, row = utf8(text), count] {
        ListWindow& list = _window(dialog);
        GtkTreeIter end;
        gtk_list_store_append(list.rows, &end);
        gtk_list_store_set(list.rows, &end, 0, row.c_str(), -1);
        const std::string label = tableUtf8(kTextTotalErrors) + ": " + std::to_string(count);
        gtk_label_set_text(GTK_LABEL(list.count), label.c_str());
        if (list.shown) {
            gtk_window_present(GTK_WINDOW(list.window));  // each new row brings the list to the front
        }
    });
}

void GtkErrorList::shown(HWND dialog) {
    m_loop.post([this, dialog] {
        ListWindow& list = _window(dialog);
        list.shown = true;
        gtk_widget_show_all(list.window);
        gtk_window_present(GTK_WINDOW(list.window));
    });
}

void GtkErrorList::closed(HWND dialog) {
    m_loop.post([this, dialog] {
        auto found = m_windows.find(dialog);
        if (found == m_windows.end()) {
            return;
        }
        gtk_widget_destroy(found->second.window);
        g_object_unref(found->second.rows);
        m_windows.erase(found);
    });
}

void GtkErrorList::setText(std::u16string_view text) {
    m_loop.post([copy = utf8(text)] {
        GtkClipboard* clipboard = gtk_clipboard_get(GDK_SELECTION_CLIPBOARD);
        gtk_clipboard_set_text(clipboard, copy.c_str(), static_cast<gint>(copy.size()));
        // Kept for after the program ends where a clipboard manager runs.
        gtk_clipboard_set_can_store(clipboard, nullptr, 0);
    });
}

}  // namespace plat::ui
