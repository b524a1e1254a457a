// Per-thread message queues: posted thread messages, posted window messages, WM_QUIT, and the messages
// that other threads send to this thread's windows (SendMessageW, plat/windows.h).
//
// Every thread can receive posts from the moment its id can be known: a thread started by _beginthreadex
// gets its queue together with its thread object, before its id is handed out; any other thread (the
// main thread among them) gets its queue together with its id, on its first GetCurrentThreadId or
// message call, and the main thread at process start. Windows creates a queue only on a thread's first
// message call, which makes early posts fail and forces callers into retry loops; here a post to a live
// thread cannot fail. A thread's queue ends with the thread: later posts give ERROR_INVALID_THREAD_ID.
#pragma once

#include "plat/types.h"

namespace plat {

inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_CREATE = 0x0001;
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_SETTEXT = 0x000C;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_NCCREATE = 0x0081;
inline constexpr UINT WM_NCDESTROY = 0x0082;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_POWERBROADCAST = 0x0218;
inline constexpr UINT WM_WTSSESSION_CHANGE = 0x02B1;
inline constexpr UINT WM_USER = 0x0400;
inline constexpr UINT WM_APP = 0x8000;

inline constexpr UINT PM_NOREMOVE = 0x0000;
inline constexpr UINT PM_REMOVE = 0x0001;

inline constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;
inline constexpr DWORD ERROR_WINDOW_OF_OTHER_THREAD = 1408;

struct POINT {
    LONG x;
    LONG y;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;  // milliseconds of a monotonic clock when the message was posted
    POINT pt;    // always 0, 0: no pointer position is tracked
};
using LPMSG = MSG*;

// Posts a thread message (hwnd null) to the thread `idThread`. FALSE with ERROR_INVALID_THREAD_ID when no
// thread of that id lives. A posted WM_QUIT is an ordinary message in the order of the queue.
BOOL PostThreadMessageW(DWORD idThread, UINT Msg, WPARAM wParam, LPARAM lParam);

// Asks the calling thread's loop to end: GetMessageW gives WM_QUIT (wParam = nExitCode) once no posted
// message that the filter takes is left.
void PostQuitMessage(int nExitCode);

// Filters of GetMessageW and PeekMessageW: `hWnd` null takes the thread's messages and those of all its
// windows, a window only that window's, (HWND)-1 only thread messages; `wMsgFilterMin` and
// `wMsgFilterMax` both 0 take every number, otherwise only numbers in that closed range.
//
// Both first run the messages that other threads have sent to this thread's windows, then look at the
// posted ones.
//
// GetMessageW waits for a message: TRUE for one, 0 for WM_QUIT (which it still fills in), -1 with the last
// error for a null `lpMsg` (ERROR_INVALID_PARAMETER) or an `hWnd` that is no window
// (ERROR_INVALID_WINDOW_HANDLE).
BOOL GetMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax);

// Does not wait: TRUE with the first message that the filter takes, removed with PM_REMOVE and left in
// place with PM_NOREMOVE; FALSE when there is none (or on the errors of GetMessageW).
BOOL PeekMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax, UINT wRemoveMsg);

// Hands a message that names a window to that window's procedure and gives its result; 0 for thread
// messages and windows that no longer exist; 0 with ERROR_WINDOW_OF_OTHER_THREAD for a window of another
// thread.
LRESULT DispatchMessageW(const MSG* lpMsg);

// There is no keyboard input to translate: always FALSE.
BOOL TranslateMessage(const MSG* lpMsg);

}  // namespace plat
