// Window placement and visibility, dialog controls and icons: the API's own calls. CreateDialogParamW of
// the program's one dialog template (the error list, 51) is in ui/win32_dialogs.cpp.
#include "plat/dialogs.h"
#include "wide.h"

namespace plat {

using win32::fromNative;
using win32::native;

BOOL ShowWindow(HWND hWnd, int nCmdShow) {
    return ::ShowWindow(native(hWnd), nCmdShow);
}

BOOL IsWindowVisible(HWND hWnd) {
    return ::IsWindowVisible(native(hWnd));
}

// HWND_TOPMOST is (HWND)-1 in the layer as in the API, so the insert-after handle passes unchanged.
BOOL SetWindowPos(HWND hWnd, HWND hWndInsertAfter, int X, int Y, int cx, int cy, UINT uFlags) {
    return ::SetWindowPos(native(hWnd), native(hWndInsertAfter), X, Y, cx, cy, uFlags);
}

BOOL MoveWindow(HWND hWnd, int X, int Y, int nWidth, int nHeight, BOOL bRepaint) {
    return ::MoveWindow(native(hWnd), X, Y, nWidth, nHeight, bRepaint);
}

BOOL BringWindowToTop(HWND hWnd) {
    return ::BringWindowToTop(native(hWnd));
}

BOOL SetForegroundWindow(HWND hWnd) {
    return ::SetForegroundWindow(native(hWnd));
}

HWND GetDlgItem(HWND hDlg, int nIDDlgItem) {
    return fromNative(::GetDlgItem(native(hDlg), nIDDlgItem));
}

BOOL SetDlgItemTextW(HWND hDlg, int nIDDlgItem, LPCWSTR lpString) {
    return ::SetDlgItemTextW(native(hDlg), nIDDlgItem, win32::wide(lpString));
}

// A resource number travels as a pointer whose value is the number (MAKEINTRESOURCEW, which inside this
// namespace would name the layer's LPWSTR).
HICON LoadIconW(HINSTANCE hInstance, UINT id) {
    const auto* resource =
        reinterpret_cast<const wchar_t*>(static_cast<std::uintptr_t>(static_cast<WORD>(id)));
    return reinterpret_cast<HICON>(::LoadIconW(native(hInstance), resource));
}

}  // namespace plat
