// Windows and their procedures: the API's own windows. The core's procedures are plain C++ functions
// with the layer's parameter types; the API calls procedures with its own calling convention (stdcall on
// 32-bit Windows) and types. So every class registered here gets one procedure of the API's kind, which
// finds the core's procedure of the window (set by SetWindowLongPtrW, else the class's) and calls it.
#include <mutex>
#include <unordered_map>

#include "plat/windows.h"
#include "wide.h"

namespace {

// On 32-bit Windows the API's Get/SetWindowLongPtrW are macros for Get/SetWindowLongW; they are called
// through these two, and the macros then go, so that the layer's functions keep their own names.
::LONG_PTR setWindowWord(::HWND window, int index, ::LONG_PTR value) {
    return ::SetWindowLongPtrW(window, index, value);
}

::LONG_PTR getWindowWord(::HWND window, int index) {
    return ::GetWindowLongPtrW(window, index);
}

}  // namespace

#undef SetWindowLongPtrW
#undef GetWindowLongPtrW

namespace plat {

using win32::fromNative;
using win32::native;
using win32::wide;

namespace {

class Procedures {
public:
    static Procedures& instance() {
        static Procedures procedures;
        return procedures;
    }

    void setClass(ATOM atom, WNDPROC procedure) {
        const std::lock_guard lock(m_mutex);
        m_byClass[atom] = procedure;
    }

    // Gives the previous procedure of the window (its own, else its class's).
    WNDPROC setWindow(::HWND window, WNDPROC procedure) {
        const WNDPROC previous = of(window);
        const std::lock_guard lock(m_mutex);
        m_byWindow[window] = procedure;
        return previous;
    }

    void forget(::HWND window) {
        const std::lock_guard lock(m_mutex);
        m_byWindow.erase(window);
    }

    WNDPROC of(::HWND window) {
        const auto atom = static_cast<ATOM>(::GetClassWord(window, GCW_ATOM));
        const std::lock_guard lock(m_mutex);
        const auto own = m_byWindow.find(window);
        if (own != m_byWindow.end()) {
            return own->second;
        }
        const auto byClass = m_byClass.find(atom);
        return byClass == m_byClass.end() ? nullptr : byClass->second;
    }

private:
    std::mutex m_mutex;
    std::unordered_map<ATOM, WNDPROC> m_byClass;
    std::unordered_map<::HWND, WNDPROC> m_byWindow;
};

::LRESULT CALLBACK windowProcedure(::HWND window, ::UINT message, ::WPARAM wParam, ::LPARAM lParam) {
    const WNDPROC procedure = Procedures::instance().of(window);
    if (message == WM_NCDESTROY) {
        Procedures::instance().forget(window);
    }
    if (procedure == nullptr) {
        return ::DefWindowProcW(window, message, wParam, lParam);
    }
    return procedure(fromNative(window), message, wParam, lParam);
}

}  // namespace

ATOM RegisterClassW(const WNDCLASSW* lpWndClass) {
    if (lpWndClass == nullptr || lpWndClass->lpfnWndProc == nullptr) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    ::WNDCLASSW windowClass{};
    windowClass.style = lpWndClass->style;
    windowClass.lpfnWndProc = &windowProcedure;
    windowClass.cbClsExtra = lpWndClass->cbClsExtra;
    windowClass.cbWndExtra = lpWndClass->cbWndExtra;
    windowClass.hInstance = native(lpWndClass->hInstance);
    windowClass.hIcon = reinterpret_cast<::HICON>(lpWndClass->hIcon);
    windowClass.hCursor = reinterpret_cast<::HCURSOR>(lpWndClass->hCursor);
    windowClass.hbrBackground = reinterpret_cast<::HBRUSH>(lpWndClass->hbrBackground);
    windowClass.lpszMenuName = wide(lpWndClass->lpszMenuName);
    windowClass.lpszClassName = wide(lpWndClass->lpszClassName);
    const ATOM atom = ::RegisterClassW(&windowClass);
    if (atom != 0) {
        Procedures::instance().setClass(atom, lpWndClass->lpfnWndProc);
    }
    return atom;
}

HWND CreateWindowExW(DWORD dwExStyle, LPCWSTR lpClassName, LPCWSTR lpWindowName, DWORD dwStyle, int x, int y,
                     int nWidth, int nHeight, HWND hWndParent, HMENU hMenu, HINSTANCE hInstance,
                     void* lpParam) {
    return fromNative(::CreateWindowExW(dwExStyle, wide(lpClassName), wide(lpWindowName), dwStyle, x, y,
                                        nWidth, nHeight, native(hWndParent), reinterpret_cast<::HMENU>(hMenu),
                                        native(hInstance), lpParam));
}

BOOL DestroyWindow(HWND hWnd) {
    return ::DestroyWindow(native(hWnd));
}

BOOL IsWindow(HWND hWnd) {
    return ::IsWindow(native(hWnd));
}

HWND FindWindowW(LPCWSTR lpClassName, LPCWSTR lpWindowName) {
    return fromNative(::FindWindowW(wide(lpClassName), wide(lpWindowName)));
}

DWORD GetWindowThreadProcessId(HWND hWnd, DWORD* lpdwProcessId) {
    ::DWORD process = 0;
    const DWORD thread = ::GetWindowThreadProcessId(native(hWnd), &process);
    win32::storeIfWanted(lpdwProcessId, process);
    return thread;
}

BOOL SetWindowTextW(HWND hWnd, LPCWSTR lpString) {
    return ::SetWindowTextW(native(hWnd), wide(lpString));
}

int GetWindowTextW(HWND hWnd, LPWSTR lpString, int nMaxCount) {
    return ::GetWindowTextW(native(hWnd), wide(lpString), nMaxCount);
}

int GetWindowTextLengthW(HWND hWnd) {
    return ::GetWindowTextLengthW(native(hWnd));
}

// The procedure word holds the core's procedure; the API's word keeps windowProcedure.
LONG_PTR SetWindowLongPtrW(HWND hWnd, int nIndex, LONG_PTR dwNewLong) {
    if (nIndex != GWLP_WNDPROC) {
        // The API leaves the last error alone when the previous value was 0; the layer promises 0 then.
        ::SetLastError(ERROR_SUCCESS);
        return setWindowWord(native(hWnd), nIndex, dwNewLong);
    }
    if (!::IsWindow(native(hWnd))) {
        ::SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    ::SetLastError(ERROR_SUCCESS);
    const WNDPROC previous =
        Procedures::instance().setWindow(native(hWnd), reinterpret_cast<WNDPROC>(dwNewLong));
    return reinterpret_cast<LONG_PTR>(previous);
}

LONG_PTR GetWindowLongPtrW(HWND hWnd, int nIndex) {
    if (nIndex != GWLP_WNDPROC) {
        return getWindowWord(native(hWnd), nIndex);
    }
    if (!::IsWindow(native(hWnd))) {
        ::SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    return reinterpret_cast<LONG_PTR>(Procedures::instance().of(native(hWnd)));
}

LRESULT DefWindowProcW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam) {
    return ::DefWindowProcW(native(hWnd), Msg, wParam, lParam);
}

LRESULT SendMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam) {
    return ::SendMessageW(native(hWnd), Msg, wParam, lParam);
}

BOOL PostMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam) {
    return ::PostMessageW(native(hWnd), Msg, wParam, lParam);
}

}  // namespace plat
