// Events, mutexes and the waits on them: the API's own kernel objects, named ones shared between
// processes by the system itself.
#include "plat/sync.h"
#include "plat/named.h"
#include "wide.h"

namespace plat {

using win32::fromNative;
using win32::native;
using win32::wide;

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState,
                    LPCWSTR lpName) {
    return fromNative(::CreateEventW(reinterpret_cast<::LPSECURITY_ATTRIBUTES>(lpEventAttributes),
                                     bManualReset, bInitialState, wide(lpName)));
}

BOOL SetEvent(HANDLE hEvent) {
    return ::SetEvent(native(hEvent));
}

BOOL ResetEvent(HANDLE hEvent) {
    return ::ResetEvent(native(hEvent));
}

HANDLE OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName) {
    return fromNative(::OpenEventW(dwDesiredAccess, bInheritHandle, wide(lpName)));
}

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner, LPCWSTR lpName) {
    return fromNative(::CreateMutexW(reinterpret_cast<::LPSECURITY_ATTRIBUTES>(lpMutexAttributes),
                                     bInitialOwner, wide(lpName)));
}

HANDLE OpenMutexW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName) {
    return fromNative(::OpenMutexW(dwDesiredAccess, bInheritHandle, wide(lpName)));
}

BOOL ReleaseMutex(HANDLE hMutex) {
    return ::ReleaseMutex(native(hMutex));
}

DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    return ::WaitForSingleObject(native(hHandle), dwMilliseconds);
}

// An array of plat handles is an array of the API's handle values (same size, checked).
DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll, DWORD dwMilliseconds) {
    return ::WaitForMultipleObjects(nCount, reinterpret_cast<const ::HANDLE*>(lpHandles), bWaitAll,
                                    dwMilliseconds);
}

}  // namespace plat
