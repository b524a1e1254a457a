// Waitable kernel objects and the waits on them: events, thread handles, and (plat/named.h) the
// named events and mutexes shared between processes.
//
// Every waitable object keeps its state under one process-wide wait lock, and every change of a state
// wakes all waiters, which then test their objects again. One lock keeps WaitForMultipleObjects with
// waitAll simple and atomic (all objects are tested and consumed under the same lock); the program has a
// handful of threads, so the broad wake-up costs nothing worth measuring.
#pragma once

#include <mutex>

#include "plat/handle.h"
#include "plat/types.h"

namespace plat {

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED_0 = 0x80;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// The base of every object that WaitForSingleObject/WaitForMultipleObjects accept.
//
// A kind of object tells two things, both asked with the wait lock held: whether a wait by `threadId`
// would be satisfied now (isSignalledFor), and what a satisfied wait does to the object (acquire: an
// auto-reset event resets, a mutex becomes owned). Whoever changes the state takes the wait lock and
// calls notifyWaiters.
//
// Objects whose state can change outside this process (named objects in the runtime folder, whose holder
// may die) cannot announce every change; they return a poll interval, and a wait that includes one of
// them tests again at least that often.
class Waitable : public KernelObject {
public:
    Waitable* asWaitable() override { return this; }

    // With the wait lock held: would a wait by `threadId` be satisfied now?
    virtual bool isSignalledFor(DWORD threadId) const = 0;
    // With the wait lock held, after isSignalledFor gave true: takes the object for `threadId`. Returns
    // WAIT_OBJECT_0, or WAIT_ABANDONED_0 for a mutex whose holder ended without releasing it.
    virtual DWORD acquire(DWORD threadId) = 0;
    // Milliseconds between tests for objects whose changes are not announced; 0: every change is.
    virtual DWORD pollIntervalMs() const { return 0; }
    // With the wait lock held, at the end of every round of isSignalledFor/acquire calls of a wait: lets
    // go of whatever the round's tests held (named objects hold their state lock through the round).
    virtual void endTest() {}

    // The process-wide lock over the state of every waitable object.
    static std::mutex& waitLock();
    // Wakes every waiting thread so that it tests its objects again. Call after a change, with or
    // without the wait lock held.
    static void notifyWaiters();
};

// An event as CreateEventW makes it. SetEvent on a manual-reset event releases every waiter and stays
// set; on an auto-reset event it releases exactly one waiter, and the wait that took it resets it.
class Event : public Waitable {
public:
    Event(bool manualReset, bool initialState);

    void set();
    void reset();

    bool isSignalledFor(DWORD threadId) const override;
    DWORD acquire(DWORD threadId) override;

private:
    const bool m_bManualReset;
    bool m_bSignalled;  // guarded by waitLock()
};

struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

// An event. Without a name (null or empty) it belongs to this process; with a name it is shared between
// processes, and an existing one is opened with last error ERROR_ALREADY_EXISTS (its manual-reset and
// state arguments then ignored): see plat/named.h for names and their failures. The security attributes
// are ignored.
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState,
                    LPCWSTR lpName);
// FALSE with ERROR_INVALID_HANDLE when `hEvent` is no event.
BOOL SetEvent(HANDLE hEvent);
BOOL ResetEvent(HANDLE hEvent);

// Waits until `hHandle` is signalled (WAIT_OBJECT_0, or WAIT_ABANDONED_0) or `dwMilliseconds` have
// passed (WAIT_TIMEOUT; INFINITE never passes; 0 tests once). WAIT_FAILED with ERROR_INVALID_HANDLE for a
// handle that names no waitable object.
DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);

// With `bWaitAll` FALSE: waits for any of the objects and gives WAIT_OBJECT_0 + the lowest index that is
// signalled, taking only that object. With TRUE: waits until all are signalled at once and then takes
// all of them together (auto-reset events are reset only then), giving WAIT_OBJECT_0. Failures:
// WAIT_FAILED with ERROR_INVALID_PARAMETER for a count of 0 or above MAXIMUM_WAIT_OBJECTS, a null array,
// or (waitAll) the same object twice; ERROR_INVALID_HANDLE for a handle that names no waitable object.
DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll, DWORD dwMilliseconds);

}  // namespace plat
