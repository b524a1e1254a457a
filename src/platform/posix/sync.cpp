#include "plat/sync.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <optional>
#include <vector>

#include "named_objects.h"
#include "plat/errors.h"
#include "plat/threads.h"

namespace plat {

namespace {

using Clock = std::chrono::steady_clock;

// Immortal: detached threads may still wait or signal while the process runs its exit handlers.
std::condition_variable& waitersChanged() {
    static auto* cv = new std::condition_variable;
    return *cv;
}

// The objects of one wait, each held by a reference of its own for the length of the wait, so that a
// handle closed meanwhile by another thread cannot free an object under the waiter.
class WaitSet {
public:
    ~WaitSet() {
        for (Waitable* object : m_vObjects) {
            object->release();
        }
    }

    // False when a handle names no waitable object.
    bool add(HANDLE h) {
        Waitable* object = isUsableHandle(h) ? h->asWaitable() : nullptr;
        if (object == nullptr) {
            return false;
        }
        object->addRef();
        m_vObjects.push_back(object);
        return true;
    }

    bool hasDuplicates() const {
        std::vector<Waitable*> sorted = m_vObjects;
        std::sort(sorted.begin(), sorted.end());
        return std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
    }

    // With the wait lock held: the result of the wait if it is satisfied now, having taken its objects.
    std::optional<DWORD> tryTake(bool waitAll, DWORD threadId) {
        const std::optional<DWORD> result = testAndTake(waitAll, threadId);
        for (Waitable* object : m_vObjects) {
            object->endTest();
        }
        return result;
    }

private:
    std::optional<DWORD> testAndTake(bool waitAll, DWORD threadId) {
        if (!waitAll) {
            for (std::size_t i = 0; i < m_vObjects.size(); ++i) {
                if (m_vObjects[i]->isSignalledFor(threadId)) {
                    return m_vObjects[i]->acquire(threadId) + static_cast<DWORD>(i);
                }
            }
            return std::nullopt;
        }
        for (const Waitable* object : m_vObjects) {
            if (!object->isSignalledFor(threadId)) {
                return std::nullopt;
            }
        }
        std::optional<DWORD> result = WAIT_OBJECT_0;
        for (std::size_t i = 0; i < m_vObjects.size(); ++i) {
            if (m_vObjects[i]->acquire(threadId) == WAIT_ABANDONED_0 && *result == WAIT_OBJECT_0) {
                result = WAIT_ABANDONED_0 + static_cast<DWORD>(i);
            }
        }
        return result;
    }

public:
    // The shortest poll interval of the set; 0 when every change is announced.
    DWORD pollIntervalMs() const {
        DWORD interval = 0;
        for (const Waitable* object : m_vObjects) {
            const DWORD own = object->pollIntervalMs();
            if (own != 0 && (interval == 0 || own < interval)) {
                interval = own;
            }
        }
        return interval;
    }

private:
    std::vector<Waitable*> m_vObjects;
};

DWORD waitOn(WaitSet& objects, bool waitAll, DWORD dwMilliseconds) {
    const DWORD threadId = GetCurrentThreadId();
    const DWORD pollMs = objects.pollIntervalMs();
    const bool endless = dwMilliseconds == INFINITE;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(endless ? 0 : dwMilliseconds);

    std::unique_lock<std::mutex> lock(Waitable::waitLock());
    for (;;) {
        if (const std::optional<DWORD> result = objects.tryTake(waitAll, threadId)) {
            return *result;
        }
        const Clock::time_point now = Clock::now();
        if (!endless && now >= deadline) {
            return WAIT_TIMEOUT;
        }
        Clock::time_point wakeAt = endless ? Clock::time_point::max() : deadline;
        if (pollMs != 0) {
            wakeAt = std::min(wakeAt, now + std::chrono::milliseconds(pollMs));
        }
        if (wakeAt == Clock::time_point::max()) {
            waitersChanged().wait(lock);
        } else {
            waitersChanged().wait_until(lock, wakeAt);
        }
    }
}

Event* eventFrom(HANDLE h) {
    Event* event = handleAs<Event>(h);
    if (event == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return event;
}

}  // namespace

std::mutex& Waitable::waitLock() {
    static auto* lock = new std::mutex;
    return *lock;
}

void Waitable::notifyWaiters() {
    waitersChanged().notify_all();
}

Event::Event(bool manualReset, bool initialState) : m_bManualReset(manualReset), m_bSignalled(initialState) {}

void Event::set() {
    {
        std::lock_guard<std::mutex> lock(waitLock());
        m_bSignalled = true;
    }
    notifyWaiters();
}

void Event::reset() {
    std::lock_guard<std::mutex> lock(waitLock());
    m_bSignalled = false;
}

bool Event::isSignalledFor(DWORD /*threadId: an event has no owner*/) const {
    return m_bSignalled;
}

DWORD Event::acquire(DWORD /*threadId*/) {
    if (!m_bManualReset) {
        m_bSignalled = false;
    }
    return WAIT_OBJECT_0;
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES /*lpEventAttributes*/, BOOL bManualReset, BOOL bInitialState,
                    LPCWSTR lpName) {
    if (lpName != nullptr && *lpName != u'\0') {
        return detail::createNamedEvent(bManualReset, bInitialState, lpName);
    }
    SetLastError(ERROR_SUCCESS);
    return new Event(bManualReset != FALSE, bInitialState != FALSE);
}

BOOL SetEvent(HANDLE hEvent) {
    if (const std::optional<BOOL> named = detail::changeNamedEvent(hEvent, true)) {
        return *named;
    }
    Event* event = eventFrom(hEvent);
    if (event == nullptr) {
        return FALSE;
    }
    event->set();
    return TRUE;
}

BOOL ResetEvent(HANDLE hEvent) {
    if (const std::optional<BOOL> named = detail::changeNamedEvent(hEvent, false)) {
        return *named;
    }
    Event* event = eventFrom(hEvent);
    if (event == nullptr) {
        return FALSE;
    }
    event->reset();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    WaitSet objects;
    if (!objects.add(hHandle)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return waitOn(objects, false, dwMilliseconds);
}

DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll, DWORD dwMilliseconds) {
    if (nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS || lpHandles == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    WaitSet objects;
    for (DWORD i = 0; i < nCount; ++i) {
        if (!objects.add(lpHandles[i])) {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
    }
    if (bWaitAll != FALSE && objects.hasDuplicates()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    return waitOn(objects, bWaitAll != FALSE, dwMilliseconds);
}

}  // namespace plat
