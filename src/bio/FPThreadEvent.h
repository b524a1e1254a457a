// CFPThreadEvent: the lock that lets one client notification of the biometric engine run at a time.
//
// It wraps one mutex. The mutex is owned per thread and may be taken again by its owner, so a client
// that calls back into the engine from inside a notification does not deadlock.
#pragma once

#include "plat/types.h"

class CFPThreadEvent {
public:
    // No mutex yet; prepares COM on the constructing thread (nothing to do on POSIX).
    CFPThreadEvent();
    // Closes the mutex, then undoes the COM preparation.
    ~CFPThreadEvent();
    CFPThreadEvent(const CFPThreadEvent&) = delete;
    CFPThreadEvent& operator=(const CFPThreadEvent&) = delete;

    // Closes an open mutex and makes a new one under a fresh unique name. True when a handle came back;
    // false leaves no mutex (the last error tells why).
    bool createMutex();
    // Closes the mutex, if any, and forgets it.
    void closeMutex();

    // Takes the mutex. Without a mutex one is made first (false if that fails, and no delay is made);
    // otherwise sleeps `preDelayMs` (0: no sleep) and then waits at most `timeoutMs` (INFINITE: no limit).
    // True only when the wait was plainly satisfied (not timed out, failed or abandoned).
    bool Lock(plat::DWORD preDelayMs, plat::DWORD timeoutMs);
    // Releases one level of the calling thread's ownership. TRUE without a mutex; otherwise the result of
    // ReleaseMutex (FALSE when the calling thread does not hold it).
    plat::BOOL Unlock();

private:
    plat::HANDLE m_hMutex;
};
