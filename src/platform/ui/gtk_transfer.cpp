#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "plat/strings.h"
#include "ui/gtk_kinds.h"
#include "ui/gtk_rules.h"
#include "ui/transfer_kinds.h"

namespace plat::ui {

namespace {

// --- The password dialogs ---

struct KeyFileQuestion {
    KeyFileRequest request;
    GtkWidget* dialog;
    GtkWidget* path;
    GtkWidget* password;
    GtkWidget* confirmation;  // null for an import
    GtkWidget* problem;
    Reply<int>* reply;
    KeyFileAnswer* answer;
};

std::u16string entryText(GtkWidget* entry) {
    return entry != nullptr ? fromUtf8(gtk_entry_get_text(GTK_ENTRY(entry))) : std::u16string();
}

void wipeEntry(GtkWidget* entry) {
    if (entry != nullptr) {
        gtk_entry_buffer_delete_text(gtk_entry_get_buffer(GTK_ENTRY(entry)), 0, -1);
    }
}

void wipe(std::u16string& secret) {
    volatile char16_t* unit = secret.data();
    for (std::size_t i = 0; i < secret.size(); ++i) {
        unit[i] = 0;
    }
    secret.clear();
}

void onBrowse(GtkButton*, gpointer data) {
    auto* question = static_cast<KeyFileQuestion*>(data);
    const bool bExport = question->request.bExport;
    GtkWidget* chooser = gtk_file_chooser_dialog_new(
        tableUtf8(kTextKeyFile).c_str(), GTK_WINDOW(question->dialog),
        bExport ? GTK_FILE_CHOOSER_ACTION_SAVE : GTK_FILE_CHOOSER_ACTION_OPEN, tableUtf8(kTextCancel).c_str(),
        GTK_RESPONSE_CANCEL, tableUtf8(kTextOk).c_str(), GTK_RESPONSE_ACCEPT, nullptr);
    gtk_file_chooser_set_do_overwrite_confirmation(GTK_FILE_CHOOSER(chooser), TRUE);
    if (!question->request.defaultExtension.empty()) {
        GtkFileFilter* filter = gtk_file_filter_new();
        const std::string name = question->request.typeName.empty()
                                     ? "*." + utf8(question->request.defaultExtension)
                                     : utf8(question->request.typeName);
        gtk_file_filter_set_name(filter, name.c_str());
        gtk_file_filter_add_pattern(filter, ("*." + utf8(question->request.defaultExtension)).c_str());
        gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(chooser), filter);
    }
    const std::string current = gtk_entry_get_text(GTK_ENTRY(question->path));
    if (!current.empty()) {
        gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(chooser), current.c_str());
        if (bExport) {
            gtk_file_chooser_set_current_name(GTK_FILE_CHOOSER(chooser),
                                              current.substr(current.find_last_of('/') + 1).c_str());
        }
    }
    if (gtk_dialog_run(GTK_DIALOG(chooser)) == GTK_RESPONSE_ACCEPT) {
        if (gchar* chosen = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(chooser))) {
            gtk_entry_set_text(GTK_ENTRY(question->path), chosen);
            g_free(chosen);
        }
    }
    gtk_widget_destroy(chooser);
}

void finish(KeyFileQuestion* question, int button) {
    wipeEntry(question->password);
    wipeEntry(question->confirmation);
    gtk_widget_destroy(question->dialog);
    Reply<int>* reply = question->reply;
    delete question;
    reply->set(button);
}

void onKeyFileResponse(GtkDialog*, gint response, gpointer data) {
    auto* question = static_cast<KeyFileQuestion*>(data);
    if (response != GTK_RESPONSE_OK) {
        finish(question, IDCANCEL);
        return;
    }
    std::u16string path = entryText(question->path);
    std::u16string password = entryText(question->password);
    std::u16string confirmation = entryText(question->confirmation);
    const UINT problem = keyFileProblem(question->request, path, password, confirmation);
    wipe(confirmation);
    if (problem != 0) {
        // The dialog stays with what was typed, and says what is wrong.
        wipe(password);
        gtk_label_set_text(GTK_LABEL(question->problem),
                           utf8(keyFileProblemText(question->request, problem)).c_str());
        gtk_widget_show(question->problem);
        return;
    }
    question->answer->path =
        question->request.bExport ? withDefaultExtension(path, question->request.defaultExtension) : path;
    question->answer->password = std::move(password);
    finish(question, IDOK);
}

GtkWidget* fieldLabel(UINT id) {
    GtkWidget* label = gtk_label_new(tableUtf8(id).c_str());
    gtk_label_set_xalign(GTK_LABEL(label), 0.0F);
    return label;
}

GtkWidget* passwordEntry(const KeyFileRequest& request) {
    GtkWidget* entry = gtk_entry_new();
    gtk_entry_set_visibility(GTK_ENTRY(entry), request.bShowPassword ? TRUE : FALSE);
    gtk_entry_set_input_purpose(GTK_ENTRY(entry), GTK_INPUT_PURPOSE_PASSWORD);
    if (request.nMaxPassword != 0) {
        gtk_entry_set_max_length(GTK_ENTRY(entry), static_cast<gint>(request.nMaxPassword));
    }
    gtk_entry_set_activates_default(GTK_ENTRY(entry), TRUE);
    return entry;
}

