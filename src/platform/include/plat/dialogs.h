// Window placement and visibility, the one dialog template of the program (51, the error list) with its
// controls, and icons.
//
// Nothing is drawn: a window's visibility and placement are kept as state, and the error list's UI
// backend (plat/ui.h, ErrorListUi) is told when rows come, when the list shows and when a shown list is
// closed.
#pragma once

#include "plat/types.h"
#include "plat/windows.h"

namespace plat {

inline constexpr int SW_HIDE = 0;
inline constexpr int SW_SHOWNORMAL = 1;
inline constexpr int SW_SHOW = 5;
inline constexpr int SW_RESTORE = 9;

inline const HWND HWND_TOPMOST = reinterpret_cast<HWND>(static_cast<std::intptr_t>(-1));
inline constexpr UINT SWP_NOSIZE = 0x1;
inline constexpr UINT SWP_NOMOVE = 0x2;
inline constexpr UINT SWP_NOZORDER = 0x4;
inline constexpr UINT SWP_SHOWWINDOW = 0x40;

// Shows or hides a window; gives whether it was visible before. FALSE for no window.
BOOL ShowWindow(HWND hWnd, int nCmdShow);
// TRUE for a live window that was shown and not hidden since.
BOOL IsWindowVisible(HWND hWnd);
// Keeps position and size; SWP_SHOWWINDOW shows the window. FALSE with ERROR_INVALID_WINDOW_HANDLE.
BOOL SetWindowPos(HWND hWnd, HWND hWndInsertAfter, int X, int Y, int cx, int cy, UINT uFlags);
BOOL MoveWindow(HWND hWnd, int X, int Y, int nWidth, int nHeight, BOOL bRepaint);
// Both only check that the window lives: nothing is drawn, so nothing is in front of anything.
BOOL BringWindowToTop(HWND hWnd);
BOOL SetForegroundWindow(HWND hWnd);

// Dialogs.
inline constexpr UINT WM_SETICON = 0x0080;
inline constexpr UINT WM_INITDIALOG = 0x0110;
inline constexpr UINT WM_COMMAND = 0x0111;
inline constexpr WPARAM ICON_BIG = 1;

using DLGPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);

// The error list's template and its controls.
inline constexpr UINT IDD_ERROR_LIST = 51;
inline constexpr int IDC_ERROR_LIST = 101;
inline constexpr int IDC_ERROR_COUNT = 102;
inline constexpr int IDC_ERROR_OK = 103;
inline constexpr int IDC_ERROR_COPY = 104;

inline constexpr WORD LOWORD(WPARAM value) {
    return static_cast<WORD>(value & 0xFFFF);
}

// Creates the modeless dialog of template `templateId` (only 51 exists) on the calling thread, hidden,
// with its child controls, then gives `lpDialogFunc` WM_INITDIALOG (lParam = `dwInitParam`). Messages
// for the dialog go to `lpDialogFunc` first; those it leaves (FALSE) get the default handling, which for
// WM_CLOSE does nothing. Null with ERROR_RESOURCE_NAME_NOT_FOUND for another template.
HWND CreateDialogParamW(HINSTANCE hInstance, UINT templateId, HWND hWndParent, DLGPROC lpDialogFunc,
                        LPARAM dwInitParam);
// A control of a dialog by its id; null with ERROR_CONTROL_ID_NOT_FOUND.
inline constexpr DWORD ERROR_CONTROL_ID_NOT_FOUND = 1421;
HWND GetDlgItem(HWND hDlg, int nIDDlgItem);
BOOL SetDlgItemTextW(HWND hDlg, int nIDDlgItem, LPCWSTR lpString);

// The list control (report view, one text per row).
inline constexpr UINT LVM_FIRST = 0x1000;
inline constexpr UINT LVM_GETITEMCOUNT = LVM_FIRST + 4;
inline constexpr UINT LVM_SETEXTENDEDLISTVIEWSTYLE = LVM_FIRST + 54;
inline constexpr UINT LVM_GETITEMTEXTW = LVM_FIRST + 115;
inline constexpr UINT LVM_INSERTITEMW = LVM_FIRST + 77;
inline constexpr UINT LVM_INSERTCOLUMNW = LVM_FIRST + 97;
inline constexpr UINT LVIF_TEXT = 0x1;
inline constexpr UINT LVCF_FMT = 0x1;
inline constexpr UINT LVCF_WIDTH = 0x2;
inline constexpr UINT LVCF_TEXT = 0x4;
inline constexpr int LVCFMT_CENTER = 0x2;
inline constexpr DWORD LVS_EX_GRIDLINES = 0x1;
inline constexpr DWORD LVS_EX_FULLROWSELECT = 0x20;
inline constexpr DWORD LVS_EX_LABELTIP = 0x4000;

struct LVITEMW {
    UINT mask;
    int iItem;
    int iSubItem;
    UINT state;
    UINT stateMask;
    LPWSTR pszText;
    int cchTextMax;
    int iImage;
    LPARAM lParam;
};

struct LVCOLUMNW {
    UINT mask;
    int fmt;
    int cx;
    LPWSTR pszText;
    int cchTextMax;
    int iSubItem;
};

// LVM_INSERTITEMW (lParam: LVITEMW*) gives the new row's index (rows at or past the end are appended), -1
// on failure; LVM_GETITEMTEXTW (wParam: row, lParam: LVITEMW* with pszText and cchTextMax) copies the
// row's text cut to fit and gives its length; LVM_GETITEMCOUNT the number of rows.

// Icons of the program's resources: a token for icons 12 and 13, null otherwise.
HICON LoadIconW(HINSTANCE hInstance, UINT id);

}  // namespace plat
