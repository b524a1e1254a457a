// Threads of the C runtime, with one promise kept beyond the API's: a thread's message queue exists as
// soon as its id is known. Windows makes a queue on a thread's first message call, so a post to a new
// thread (or to one that has not yet looked at its queue) can fail with ERROR_INVALID_THREAD_ID; the core
// posts to its workers at once and has no retry loops. So a new thread makes its queue before
// _beginthreadex returns, and any other thread on its first GetCurrentThreadId.
#include <errno.h>
#include <process.h>

#include "plat/threads.h"
#include "wide.h"

namespace plat {

namespace {

thread_local bool t_bHasQueue = false;

// A peek is the documented way to make the calling thread's message queue.
void ensureMessageQueue() {
    if (!t_bHasQueue) {
        ::MSG msg;
        ::PeekMessageW(&msg, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
        t_bHasQueue = true;
    }
}

struct ThreadStart {
    unsigned (*function)(void*);
    void* argument;
    ::HANDLE hQueueReady;
};

// The runtime calls this with the API's calling convention, which the core's functions (plain C++
// functions) need not have on 32-bit Windows.
unsigned __stdcall runThread(void* parameter) {
    const ThreadStart start = *static_cast<ThreadStart*>(parameter);
    ensureMessageQueue();
    ::SetEvent(start.hQueueReady);
    return start.function(start.argument);
}

}  // namespace

std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned (*startAddress)(void*),
                              void* arglist, unsigned initFlag, unsigned* threadId) {
    if (initFlag != 0 || startAddress == nullptr) {
        errno = EINVAL;
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    ThreadStart start{startAddress, arglist, ::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    if (start.hQueueReady == nullptr) {
        errno = EAGAIN;
        return 0;
    }
    const std::uintptr_t thread = ::_beginthreadex(security, stackSize, &runThread, &start, 0, threadId);
    if (thread != 0) {
        // The thread signals once its queue exists; until then it reads `start` on this stack.
        ::WaitForSingleObject(start.hQueueReady, INFINITE);
    }
    ::CloseHandle(start.hQueueReady);
    return thread;
}

HANDLE beginThread(unsigned (*startAddress)(void*), void* arglist, unsigned* threadId) {
    return reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, startAddress, arglist, 0, threadId));
}

BOOL GetExitCodeThread(HANDLE hThread, DWORD* lpExitCode) {
    if (lpExitCode == nullptr) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    ::DWORD code = 0;
    const BOOL ok = ::GetExitCodeThread(win32::native(hThread), &code);
    *lpExitCode = code;
    return ok;
}

DWORD GetCurrentThreadId() {
    ensureMessageQueue();
    return ::GetCurrentThreadId();
}

void Sleep(DWORD dwMilliseconds) {
    ::Sleep(dwMilliseconds);
}

}  // namespace plat
