// Named mutexes and events: their state lives in the object file (named_store.h) and changes only under
// the runtime folder's state lock.
//
// Waits poll. A futex in shared memory or a FIFO could wake waiters at once, but neither tells a waiter
// that the process it waits for has died; the poll sees a death the same way it sees a change of state,
// and the latency of a poll interval is nothing beside a fingerprint or a file manager's hand-off.
#include "named_objects.h"

#include <unistd.h>

#include <memory>

#include "named_store.h"
#include "plat/errors.h"
#include "plat/named.h"
#include "plat/strings.h"
#include "plat/sync.h"
#include "plat/threads.h"

namespace plat {

namespace {

using detail::FolderLock;
using detail::ObjectFile;
using detail::ObjectKind;
using detail::ObjectState;

constexpr DWORD kPollIntervalMs = 20;

std::uint32_t ownPid() {
    return static_cast<std::uint32_t>(::getpid());
}

// A waitable object in the runtime folder. A wait tests and takes it in one round under the wait lock;
// the state lock is taken at the round's first test and kept until endTest, so that the state a test
// saw is the state that acquire changes, even when another process is about to change it.
class NamedWaitable : public Waitable {
public:
    explicit NamedWaitable(std::unique_ptr<ObjectFile> file) : m_file(std::move(file)) {}

    DWORD pollIntervalMs() const override { return kPollIntervalMs; }

    void endTest() override {
        if (m_bPinned) {
            m_bPinned = false;
            m_file->folder()->unlock();
        }
    }

protected:
    ~NamedWaitable() override { endTest(); }

    // With the wait lock held.
    ObjectState pinnedState() const {
        if (!m_bPinned) {
            m_file->folder()->lock();
            m_bPinned = true;
        }
        return m_file->read();
    }

    const std::unique_ptr<ObjectFile> m_file;

private:
    mutable bool m_bPinned = false;  // guarded by the wait lock
};

class NamedMutex : public NamedWaitable {
public:
    using NamedWaitable::NamedWaitable;

    bool isSignalledFor(DWORD threadId) const override {
        const ObjectState state = pinnedState();
        return state.mutexOwnerProcess == 0 || isOwnedBy(state, threadId) || ownerDied(state);
    }

    DWORD acquire(DWORD threadId) override {
        ObjectState state = pinnedState();
        DWORD result = WAIT_OBJECT_0;
        if (isOwnedBy(state, threadId)) {
            ++state.mutexRecursion;
        } else {
            if (state.mutexOwnerProcess != 0) {
                result = WAIT_ABANDONED_0;  // only a dead owner lets another thread in
            }
            state.mutexOwnerProcess = ownPid();
            state.mutexOwnerThread = threadId;
            state.mutexRecursion = 1;
        }
        m_file->write(state);
        return result;
    }

    BOOL release(DWORD threadId) {
        {
            FolderLock lock(m_file->folder());
            ObjectState state = m_file->read();
            if (!isOwnedBy(state, threadId)) {
                SetLastError(ERROR_NOT_OWNER);
                return FALSE;
            }
            if (--state.mutexRecursion == 0) {
                state.mutexOwnerProcess = 0;
                state.mutexOwnerThread = 0;
            }
            m_file->write(state);
        }
        notifyWaiters();
        return TRUE;
    }

private:
    static bool isOwnedBy(const ObjectState& state, DWORD threadId) {
        return state.mutexOwnerProcess == ownPid() && state.mutexOwnerThread == threadId;
    }
    bool ownerDied(const ObjectState& state) const {
        return state.mutexOwnerProcess != ownPid() && !m_file->folder()->isAlive(state.mutexOwnerProcess);
    }
};

class NamedEvent : public NamedWaitable {
public:
    using NamedWaitable::NamedWaitable;

    bool isSignalledFor(DWORD /*threadId: an event has no owner*/) const override {
        const ObjectState state = pinnedState();
        return state.eventSignalled != 0 || turnHolderDied(state);
    }

    DWORD acquire(DWORD /*threadId*/) override {
        ObjectState state = pinnedState();
        if (state.eventManualReset == 0) {
            state.eventSignalled = 0;
            state.eventTurnHolder = ownPid();
            m_file->write(state);
        }
        return WAIT_OBJECT_0;
    }

    void change(bool set) {
        {
            FolderLock lock(m_file->folder());
            ObjectState state = m_file->read();
            state.eventSignalled = set ? 1 : 0;
            if (set) {
                state.eventTurnHolder = 0;  // the turn is given back
            }
            m_file->write(state);
        }
        if (set) {
            notifyWaiters();
        }
    }

private:
    bool turnHolderDied(const ObjectState& state) const {
        return state.eventManualReset == 0 && state.eventTurnHolder != 0 &&
               state.eventTurnHolder != ownPid() && !m_file->folder()->isAlive(state.eventTurnHolder);
    }
};

template <typename T>
HANDLE openObject(LPCWSTR name, ObjectKind kind, bool create, const ObjectState& initial) {
    bool existed = false;
    std::unique_ptr<ObjectFile> file = ObjectFile::open(name, kind, create, initial, existed);
    if (file == nullptr) {
        return nullptr;
    }
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return new T(std::move(file));
}

}  // namespace

namespace detail {

HANDLE createNamedEvent(BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName) {
    ObjectState initial = detail::freshState(ObjectKind::Event);
    initial.eventManualReset = bManualReset != FALSE ? 1 : 0;
    initial.eventSignalled = bInitialState != FALSE ? 1 : 0;
    // Whoever makes an auto-reset event unsignalled holds its first turn.
    initial.eventTurnHolder = initial.eventManualReset == 0 && initial.eventSignalled == 0 ? ownPid() : 0;
    return openObject<NamedEvent>(lpName, ObjectKind::Event, true, initial);
}

std::optional<BOOL> changeNamedEvent(HANDLE h, bool set) {
    NamedEvent* event = handleAs<NamedEvent>(h);
    if (event == nullptr) {
        return std::nullopt;
    }
    event->change(set);
    return TRUE;
}

}  // namespace detail

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES /*lpMutexAttributes*/, BOOL bInitialOwner, LPCWSTR lpName) {
    ObjectState initial = detail::freshState(ObjectKind::Mutex);
    if (bInitialOwner != FALSE) {
        initial.mutexOwnerProcess = ownPid();
        initial.mutexOwnerThread = GetCurrentThreadId();
        initial.mutexRecursion = 1;
    }
    return openObject<NamedMutex>(lpName, ObjectKind::Mutex, true, initial);
}

HANDLE OpenMutexW(DWORD /*dwDesiredAccess*/, BOOL /*bInheritHandle*/, LPCWSTR lpName) {
    return openObject<NamedMutex>(lpName, ObjectKind::Mutex, false, detail::freshState(ObjectKind::Mutex));
}

BOOL ReleaseMutex(HANDLE hMutex) {
    NamedMutex* mutex = handleAs<NamedMutex>(hMutex);
    if (mutex == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return mutex->release(GetCurrentThreadId());
}

HANDLE OpenEventW(DWORD /*dwDesiredAccess*/, BOOL /*bInheritHandle*/, LPCWSTR lpName) {
    return openObject<NamedEvent>(lpName, ObjectKind::Event, false, detail::freshState(ObjectKind::Event));
}

std::u16string namedObjectFileName(std::u16string_view name) {
    return fromUtf8(detail::objectFileName(name));
}

}  // namespace plat
