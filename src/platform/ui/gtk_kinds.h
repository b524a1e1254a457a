// The windows of the desktop UI (VELQ_UI=gtk). Each kind is called from the core's threads and hands its
// work to the UI thread (GtkLoop); a question waits for its answer there and blocks only the thread that
// asked. Widgets are made, changed and destroyed on the UI thread only. What the person does to a window
// of the core's window model (the error list, the wait window) reaches it as a posted message, never a
// sent one: the UI thread never waits for a core thread.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "plat/ui.h"
#include "ui/gtk_loop.h"
#include "ui/wait_kinds.h"

// Last: GLib defines TRUE and FALSE as macros, which must not reach the declarations of plat/types.h.
#include <gtk/gtk.h>

#include "ui/gtk_session_watch.h"

namespace plat::ui {

// Helpers of the UI thread shared by the windows.
std::string utf8(std::u16string_view text);
std::string tableUtf8(UINT id);
// A button with the string table's text `id` (its first letter not taken as a mnemonic).
GtkWidget* tableButton(UINT id);

// Message boxes: the flags' icon and buttons (left to right as on Windows), the first button the
// default, Escape and the close box give Cancel where there is one, else No, else OK. MB_TOPMOST keeps
// the box above other windows. A box whose owner is the progress dialog stands over it.
class GtkMessageBox : public MessageBoxUi {
public:
    explicit GtkMessageBox(GtkLoop& loop);
    int show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) override;
    // The window that owned boxes stand over (the progress dialog's), or null; UI thread only.
    void setOwnerWindow(GtkWindow* window) { m_pOwnerWindow = window; }

private:
    GtkLoop& m_loop;
    GtkWindow* m_pOwnerWindow = nullptr;
};

// The busy cursor over the program's windows.
class GtkCursor : public CursorUi {
public:
    explicit GtkCursor(GtkLoop& loop) : m_loop(loop) {}
    void show(DWORD cursorId) override;

private:
    GtkLoop& m_loop;
};

// The progress dialog: title, three lines (paths shortened in the middle), the bar, the time left on
// line 3 once it is known, and Cancel, which shows the cancel text once pressed (so does the close box).
class GtkProgress : public ProgressUi {
public:
    GtkProgress(GtkLoop& loop, GtkMessageBox& boxes);
    void started() override;
    void stopped() override;
    void title(std::u16string_view text) override;
    void line(DWORD number, std::u16string_view text, bool compactPath) override;
    void cancelMessage(std::u16string_view text) override;
    void progress(DWORD completed, DWORD total) override;
    void timeLeft(DWORD seconds) override;
    bool cancelRequested() override { return m_bCancelled.load(); }

private:
    // UI thread only.
    void _build();
    void _showTexts();
    void _pressCancel();
    static gboolean _onDelete(GtkWidget*, GdkEvent*, gpointer self);
    static void _onCancel(GtkButton*, gpointer self);

    GtkLoop& m_loop;
    GtkMessageBox& m_boxes;
    std::atomic<bool> m_bCancelled{false};
    // UI thread only.
    GtkWidget* m_pWindow = nullptr;
    GtkWidget* m_pLines[3] = {nullptr, nullptr, nullptr};
    GtkWidget* m_pBar = nullptr;
    GtkWidget* m_pCancel = nullptr;
    std::u16string m_szTitle;
    std::u16string m_szLines[3];
    bool m_bCompact[3] = {false, false, false};
    std::u16string m_szCancelMsg;
    std::u16string m_szTimeLeft;
    double m_fraction = 0.0;
    bool m_bShowsCancel = false;
};

// The error list (template 51) and the clipboard: one column of rows in order, the count label, OK,
// "Copy to clipboard" and the close box, each posted to the list's window as on Windows.
class GtkErrorList : public ErrorListUi, public ClipboardUi {
public:
    explicit GtkErrorList(GtkLoop& loop) : m_loop(loop) {}
    void rowAdded(HWND dialog, std::u16string_view text, unsigned count) override;
    void shown(HWND dialog) override;
    void closed(HWND dialog) override;
    void setText(std::u16string_view text) override;

private:
    struct ListWindow {
        GtkWidget* window;
        GtkListStore* rows;
        GtkWidget* count;
        bool shown;
    };
    // UI thread only.
    ListWindow& _window(HWND dialog);
    std::map<HWND, ListWindow> m_windows;
    GtkLoop& m_loop;
};

// The wait window: 203 by 268 pixels, always on top, centred, no title text, the picture filling it; its
// close box posts WM_CLOSE. The simulated sensor's window statements are relayed as in every backend.
class GtkWait : public WaitUi {
public:
    explicit GtkWait(GtkLoop& loop) : m_loop(loop) {}
    void shown(HWND window) override;
    void image(HWND window, UINT pictureId) override;
    void hidden(HWND window) override;
    void closed(HWND window) override;

private:
    static gboolean _onDelete(GtkWidget*, GdkEvent*, gpointer self);

    GtkLoop& m_loop;
    WaitEventRelay m_relay;
    // UI thread only.
    SessionWatch m_sessionWatch;
    GtkWidget* m_pWindow = nullptr;
    GtkWidget* m_pImage = nullptr;
    HWND m_hWindow = nullptr;
};

// The password dialogs of the key backup and recovery, and the search window.
class GtkTransfer : public KeyFileDialogUi, public SearchWindowUi {
public:
    explicit GtkTransfer(GtkLoop& loop) : m_loop(loop) {}
    int ask(HWND owner, const KeyFileRequest& request, KeyFileAnswer& answer) override;
    // Stays until the person closes the window: the search is the program's whole work on that road.
    void show(std::u16string_view query, const std::vector<std::u16string>& results) override;

private:
    GtkLoop& m_loop;
};

}  // namespace plat::ui
