#include "ui/win32_backend.h"

#include <string>

#include "ui/win32_kinds.h"
#include "ui/win32_resource_name.h"
#include "win32/wide.h"

namespace plat::ui {

using win32::native;
using win32::wide;

int Win32MessageBox::show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) {
    // The core's contract: an owner that is no window fails with this error (the system's box would
    // sometimes come up all the same, or fail with another error).
    if (owner != nullptr && !::IsWindow(native(owner))) {
        ::SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    // The views need not end in a NUL; the system's call needs texts that do.
    const std::u16string boxText(text);
    const std::u16string boxCaption(caption);
    const int answer = ::MessageBoxW(native(owner), wide(boxText.c_str()), wide(boxCaption.c_str()), flags);
    // A box that could not be shown is 0 to the core, whatever the system gave.
    return answer > 0 ? answer : 0;
}

void Win32Cursor::show(DWORD cursorId) {
    ::SetCursor(cursorId == 0 ? nullptr : ::LoadCursorW(nullptr, resourceName(cursorId)));
}

std::span<const std::uint8_t> programPicture(UINT id) {
    const ::HMODULE program = ::GetModuleHandleW(nullptr);
    const ::HRSRC found = ::FindResourceW(program, resourceName(id), L"PNG");
    if (found == nullptr) {
        return {};
    }
    const ::DWORD size = ::SizeofResource(program, found);
    const ::HGLOBAL loaded = ::LoadResource(program, found);
    const void* bytes = loaded != nullptr ? ::LockResource(loaded) : nullptr;
    if (bytes == nullptr || size == 0) {
        return {};
    }
    // A module's resources stay mapped while the module is loaded: for the program, until it ends.
    return {static_cast<const std::uint8_t*>(bytes), size};
}

namespace {

class Win32Backend : public Backend {
public:
    explicit Win32Backend(PictureSource pictures) : m_wait(std::move(pictures)) {}
    std::string_view name() const override { return "win32"; }
    bool usesSystemWindows() const override { return true; }
    MessageBoxUi& messageBox() override { return m_messageBox; }
    CursorUi& cursor() override { return m_cursor; }
    WaitUi& wait() override { return m_wait; }
    KeyFileDialogUi& keyFileDialog() override { return m_keyFileDialog; }
    // The progress dialog, the error list, the clipboard and the search window are the system's own,
    // driven by the core's calls of the layer (win32_progress.cpp, win32_dialogs.cpp, the forwards of
    // win32/): the base's silent kinds stand in for them here.

private:
    Win32MessageBox m_messageBox;
    Win32Cursor m_cursor;
    Win32Wait m_wait;
    Win32KeyFileDialog m_keyFileDialog;
};

}  // namespace

std::unique_ptr<Backend> makeWin32Backend(PictureSource pictures) {
    return std::make_unique<Win32Backend>(std::move(pictures));
}

}  // namespace plat::ui
