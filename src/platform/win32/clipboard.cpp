// The clipboard and its movable global memory: the API's own calls.
#include "plat/clipboard.h"
#include "wide.h"

namespace plat {

namespace {

::HGLOBAL native(HGLOBAL memory) {
    return reinterpret_cast<::HGLOBAL>(memory);
}

HGLOBAL fromNative(::HANDLE memory) {
    return reinterpret_cast<HGLOBAL>(memory);
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
    return fromNative(::SetClipboardData(uFormat, native(hMem)));
}

BOOL CloseClipboard() {
    return ::CloseClipboard();
}

}  // namespace plat
