#include "ui/gtk_backend.h"

#include "plat/errors.h"
#include "plat/strings.h"
#include "ui/gtk_kinds.h"
#include "ui/gtk_rules.h"
#include "ui/messagebox_rules.h"

namespace plat::ui {

std::string utf8(std::u16string_view text) {
    return toUtf8(text);
}

std::string tableUtf8(UINT id) {
    return toUtf8(tableText(id));
}

GtkWidget* tableButton(UINT id) {
    return gtk_button_new_with_label(tableUtf8(id).c_str());
}

namespace {

// The desktop's icon of the box's flags, or null for a box without one.
const char* iconName(UINT flags) {
    switch (boxIcon(flags)) {
        case BoxIcon::kError:
            return "dialog-error";
        case BoxIcon::kQuestion:
            return "dialog-question";
        case BoxIcon::kWarning:
            return "dialog-warning";
        case BoxIcon::kInformation:
            return "dialog-information";
        default:
            return nullptr;
    }
}

// The icon and the text side by side, as on Windows (GTK's own message dialog no longer shows icons).
GtkWidget* boxContent(UINT flags, const std::string& body) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    gtk_container_set_border_width(GTK_CONTAINER(row), 12);
    if (const char* icon = iconName(flags)) {
        GtkWidget* image = gtk_image_new_from_icon_name(icon, GTK_ICON_SIZE_DIALOG);
        gtk_widget_set_valign(image, GTK_ALIGN_START);
        gtk_box_pack_start(GTK_BOX(row), image, FALSE, FALSE, 0);
    }
    GtkWidget* label = gtk_label_new(body.c_str());
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_max_width_chars(GTK_LABEL(label), 60);
    gtk_label_set_xalign(GTK_LABEL(label), 0.0F);
    gtk_box_pack_start(GTK_BOX(row), label, TRUE, TRUE, 0);
    return row;
}

struct BoxQuestion {
    UINT flags;
    Reply<int>* reply;
};

void onBoxResponse(GtkDialog* dialog, gint response, gpointer data) {
    auto* question = static_cast<BoxQuestion*>(data);
    // Escape and the close box come as GTK_RESPONSE_DELETE_EVENT; every button's response is its answer.
    const int answer = response > 0 ? response : escapeAnswer(question->flags);
    question->reply->set(answer);
    delete question;
    gtk_widget_destroy(GTK_WIDGET(dialog));
}

}  // namespace

GtkMessageBox::GtkMessageBox(GtkLoop& loop) : m_loop(loop) {}

int GtkMessageBox::show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) {
    if (!isSupportedButtonSet(flags)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    Reply<int> reply;
    m_loop.post([this, owner, body = utf8(text), title = utf8(caption), flags, &reply] {
        GtkWindow* parent = owner != nullptr ? m_pOwnerWindow : nullptr;
        GtkWidget* dialog = gtk_dialog_new();
        if (parent != nullptr) {
            gtk_window_set_transient_for(GTK_WINDOW(dialog), parent);
            gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
        }
        gtk_window_set_resizable(GTK_WINDOW(dialog), FALSE);
        gtk_box_pack_start(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), boxContent(flags, body),
                           TRUE, TRUE, 0);
        gtk_window_set_title(GTK_WINDOW(dialog), title.c_str());
        gtk_window_set_role(GTK_WINDOW(dialog), "velq-messagebox");
        gtk_window_set_position(GTK_WINDOW(dialog),
                                parent != nullptr ? GTK_WIN_POS_CENTER_ON_PARENT : GTK_WIN_POS_CENTER);
        gtk_window_set_keep_above(GTK_WINDOW(dialog), (flags & MB_TOPMOST) != 0 ? TRUE : FALSE);
        for (const BoxButton& button : boxButtons(flags)) {
            gtk_dialog_add_button(GTK_DIALOG(dialog), tableUtf8(button.textId).c_str(), button.answer);
        }
        gtk_dialog_set_default_response(GTK_DIALOG(dialog), firstButton(flags));
        g_signal_connect(dialog, "response", G_CALLBACK(onBoxResponse), new BoxQuestion({flags, &reply}));
        gtk_widget_show_all(dialog);
        gtk_window_present(GTK_WINDOW(dialog));
        if (GtkWidget* button = gtk_dialog_get_widget_for_response(GTK_DIALOG(dialog), firstButton(flags))) {
            gtk_widget_grab_focus(button);
        }
    });
    return reply.wait();
}

void GtkCursor::show(DWORD cursorId) {
    m_loop.post([cursorId] {
        GList* windows = gtk_window_list_toplevels();
        for (GList* item = windows; item != nullptr; item = item->next) {
            GdkWindow* window = gtk_widget_get_window(GTK_WIDGET(item->data));
            if (window == nullptr) {
                continue;
            }
            GdkCursor* cursor = cursorId == IDC_WAIT
                                    ? gdk_cursor_new_from_name(gdk_window_get_display(window), "wait")
                                    : nullptr;
            gdk_window_set_cursor(window, cursor);
            if (cursor != nullptr) {
                g_object_unref(cursor);
            }
        }
        g_list_free(windows);
    });
}

namespace {

class GtkBackend : public Backend {
public:
    explicit GtkBackend(GtkLoop& loop)
        : m_messageBox(loop),
          m_cursor(loop),
          m_progress(loop, m_messageBox),
          m_errorList(loop),
          m_wait(loop),
          m_transfer(loop) {}

    std::string_view name() const override { return "gtk"; }
    MessageBoxUi& messageBox() override { return m_messageBox; }
    CursorUi& cursor() override { return m_cursor; }
    WaitUi& wait() override { return m_wait; }
    ProgressUi& progress() override { return m_progress; }
    ErrorListUi& errorList() override { return m_errorList; }
    ClipboardUi& clipboard() override { return m_errorList; }
    KeyFileDialogUi& keyFileDialog() override { return m_transfer; }
    SearchWindowUi& searchWindow() override { return m_transfer; }

private:
    GtkMessageBox m_messageBox;
    GtkCursor m_cursor;
    GtkProgress m_progress;
    GtkErrorList m_errorList;
    GtkWait m_wait;
    GtkTransfer m_transfer;
};

}  // namespace

bool gtkBuiltIn() {
    return true;
}

std::unique_ptr<Backend> makeGtkBackend(std::string& failure) {
    GtkLoop* loop = GtkLoop::instance(failure);
    if (loop == nullptr) {
        return nullptr;
    }
    return std::make_unique<GtkBackend>(*loop);
}

}  // namespace plat::ui
