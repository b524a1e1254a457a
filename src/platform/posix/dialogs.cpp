// Window visibility and placement as state, the error list's dialog template (51) with its controls, and
// icon tokens. The error list's backend hears of rows, of the list showing and of a shown list's end.
#include "plat/dialogs.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "plat/errors.h"
#include "plat/strings.h"
#include "plat/ui.h"

namespace plat {

namespace {

struct DialogData {
    DLGPROC proc = nullptr;
    std::map<int, HWND> controls;
};

struct ListData {
    HWND dialog = nullptr;
    std::vector<std::u16string> rows;
};

// Visibility, dialogs and list controls of the process. Entries of windows that are gone are dropped when
// a dialog is destroyed; a stale entry of another window is harmless, since handles are never reused.
struct WindowState {
    std::mutex mutex;
    std::map<HWND, bool> visible;
    std::map<HWND, DialogData> dialogs;
    std::map<HWND, ListData> lists;
};

WindowState& state() {
    static auto* shared = new WindowState;  // immortal: threads may end while the process exits
    return *shared;
}

bool setVisible(HWND hwnd, bool visible) {
    WindowState& windows = state();
    std::lock_guard<std::mutex> lock(windows.mutex);
    bool& entry = windows.visible[hwnd];
    const bool before = entry;
    entry = visible;
    return before;
}

bool isErrorListDialog(HWND hwnd) {
    WindowState& windows = state();
    std::lock_guard<std::mutex> lock(windows.mutex);
    return windows.dialogs.count(hwnd) != 0;
}

void forgetDialog(HWND dialog) {
    WindowState& windows = state();
    std::lock_guard<std::mutex> lock(windows.mutex);
    const auto it = windows.dialogs.find(dialog);
    if (it == windows.dialogs.end()) {
        return;
    }
    for (const auto& [id, control] : it->second.controls) {
        windows.lists.erase(control);
        windows.visible.erase(control);
    }
    windows.dialogs.erase(it);
    windows.visible.erase(dialog);
}

LRESULT dialogWindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    DLGPROC proc = nullptr;
    {
        WindowState& windows = state();
        std::lock_guard<std::mutex> lock(windows.mutex);
        const auto it = windows.dialogs.find(hwnd);
        proc = it != windows.dialogs.end() ? it->second.proc : nullptr;
    }
    if (proc != nullptr && proc(hwnd, message, wParam, lParam) != 0) {
        return TRUE;
    }
    switch (message) {
        case WM_CLOSE:
            return 0;  // a dialog procedure decides what closing means
        case WM_DESTROY:
            if (IsWindowVisible(hwnd)) {
                ui::currentBackend().errorList().closed(hwnd);
            }
            forgetDialog(hwnd);
            return 0;
        default:
            return DefWindowProcW(hwnd, message, wParam, lParam);
    }
}

LRESULT controlWindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

LRESULT insertRow(HWND list, const LVITEMW* item) {
    if (item == nullptr || (item->mask & LVIF_TEXT) == 0 || item->pszText == nullptr || item->iItem < 0) {
        return -1;
    }
    HWND dialog = nullptr;
    std::u16string text(item->pszText);
    std::size_t index = 0;
    unsigned count = 0;
    {
        WindowState& windows = state();
        std::lock_guard<std::mutex> lock(windows.mutex);
        ListData& data = windows.lists[list];
        index = std::min(static_cast<std::size_t>(item->iItem), data.rows.size());
        data.rows.insert(data.rows.begin() + static_cast<std::ptrdiff_t>(index), text);
        dialog = data.dialog;
        count = static_cast<unsigned>(data.rows.size());
    }
    ui::currentBackend().errorList().rowAdded(dialog, text, count);
    return static_cast<LRESULT>(index);
}

LRESULT rowText(HWND list, WPARAM row, LVITEMW* item) {
    if (item == nullptr || item->pszText == nullptr || item->cchTextMax <= 0) {
        return 0;
    }
    WindowState& windows = state();
    std::lock_guard<std::mutex> lock(windows.mutex);
    const std::vector<std::u16string>& rows = windows.lists[list].rows;
    const std::u16string_view text =
        row < rows.size() ? std::u16string_view(rows[row]) : std::u16string_view();
    return static_cast<LRESULT>(
        copyTruncated(text, item->pszText, static_cast<std::size_t>(item->cchTextMax)));
}

LRESULT listViewWindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case LVM_INSERTITEMW:
            return insertRow(hwnd, reinterpret_cast<const LVITEMW*>(lParam));
        case LVM_GETITEMTEXTW:
            return rowText(hwnd, wParam, reinterpret_cast<LVITEMW*>(lParam));
        case LVM_GETITEMCOUNT: {
            WindowState& windows = state();
            std::lock_guard<std::mutex> lock(windows.mutex);
            return static_cast<LRESULT>(windows.lists[hwnd].rows.size());
        }
        case LVM_INSERTCOLUMNW:
            return 0;  // the one column; nothing is drawn
        case LVM_SETEXTENDEDLISTVIEWSTYLE:
            return 0;
        default:
            return DefWindowProcW(hwnd, message, wParam, lParam);
    }
}

