// Windows as the core needs them: objects that belong to the thread that created them, with a class and
// its window procedure, a text, a user word and an owner, reached by messages. Nothing here draws; the UI
// backends show what they need on top of this model.
//
// A window belongs to its creating thread: only that thread runs its procedure. SendMessageW from another
// thread waits until the owner thread takes the message inside GetMessageW/PeekMessageW (or while it waits
// in a SendMessageW of its own). When a window's thread ends, its windows are gone without further
// messages, and every sender still waiting for them gets 0.
//
// A window handle is a number that is never reused, so IsWindow of a destroyed window stays FALSE.
#pragma once

#include "plat/messages.h"
#include "plat/types.h"
#include "plat/ui.h"

namespace plat {

using ATOM = WORD;
using LONG_PTR = std::intptr_t;
struct Icon;
using HICON = Icon*;
struct Brush;
using HBRUSH = Brush*;
struct Menu;
using HMENU = Menu*;

using WNDPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);

inline constexpr int GWLP_WNDPROC = -4;
inline constexpr int GWLP_USERDATA = -21;

inline constexpr DWORD WS_CHILD = 0x40000000;
inline constexpr DWORD WS_VISIBLE = 0x10000000;

inline constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
inline constexpr DWORD ERROR_CLASS_ALREADY_EXISTS = 1410;
inline constexpr DWORD ERROR_INVALID_INDEX = 1413;

struct WNDCLASSW {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
};

// What WM_NCCREATE and WM_CREATE carry in lParam, as on Windows.
struct CREATESTRUCTW {
    void* lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
};

// Registers a class for this process (names compare without regard to ASCII case). Returns a nonzero
// atom; 0 with ERROR_CLASS_ALREADY_EXISTS for a name already registered, ERROR_INVALID_PARAMETER without
// a name or procedure.
ATOM RegisterClassW(const WNDCLASSW* lpWndClass);

// Creates a window of a registered class owned by the calling thread. Its procedure gets WM_NCCREATE and
// then WM_CREATE, both with a CREATESTRUCTW whose lpCreateParams is `lpParam`; FALSE from WM_NCCREATE or
// -1 from WM_CREATE destroys the window again and gives null. Null with ERROR_CANNOT_FIND_WND_CLASS for
// an unknown class, ERROR_INVALID_WINDOW_HANDLE for a parent that is no window. Position and size are
// kept but mean nothing here. A window with a parent (child or owned) is destroyed with it.
HWND CreateWindowExW(DWORD dwExStyle, LPCWSTR lpClassName, LPCWSTR lpWindowName, DWORD dwStyle, int x, int y,
                     int nWidth, int nHeight, HWND hWndParent, HMENU hMenu, HINSTANCE hInstance,
                     void* lpParam);

// Destroys a window of the calling thread: WM_DESTROY to it, then its children are destroyed, then
// WM_NCDESTROY; messages still being sent to it give their senders 0. FALSE with
// ERROR_INVALID_WINDOW_HANDLE for no window, ERROR_ACCESS_DENIED for a window of another thread.
BOOL DestroyWindow(HWND hWnd);

// TRUE for a live window of this process: from WM_NCCREATE on until DestroyWindow has run WM_NCDESTROY,
// or its thread has ended.
BOOL IsWindow(HWND hWnd);

// The most recently created top-level window (one without a parent) whose class and title match; either
// may be null to match any. Class names compare without regard to ASCII case, titles exactly. Null with
// ERROR_SUCCESS when nothing matches.
HWND FindWindowW(LPCWSTR lpClassName, LPCWSTR lpWindowName);

// The id of the thread that owns the window, and through `lpdwProcessId` (if not null) this process's id;
// 0 with ERROR_INVALID_WINDOW_HANDLE for no window.
DWORD GetWindowThreadProcessId(HWND hWnd, DWORD* lpdwProcessId);

// The window's text. SetWindowTextW takes null as empty; GetWindowTextW copies at most nMaxCount - 1
// units and a NUL and gives the number copied (0 with the last error for no window).
BOOL SetWindowTextW(HWND hWnd, LPCWSTR lpString);
int GetWindowTextW(HWND hWnd, LPWSTR lpString, int nMaxCount);
int GetWindowTextLengthW(HWND hWnd);

// GWLP_USERDATA (the user word) and GWLP_WNDPROC (the procedure). Set gives the previous value; both give
// 0 with ERROR_INVALID_WINDOW_HANDLE for no window, ERROR_INVALID_INDEX for another index. A previous
// value of 0 leaves the last error at 0, so that callers can tell it apart from a failure.
LONG_PTR SetWindowLongPtrW(HWND hWnd, int nIndex, LONG_PTR dwNewLong);
LONG_PTR GetWindowLongPtrW(HWND hWnd, int nIndex);

// The default handling: WM_NCCREATE gives TRUE, WM_CLOSE destroys the window, everything else gives 0.
LRESULT DefWindowProcW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);

// Runs the window's procedure with the message and gives its result: directly when the window belongs to
// the calling thread; otherwise on the owner thread, the caller waiting meanwhile (and still running
// messages sent to its own windows). 0 when the window does not exist (ERROR_INVALID_WINDOW_HANDLE), or
// is destroyed or its thread ends before the message was handled.
LRESULT SendMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);

// Posts a message for the window to its owner thread's queue; a null `hWnd` posts a thread message to the
// calling thread. FALSE with ERROR_INVALID_WINDOW_HANDLE for no window.
BOOL PostMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);

}  // namespace plat
