// Interactions with the person: every kind has one interface here and one implementation per UI backend
// (script for automation and tests, tty for a person at a terminal, gtk for the desktop).
// The Windows-named calls below (MessageBoxW, LoadCursorW, SetCursor) go through the process's backend.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "plat/types.h"

namespace plat {

// Message-box flags (the Windows values) and answers.
inline constexpr UINT MB_OK = 0x0;
inline constexpr UINT MB_OKCANCEL = 0x1;
inline constexpr UINT MB_YESNOCANCEL = 0x3;
inline constexpr UINT MB_YESNO = 0x4;
inline constexpr UINT MB_TYPEMASK = 0xF;
inline constexpr UINT MB_ICONERROR = 0x10;
inline constexpr UINT MB_ICONQUESTION = 0x20;
inline constexpr UINT MB_ICONWARNING = 0x30;
inline constexpr UINT MB_ICONINFORMATION = 0x40;
inline constexpr UINT MB_ICONMASK = 0xF0;
inline constexpr UINT MB_TOPMOST = 0x40000;

inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

// Shows a box through the process's UI backend and returns the button pressed. A null text shows an
// empty text, a null caption the caption "Error". On failure it returns 0 and sets the last error
// (ERROR_INVALID_WINDOW_HANDLE for an owner that is no live window; ERROR_INVALID_PARAMETER for a button
// set other than OK, OK/Cancel, Yes/No/Cancel, Yes/No; whatever the backend reports otherwise, e.g.
// ERROR_ACCESS_DENIED for an owner it may not use).
int MessageBoxW(HWND hWnd, LPCWSTR lpText, LPCWSTR lpCaption, UINT uType);

// Cursors: the system's ids; a cursor handle is its id.
inline constexpr DWORD IDC_ARROW = 32512;
inline constexpr DWORD IDC_WAIT = 32514;
using HCURSOR = std::uintptr_t;
// A system cursor (null `hInstance`, a system id): its handle. The program has no cursors of its own, so
// anything else gives 0 with ERROR_RESOURCE_NAME_NOT_FOUND.
HCURSOR LoadCursorW(HINSTANCE hInstance, DWORD id);
// Shows `cursor` (0 hides it) and returns the one shown before (0 before the first call). Process-wide.
HCURSOR SetCursor(HCURSOR cursor);

namespace ui {

class MessageBoxUi {
public:
    virtual ~MessageBoxUi() = default;
    // Asks the person; returns IDOK/IDCANCEL/IDYES/IDNO, or 0 with the last error set when the box cannot
    // be shown. `owner` is null or a live window of this process. Blocks only the calling thread.
    virtual int show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) = 0;
};

class CursorUi {
public:
    virtual ~CursorUi() = default;
    // Shows the cursor of that id (0: none). Never fails; a backend without a pointer ignores it.
    virtual void show(DWORD cursorId) = 0;
};

// The progress dialog as a backend shows it (the platform's progress object, plat/progress.h, drives it).
// Every call may come from any thread, also from two at once.
class ProgressUi {
public:
    virtual ~ProgressUi() = default;
    // A progress object came into being / went (stopped or released): while one lives, a batch runs.
    virtual void opened() {}
    virtual void closed() {}
    virtual void started() = 0;
    virtual void stopped() = 0;
    virtual void title(std::u16string_view text) = 0;
    // Line 1 to 3; `compactPath`: a path may be shortened in the middle to fit.
    virtual void line(DWORD number, std::u16string_view text, bool compactPath) = 0;
    virtual void cancelMessage(std::u16string_view text) = 0;
    virtual void progress(DWORD completed, DWORD total) = 0;
    // The estimate of the time left, in seconds, worked out from the series of progress values.
    virtual void timeLeft(DWORD seconds) = 0;
    // True once the person has pressed Cancel.
    virtual bool cancelRequested() = 0;
};

// The error list (dialog template 51) as a backend shows it. Called on the list's own thread.
class ErrorListUi {
public:
    virtual ~ErrorListUi() = default;
    virtual void rowAdded(HWND dialog, std::u16string_view text, unsigned count) = 0;
    virtual void shown(HWND dialog) = 0;
    // A shown list was closed (its window destroyed).
    virtual void closed(HWND dialog) = 0;
};

// The clipboard: the text that SetClipboardData was given.
class ClipboardUi {
public:
    virtual ~ClipboardUi() = default;
    virtual void setText(std::u16string_view text) = 0;
};

// The kinds that do nothing: the defaults of a backend that does not show them.
ProgressUi& silentProgress();
ErrorListUi& silentErrorList();
ClipboardUi& silentClipboard();

// The fingerprint wait window (CFPWaitDialog) as a backend shows it: one picture, no text, no button.
// Called from any thread (the window's, its owner's, the biometric callbacks'); calls for one window
// never overlap.
class WaitUi {
public:
    virtual ~WaitUi() = default;
    // The window is shown. From now until closed(), what the person does to it arrives at `window` as a
    // posted WM_CLOSE, WM_WTSSESSION_CHANGE or WM_POWERBROADCAST (with the session or power code in
    // wParam), as do the simulated sensor's window statements (plat/sensor_sim.h).
    virtual void shown(HWND window) = 0;
    // The window now shows PNG resource `pictureId` (504 tick, 505 cross, 509 finger on the sensor).
    virtual void image(HWND window, UINT pictureId) = 0;
    virtual void hidden(HWND window) = 0;
    // The window is being destroyed: once this returns nothing is posted to it any more.
    virtual void closed(HWND window) = 0;
};

// The wait window of a backend that does not show it: nothing is shown, only the simulated sensor's
// window statements are delivered.
WaitUi& silentWait();

// The password dialogs of the key backup (export: where a new key's backup goes, and its password) and
// of the key recovery (import: which backup, and its password).
struct KeyFileRequest {
    bool bExport = false;        // export: the password is asked twice and must match
    bool bShowPassword = false;  // the password is shown as it is typed
    std::u16string typeName;     // the kind of file, for the person (e.g. "Key File(*.key)"); may be empty
    std::u16string startPath;    // offered as the start value; may be empty
    std::u16string defaultExtension;  // added (with a dot) to a chosen file name that has no extension
    std::size_t nMinPassword = 0;     // password length limits in UTF-16 units; 0: no limit
    std::size_t nMaxPassword = 0;
};
struct KeyFileAnswer {
    std::u16string path;
    std::u16string password;
};
class KeyFileDialogUi {
public:
    virtual ~KeyFileDialogUi() = default;
    // Asks the person. IDOK with `answer` filled (a path that is not empty, a password within the
    // limits); IDCANCEL when the person cancelled; 0 with the last error set when it cannot be shown.
    virtual int ask(HWND owner, const KeyFileRequest& request, KeyFileAnswer& answer) = 0;
};

// The shell's search window: the query it was opened with and the files it found.
class SearchWindowUi {
public:
    virtual ~SearchWindowUi() = default;
    virtual void show(std::u16string_view query, const std::vector<std::u16string>& results) = 0;
};

// Defaults of a backend without these kinds: the dialog cannot be shown (0, ERROR_NOT_SUPPORTED); the
// search window shows nothing.
KeyFileDialogUi& unavailableKeyFileDialog();
SearchWindowUi& silentSearchWindow();

class Backend {
public:
    virtual ~Backend() = default;
    virtual std::string_view name() const = 0;
    virtual MessageBoxUi& messageBox() = 0;
    virtual CursorUi& cursor() = 0;
    virtual WaitUi& wait() { return silentWait(); }
    virtual ProgressUi& progress() { return silentProgress(); }
    virtual ErrorListUi& errorList() { return silentErrorList(); }
    virtual ClipboardUi& clipboard() { return silentClipboard(); }
    virtual KeyFileDialogUi& keyFileDialog() { return unavailableKeyFileDialog(); }
    virtual SearchWindowUi& searchWindow() { return silentSearchWindow(); }
    // True for a backend whose progress dialog and search window are the system's own (the Windows UI):
    // the layer then hands those to the system instead of to this backend's kinds.
    virtual bool usesSystemWindows() const { return false; }
};

// The process's backend, chosen once on first use from VELQ_UI ("script", "tty" or "gtk"; "win32" in the
// Windows program, whose default it is); without it: gtk when a display is named and the desktop UI is
// built in, else tty when stdin and stderr are terminals, else script. An unknown name ("gtk" while it is not
// built in) falls back to that default with a one-line warning on stderr; so does gtk when the display cannot
// be opened. Thread-safe; the chosen backend lives until the process ends, so a thread may still ask while
// the process exits.
Backend& currentBackend();

// Ends the backend's own UI thread, if it has one (the desktop UI's), once the program's work is done: no
// window is drawn while the process's exit handlers run. Called by the program's entry before it returns;
// no interaction may follow.
void endBackend();

// Puts `backend` in place of the process's backend and gives back the previous one (null if none was
// chosen yet). For programs that choose their own backend and for tests that record interactions. The
// caller keeps the previous one alive while any thread may still be using it.
std::unique_ptr<Backend> installBackend(std::unique_ptr<Backend> backend);

}  // namespace ui
}  // namespace plat
