// Threads as the C runtime of Windows starts them, with thread ids, exit codes and waitable handles.
//
// A thread's handle is waitable and becomes signalled when the thread has ended: by then its windows are
// gone and its message queue refuses posts, so a waiter sees the thread's whole end. The thread object
// lives until the thread has ended and every handle to it is closed (the running thread holds a
// reference of its own).
//
// Threads are detached. A thread still running when the process exits simply ends with the process, as
// on Windows, where ExitProcess ends the other threads; nothing waits for it. Whoever owns objects that a
// thread uses must therefore wait for the thread's handle before destroying them.
#pragma once

#include <cstdint>

#include "plat/types.h"

namespace plat {

inline constexpr DWORD STILL_ACTIVE = 259;
inline constexpr unsigned CREATE_SUSPENDED = 0x4;

// Starts `startAddress(arglist)` on a new thread and gives its handle as an integer, as the runtime does
// (cast it to HANDLE, or use beginThread). `security` is ignored; `stackSize` 0 means the default, other
// sizes are raised to the system's minimum. `initFlag` must be 0 (suspended starts are not offered):
// anything else gives 0 with errno EINVAL. On failure the result is 0, errno tells why (EAGAIN: no
// resources) and the last error is set to match. `threadId`, if not null, receives the thread's id.
//
// The thread's message queue exists from the moment this returns, so that posts to the new id succeed
// at once, before the thread has even run.
std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned (*startAddress)(void*),
                              void* arglist, unsigned initFlag, unsigned* threadId);

// The same as a typed handle: null on failure.
HANDLE beginThread(unsigned (*startAddress)(void*), void* arglist, unsigned* threadId = nullptr);

// STILL_ACTIVE while the thread runs, then the value its function returned. FALSE with
// ERROR_INVALID_HANDLE when `hThread` names no thread, or ERROR_INVALID_PARAMETER for a null `lpExitCode`.
BOOL GetExitCodeThread(HANDLE hThread, DWORD* lpExitCode);

// The calling thread's id: never 0, unique in the process and never reused. The main thread and threads
// not started by _beginthreadex get theirs (and their message queue) on first use.
DWORD GetCurrentThreadId();

// Suspends the calling thread for at least `dwMilliseconds` (0: gives up the rest of its time slice).
void Sleep(DWORD dwMilliseconds);

}  // namespace plat