void registerClasses() {
    static const bool registered = [] {
        const std::pair<const char16_t*, WNDPROC> classes[] = {{u"VELQDialog51", dialogWindowProc},
                                                               {u"VELQButton", controlWindowProc},
                                                               {u"VELQStatic", controlWindowProc},
                                                               {u"VELQListView", listViewWindowProc}};
        for (const auto& [name, proc] : classes) {
            WNDCLASSW windowClass{};
            windowClass.lpfnWndProc = proc;
            windowClass.lpszClassName = name;
            RegisterClassW(&windowClass);
        }
        return true;
    }();
    (void)registered;
}

struct ControlTemplate {
    int id;
    const char16_t* windowClass;
    const char16_t* text;
};

// Template 51 in template order (the dialog's own caption is "Error List").
constexpr ControlTemplate kErrorListControls[] = {{IDC_ERROR_OK, u"VELQButton", u"OK"},
                                                  {IDC_ERROR_COPY, u"VELQButton", u"Copy to clipboard"},
                                                  {IDC_ERROR_LIST, u"VELQListView", u"Message"},
                                                  {IDC_ERROR_COUNT, u"VELQStatic", u""}};

}  // namespace

BOOL ShowWindow(HWND hWnd, int nCmdShow) {
    if (!IsWindow(hWnd)) {
        return FALSE;
    }
    const bool show = nCmdShow != SW_HIDE;
    const bool before = setVisible(hWnd, show);
    if (show && !before && isErrorListDialog(hWnd)) {
        ui::currentBackend().errorList().shown(hWnd);
    }
    return before ? TRUE : FALSE;
}

BOOL IsWindowVisible(HWND hWnd) {
    if (!IsWindow(hWnd)) {
        return FALSE;
    }
    WindowState& windows = state();
    std::lock_guard<std::mutex> lock(windows.mutex);
    const auto it = windows.visible.find(hWnd);
    return it != windows.visible.end() && it->second ? TRUE : FALSE;
}

BOOL SetWindowPos(HWND hWnd, HWND, int, int, int, int, UINT uFlags) {
    if (!IsWindow(hWnd)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    if ((uFlags & SWP_SHOWWINDOW) != 0) {
        ShowWindow(hWnd, SW_SHOW);
    }
    return TRUE;
}

BOOL MoveWindow(HWND hWnd, int, int, int, int, BOOL) {
    if (!IsWindow(hWnd)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    return TRUE;
}

BOOL BringWindowToTop(HWND hWnd) {
    return IsWindow(hWnd);
}

BOOL SetForegroundWindow(HWND hWnd) {
    return IsWindow(hWnd);
}

HWND CreateDialogParamW(HINSTANCE, UINT templateId, HWND hWndParent, DLGPROC lpDialogFunc,
                        LPARAM dwInitParam) {
    if (templateId != IDD_ERROR_LIST || lpDialogFunc == nullptr) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    registerClasses();
    HWND dialog = CreateWindowExW(0, u"VELQDialog51", u"Error List", 0, 0, 0, 299, 131, hWndParent, nullptr,
                                  nullptr, nullptr);
    if (dialog == nullptr) {
        return nullptr;
    }
    DialogData data;
    data.proc = lpDialogFunc;
    for (const ControlTemplate& control : kErrorListControls) {
        HWND child = CreateWindowExW(0, control.windowClass, control.text, WS_CHILD | WS_VISIBLE, 0, 0, 0, 0,
                                     dialog, nullptr, nullptr, nullptr);
        data.controls[control.id] = child;
    }
    {
        WindowState& windows = state();
        std::lock_guard<std::mutex> lock(windows.mutex);
        windows.lists[data.controls[IDC_ERROR_LIST]].dialog = dialog;
        windows.dialogs[dialog] = data;
    }
    SendMessageW(dialog, WM_INITDIALOG, 0, dwInitParam);
    return dialog;
}

HWND GetDlgItem(HWND hDlg, int nIDDlgItem) {
    WindowState& windows = state();
    std::lock_guard<std::mutex> lock(windows.mutex);
    const auto dialog = windows.dialogs.find(hDlg);
    if (dialog == windows.dialogs.end()) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    const auto control = dialog->second.controls.find(nIDDlgItem);
    if (control == dialog->second.controls.end()) {
        SetLastError(ERROR_CONTROL_ID_NOT_FOUND);
        return nullptr;
    }
    return control->second;
}

BOOL SetDlgItemTextW(HWND hDlg, int nIDDlgItem, LPCWSTR lpString) {
    HWND control = GetDlgItem(hDlg, nIDDlgItem);
    return control != nullptr ? SetWindowTextW(control, lpString) : FALSE;
}

HICON LoadIconW(HINSTANCE, UINT id) {
    if (id != 12 && id != 13) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<HICON>(static_cast<std::uintptr_t>(0x1000 + id));
}

}  // namespace plat
