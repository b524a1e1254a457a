// Thread message queues: the API's own. The main thread's queue is made at start-up, as the layer
// promises (see threads.cpp for the other threads).
#include "plat/messages.h"
#include "plat/threads.h"
#include "wide.h"

namespace plat {

namespace {

// Runs before main: the main thread takes its id, and with it its queue.
const DWORD g_dwMainThreadId = GetCurrentThreadId();

::MSG* nativeMessage(LPMSG message) {
    return reinterpret_cast<::MSG*>(message);
}

const ::MSG* nativeMessage(const MSG* message) {
    return reinterpret_cast<const ::MSG*>(message);
}

}  // namespace

BOOL PostThreadMessageW(DWORD idThread, UINT Msg, WPARAM wParam, LPARAM lParam) {
    return ::PostThreadMessageW(idThread, Msg, wParam, lParam);
}

void PostQuitMessage(int nExitCode) {
    ::PostQuitMessage(nExitCode);
}

// A null record is refused here: the API would write through it.
BOOL GetMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax) {
    if (lpMsg == nullptr) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return -1;
    }
    return ::GetMessageW(nativeMessage(lpMsg), win32::native(hWnd), wMsgFilterMin, wMsgFilterMax);
}

BOOL PeekMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax, UINT wRemoveMsg) {
    if (lpMsg == nullptr) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return ::PeekMessageW(nativeMessage(lpMsg), win32::native(hWnd), wMsgFilterMin, wMsgFilterMax,
                          wRemoveMsg);
}

LRESULT DispatchMessageW(const MSG* lpMsg) {
    return ::DispatchMessageW(nativeMessage(lpMsg));
}

BOOL TranslateMessage(const MSG* lpMsg) {
    return ::TranslateMessage(nativeMessage(lpMsg));
}

}  // namespace plat
