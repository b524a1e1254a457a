// The interaction kinds of the native Windows UI (win32_backend.h tells what each one shows).
#pragma once

#include <mutex>

#include "plat/ui.h"
#include "ui/wait_kinds.h"
#include "ui/win32_backend.h"

namespace plat::ui {

// The system's message box with the core's flags as they stand.
class Win32MessageBox : public MessageBoxUi {
public:
    int show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) override;
};

// The system's cursors by their ids.
class Win32Cursor : public CursorUi {
public:
    void show(DWORD cursorId) override;
};

// The core's wait window made the native one: shown on top and centred on the desktop, its size fixed,
// the picture in a picture control that fills it, registered for the session's notices. The window's
// own thread does all of that: every call here only posts to the window, so that no call blocks on a
// window thread that may itself be waiting for the core's lock. While the window stands, the simulated
// sensor's window statements reach it too, as in every backend.
class Win32Wait : public WaitUi {
public:
    explicit Win32Wait(PictureSource pictures);
    void shown(HWND window) override;
    void image(HWND window, UINT pictureId) override;
    void hidden(HWND window) override;
    void closed(HWND window) override;

    // Private messages of the window, posted by the calls above (public for the window's procedure).
    static constexpr UINT kShow = 0x8000 + 0x351;  // WM_APP + 0x351
    static constexpr UINT kImage = kShow + 1;      // wParam: the picture's id
    static constexpr UINT kHide = kShow + 2;

private:
    PictureSource m_pictures;
    WaitEventRelay m_relay;
};

// The password dialogs of the key backup and recovery: one dialog with the key file's path and a button
// that opens the system's file chooser (save for an export, open for an import), the password (twice
// for an export) and a line that says what is still wrong.
class Win32KeyFileDialog : public KeyFileDialogUi {
public:
    int ask(HWND owner, const KeyFileRequest& request, KeyFileAnswer& answer) override;
};

}  // namespace plat::ui
