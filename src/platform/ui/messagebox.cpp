#include <atomic>
#include <initializer_list>

#include "plat/errors.h"
#include "plat/strings.h"
#include "plat/ui.h"
#include "plat/windows.h"

namespace plat {

namespace {
std::atomic<HCURSOR> g_hShownCursor{0};

// The system's cursor ids (arrow, beam, wait, cross, up arrow, the sizing arrows, no, hand, app starting,
// help): the only cursors there are, the program has none of its own.
bool isSystemCursor(DWORD id) {
    for (const DWORD known : {32512u, 32513u, 32514u, 32515u, 32516u, 32640u, 32641u, 32642u, 32643u, 32644u,
                              32645u, 32646u, 32648u, 32649u, 32650u, 32651u}) {
        if (id == known) {
            return true;
        }
    }
    return false;
}
}  // namespace

int MessageBoxW(HWND hWnd, LPCWSTR lpText, LPCWSTR lpCaption, UINT uType) {
    if (hWnd != nullptr && !IsWindow(hWnd)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    // A null text shows an empty box text and a null caption the caption "Error", as on Windows.
    const std::u16string_view text = lpText != nullptr ? std::u16string_view(lpText) : std::u16string_view();
    const std::u16string_view caption =
        lpCaption != nullptr ? std::u16string_view(lpCaption) : std::u16string_view(u"Error");
    return ui::currentBackend().messageBox().show(hWnd, text, caption, uType);
}

HCURSOR LoadCursorW(HINSTANCE hInstance, DWORD id) {
    if (hInstance != nullptr || !isSystemCursor(id)) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    return static_cast<HCURSOR>(id);
}

HCURSOR SetCursor(HCURSOR cursor) {
    const HCURSOR previous = g_hShownCursor.exchange(cursor);
    ui::currentBackend().cursor().show(static_cast<DWORD>(cursor));
    return previous;
}

}  // namespace plat