void buildKeyFileDialog(KeyFileQuestion* question) {
    const KeyFileRequest& request = question->request;
    question->dialog = gtk_dialog_new_with_buttons(
        tableUtf8(request.bExport ? kTextExportTitle : kTextImportTitle).c_str(), nullptr, GtkDialogFlags{},
        tableUtf8(kTextCancel).c_str(), GTK_RESPONSE_CANCEL, tableUtf8(kTextOk).c_str(), GTK_RESPONSE_OK,
        nullptr);
    GtkWindow* window = GTK_WINDOW(question->dialog);
    gtk_window_set_role(window, request.bExport ? "velq-export" : "velq-import");
    gtk_window_set_position(window, GTK_WIN_POS_CENTER);
    gtk_window_set_keep_above(window, TRUE);
    gtk_dialog_set_default_response(GTK_DIALOG(question->dialog), GTK_RESPONSE_OK);
    GtkWidget* grid = gtk_grid_new();
    gtk_grid_set_row_spacing(GTK_GRID(grid), 6);
    gtk_grid_set_column_spacing(GTK_GRID(grid), 8);
    gtk_container_set_border_width(GTK_CONTAINER(grid), 10);
    question->path = gtk_entry_new();
    gtk_entry_set_width_chars(GTK_ENTRY(question->path), 40);
    gtk_entry_set_text(GTK_ENTRY(question->path), utf8(request.startPath).c_str());
    gtk_entry_set_activates_default(GTK_ENTRY(question->path), TRUE);
    GtkWidget* browse = tableButton(kTextBrowse);
    g_signal_connect(browse, "clicked", G_CALLBACK(onBrowse), question);
    gtk_grid_attach(GTK_GRID(grid), fieldLabel(kTextKeyFile), 0, 0, 1, 1);
    gtk_grid_attach(GTK_GRID(grid), question->path, 1, 0, 1, 1);
    gtk_grid_attach(GTK_GRID(grid), browse, 2, 0, 1, 1);
    question->password = passwordEntry(request);
    gtk_grid_attach(GTK_GRID(grid), fieldLabel(kTextPassword), 0, 1, 1, 1);
    gtk_grid_attach(GTK_GRID(grid), question->password, 1, 1, 2, 1);
    if (request.bExport) {
        question->confirmation = passwordEntry(request);
        gtk_grid_attach(GTK_GRID(grid), fieldLabel(kTextConfirmPassword), 0, 2, 1, 1);
        gtk_grid_attach(GTK_GRID(grid), question->confirmation, 1, 2, 2, 1);
    }
    question->problem = gtk_label_new("");
    gtk_label_set_xalign(GTK_LABEL(question->problem), 0.0F);
    gtk_label_set_line_wrap(GTK_LABEL(question->problem), TRUE);
    gtk_grid_attach(GTK_GRID(grid), question->problem, 0, 3, 3, 1);
    GtkWidget* content = gtk_dialog_get_content_area(GTK_DIALOG(question->dialog));
    gtk_box_pack_start(GTK_BOX(content), grid, TRUE, TRUE, 0);
    g_signal_connect(question->dialog, "response", G_CALLBACK(onKeyFileResponse), question);
    gtk_widget_show_all(question->dialog);
    gtk_widget_hide(question->problem);
    gtk_window_present(window);
    // The path is usually right as offered: the person starts at the password (the path is one Shift+Tab
    // away), except at a recovery without a start path.
    gtk_widget_grab_focus(request.startPath.empty() ? question->path : question->password);
}

// --- The search window ---

struct SearchWindow {
    GtkWidget* window;
    GtkWidget* view;
    GtkListStore* rows;
    Reply<bool>* closed;
};

std::vector<std::u16string> chosenPaths(SearchWindow* search) {
    std::vector<std::u16string> paths;
    GtkTreeModel* model = nullptr;
    GtkTreeSelection* selection = gtk_tree_view_get_selection(GTK_TREE_VIEW(search->view));
    GList* rows = gtk_tree_selection_get_selected_rows(selection, &model);
    for (GList* row = rows; row != nullptr; row = row->next) {
        GtkTreeIter iter;
        if (gtk_tree_model_get_iter(model, &iter, static_cast<GtkTreePath*>(row->data)) == TRUE) {
            gchar* path = nullptr;
            gtk_tree_model_get(model, &iter, 0, &path, -1);
            paths.push_back(fromUtf8(path));
            g_free(path);
        }
    }
    g_list_free_full(rows, reinterpret_cast<GDestroyNotify>(gtk_tree_path_free));
    return paths;
}

// `velq` beside this program when it is there (a build tree or an installation), else from PATH.
std::string velqCommand() {
    char self[PATH_MAX] = {};
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length > 0) {
        std::string beside(self, static_cast<std::size_t>(length));
        beside = beside.substr(0, beside.find_last_of('/') + 1) + "velq";
        if (::access(beside.c_str(), X_OK) == 0) {
            return beside;
        }
    }
    const char* program = std::getenv("VELQ_COMMAND");
    return program != nullptr && *program != '\0' ? program : "velq";
}

