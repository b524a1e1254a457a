// The clipboard and its movable global memory: the API's own calls. Text set as CF_UNICODETEXT is also
// told to the UI backend, as on every system: the system's own UI ignores it, the scripted UI records it.
#include "plat/clipboard.h"
#include "plat/ui.h"
#include "wide.h"

#include <string>

namespace plat {

namespace {

::HGLOBAL native(HGLOBAL memory) {
    return reinterpret_cast<::HGLOBAL>(memory);
}

HGLOBAL fromNative(::HANDLE memory) {
    return reinterpret_cast<HGLOBAL>(memory);
}

// The text of a CF_UNICODETEXT block: up to its first NUL, never past its end.
std::u16string unicodeTextOf(HGLOBAL memory) {
    const auto* units = static_cast<const char16_t*>(::GlobalLock(native(memory)));
    if (units == nullptr) {
        return {};
    }
    const std::size_t capacity = ::GlobalSize(native(memory)) / sizeof(char16_t);
    std::size_t length = 0;
    while (length < capacity && units[length] != u'\0') {
        ++length;
    }
    std::u16string text(units, length);
    ::GlobalUnlock(native(memory));
    return text;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT uFlags, std::size_t dwBytes) {
    return fromNative(::GlobalAlloc(uFlags | GMEM_ZEROINIT, dwBytes));
}

void* GlobalLock(HGLOBAL hMem) {
    return ::GlobalLock(native(hMem));
}

BOOL GlobalUnlock(HGLOBAL hMem) {
    return ::GlobalUnlock(native(hMem));
}

HGLOBAL GlobalFree(HGLOBAL hMem) {
    return fromNative(::GlobalFree(native(hMem)));
}

BOOL OpenClipboard(HWND hWndNewOwner) {
    return ::OpenClipboard(win32::native(hWndNewOwner));
}

BOOL EmptyClipboard() {
    return ::EmptyClipboard();
}

HGLOBAL SetClipboardData(UINT uFormat, HGLOBAL hMem) {
    // The text is read while the block is still ours (the system owns it once it is set), but told only
    // once it is on the clipboard: a refused call (the clipboard not open) put nothing anywhere.
    const bool isText = uFormat == CF_UNICODETEXT && hMem != nullptr;
    const std::u16string text = isText ? unicodeTextOf(hMem) : std::u16string();
    const ::HANDLE set = ::SetClipboardData(uFormat, native(hMem));
    if (set != nullptr && isText) {
        ui::currentBackend().clipboard().setText(text);
    }
    return fromNative(set);
}

BOOL CloseClipboard() {
    return ::CloseClipboard();
}

}  // namespace plat