void onOpenFolder(GtkButton*, gpointer data) {
    for (const std::u16string& folder : foldersOf(chosenPaths(static_cast<SearchWindow*>(data)))) {
        gchar* uri = g_filename_to_uri(utf8(folder).c_str(), nullptr, nullptr);
        if (uri != nullptr) {
            g_app_info_launch_default_for_uri(uri, nullptr, nullptr);
            g_free(uri);
        }
    }
}

void onDecrypt(GtkButton*, gpointer data) {
    const std::vector<std::u16string> paths = chosenPaths(static_cast<SearchWindow*>(data));
    if (paths.empty()) {
        return;
    }
    std::vector<std::string> words = {velqCommand(), "decrypt"};
    for (const std::u16string& path : paths) {
        words.push_back(utf8(path));
    }
    std::vector<gchar*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    g_spawn_async(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, nullptr, nullptr);
}

void onSearchClosed(GtkWidget*, gpointer data) {
    auto* search = static_cast<SearchWindow*>(data);
    g_object_unref(search->rows);
    Reply<bool>* closed = search->closed;
    delete search;
    closed->set(true);
}

void onClose(GtkButton*, gpointer data) {
    gtk_widget_destroy(static_cast<SearchWindow*>(data)->window);
}

void buildSearchWindow(SearchWindow* search, const std::vector<std::string>& results) {
    search->window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWindow* window = GTK_WINDOW(search->window);
    gtk_window_set_title(window, tableUtf8(kTextSearchTitle).c_str());
    gtk_window_set_role(window, "velq-search");
    gtk_window_set_default_size(window, 560, 360);
    gtk_window_set_position(window, GTK_WIN_POS_CENTER);
    search->rows = gtk_list_store_new(1, G_TYPE_STRING);
    for (const std::string& path : results) {
        GtkTreeIter end;
        gtk_list_store_append(search->rows, &end);
        gtk_list_store_set(search->rows, &end, 0, path.c_str(), -1);
    }
    search->view = gtk_tree_view_new_with_model(GTK_TREE_MODEL(search->rows));
    gtk_tree_view_set_headers_visible(GTK_TREE_VIEW(search->view), FALSE);
    gtk_tree_view_append_column(
        GTK_TREE_VIEW(search->view),
        gtk_tree_view_column_new_with_attributes("", gtk_cell_renderer_text_new(), "text", 0, nullptr));
    gtk_tree_selection_set_mode(gtk_tree_view_get_selection(GTK_TREE_VIEW(search->view)),
                                GTK_SELECTION_MULTIPLE);
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_container_set_border_width(GTK_CONTAINER(box), 10);
    GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
    gtk_container_add(GTK_CONTAINER(scrolled), search->view);
    if (results.empty()) {
        gtk_box_pack_start(GTK_BOX(box), gtk_label_new(tableUtf8(kTextNothingFound).c_str()), FALSE, FALSE,
                           0);
    }
    gtk_box_pack_start(GTK_BOX(box), scrolled, TRUE, TRUE, 0);
    GtkWidget* buttons = gtk_button_box_new(GTK_ORIENTATION_HORIZONTAL);
    gtk_button_box_set_layout(GTK_BUTTON_BOX(buttons), GTK_BUTTONBOX_END);
    gtk_box_set_spacing(GTK_BOX(buttons), 6);
    const std::pair<UINT, GCallback> actions[] = {{kTextOpenFolder, G_CALLBACK(onOpenFolder)},
                                                  {kTextDecrypt, G_CALLBACK(onDecrypt)},
                                                  {kTextClose, G_CALLBACK(onClose)}};
    for (const auto& [textId, callback] : actions) {
        GtkWidget* button = tableButton(textId);
        g_signal_connect(button, "clicked", callback, search);
        gtk_container_add(GTK_CONTAINER(buttons), button);
    }
    gtk_box_pack_start(GTK_BOX(box), buttons, FALSE, FALSE, 0);
    gtk_container_add(GTK_CONTAINER(search->window), box);
    g_signal_connect(search->window, "destroy", G_CALLBACK(onSearchClosed), search);
    gtk_widget_show_all(search->window);
    gtk_window_present(window);
}

}  // namespace

int GtkTransfer::ask(HWND, const KeyFileRequest& request, KeyFileAnswer& answer) {
    Reply<int> reply;
    auto* question =
        new KeyFileQuestion{request, nullptr, nullptr, nullptr, nullptr, nullptr, &reply, &answer};
    m_loop.post([question] { buildKeyFileDialog(question); });
    return reply.wait();
}

void GtkTransfer::show(std::u16string_view, const std::vector<std::u16string>& results) {
    std::vector<std::string> paths;
    for (const std::u16string& path : results) {
        paths.push_back(utf8(path));
    }
    Reply<bool> closed;
    m_loop.post([paths, &closed] {
        buildSearchWindow(new SearchWindow{nullptr, nullptr, nullptr, &closed}, paths);
    });
    closed.wait();
}

}  // namespace plat::ui
