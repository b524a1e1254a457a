#include "plat/sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "plat/errors.h"
#include "plat/threads.h"

namespace plat {
namespace {

class Handles {
public:
    ~Handles() {
        for (HANDLE h : m_handles) {
            if (h != nullptr) {
                CloseHandle(h);
            }
        }
    }
    HANDLE event(bool manualReset, bool initialState) {
        return keep(CreateEventW(nullptr, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE, nullptr));
    }
    HANDLE keep(HANDLE h) {
        m_handles.push_back(h);
        return h;
    }

private:
    std::vector<HANDLE> m_handles;
};

struct Waiter {
    HANDLE event;
    std::atomic<int>* released;
};

unsigned waitOnce(void* arg) {
    const auto* waiter = static_cast<Waiter*>(arg);
    const DWORD result = WaitForSingleObject(waiter->event, INFINITE);
    waiter->released->fetch_add(1);
    return result;
}

TEST(EventState, InitialStateAndResetAreSeenByZeroWaits) {
    Handles handles;
    HANDLE unset = handles.event(true, false);
    HANDLE set = handles.event(true, true);
    EXPECT_EQ(WaitForSingleObject(unset, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(set, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(set, 0), WAIT_OBJECT_0);  // a manual-reset event stays set
    EXPECT_EQ(ResetEvent(set), TRUE);
    EXPECT_EQ(WaitForSingleObject(set, 0), WAIT_TIMEOUT);
}

TEST(EventWaiters, AutoResetReleasesExactlyOneOfTwoWaiters) {
    Handles handles;
    HANDLE automatic = handles.event(false, false);
    std::atomic<int> released{0};
    Waiter waiter{automatic, &released};
    HANDLE threads[] = {handles.keep(beginThread(&waitOnce, &waiter)),
                        handles.keep(beginThread(&waitOnce, &waiter))};
    ASSERT_NE(threads[0], nullptr);
    ASSERT_NE(threads[1], nullptr);

    SetEvent(automatic);
    const DWORD first = WaitForMultipleObjects(2, threads, FALSE, INFINITE);
    ASSERT_LT(first, 2u);
    const HANDLE other = threads[1 - first];
    EXPECT_EQ(WaitForSingleObject(other, 50), WAIT_TIMEOUT);
    EXPECT_EQ(released.load(), 1);
    // The wait that took the event has reset it.
    EXPECT_EQ(WaitForSingleObject(automatic, 0), WAIT_TIMEOUT);

    SetEvent(automatic);
    EXPECT_EQ(WaitForSingleObject(other, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(released.load(), 2);
}

TEST(EventWaiters, ManualResetReleasesEveryWaiter) {
    Handles handles;
    HANDLE manual = handles.event(true, false);
    std::atomic<int> released{0};
    Waiter waiter{manual, &released};
    HANDLE threads[] = {handles.keep(beginThread(&waitOnce, &waiter)),
                        handles.keep(beginThread(&waitOnce, &waiter)),
                        handles.keep(beginThread(&waitOnce, &waiter))};
    SetEvent(manual);
    EXPECT_EQ(WaitForMultipleObjects(3, threads, TRUE, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(released.load(), 3);
    DWORD code = 1;
    GetExitCodeThread(threads[2], &code);
    EXPECT_EQ(code, WAIT_OBJECT_0);
}

TEST(WaitAny, GivesTheLowestSignalledIndexAndTakesOnlyThatObject) {
    Handles handles;
    HANDLE objects[] = {handles.event(false, false), handles.event(false, true), handles.event(false, true)};
    EXPECT_EQ(WaitForMultipleObjects(3, objects, FALSE, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(WaitForMultipleObjects(3, objects, FALSE, 0), WAIT_OBJECT_0 + 2);
    EXPECT_EQ(WaitForMultipleObjects(3, objects, FALSE, 0), WAIT_TIMEOUT);
}

TEST(WaitAll, TakesNothingUntilEveryObjectIsSignalled) {
    Handles handles;
    HANDLE objects[] = {handles.event(false, true), handles.event(false, false)};
    EXPECT_EQ(WaitForMultipleObjects(2, objects, TRUE, 10), WAIT_TIMEOUT);
    // The first event was not consumed by the wait that failed.
    EXPECT_EQ(WaitForSingleObject(objects[0], 0), WAIT_OBJECT_0);

    SetEvent(objects[0]);
    SetEvent(objects[1]);
    EXPECT_EQ(WaitForMultipleObjects(2, objects, TRUE, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(objects[0], 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(objects[1], 0), WAIT_TIMEOUT);
}

unsigned setEventArgument(void* arg) {
    SetEvent(static_cast<HANDLE>(arg));
    return 0;
}

TEST(WaitAll, WakesWhenTheLastObjectIsSetByAnotherThread) {
    Handles handles;
    HANDLE objects[] = {handles.event(true, true), handles.event(false, false)};
    handles.keep(beginThread(&setEventArgument, objects[1]));
    EXPECT_EQ(WaitForMultipleObjects(2, objects, TRUE, INFINITE), WAIT_OBJECT_0);
}

class PlainObject : public KernelObject {};

TEST(WaitFailures, HandlesThatNameNoWaitableObjectFailWithInvalidHandle) {
    Handles handles;
    HANDLE plain = handles.keep(new PlainObject);
    for (HANDLE bad : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, plain}) {
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(bad, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
    HANDLE mixed[] = {handles.event(true, true), nullptr};
    SetLastError(0);
    EXPECT_EQ(WaitForMultipleObjects(2, mixed, FALSE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    SetLastError(0);
    EXPECT_EQ(SetEvent(plain), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(WaitFailures, BadCountsAndDuplicatesInWaitAllAreInvalidParameters) {
    Handles handles;
    HANDLE event = handles.event(true, true);
    HANDLE twice[] = {event, event};
    SetLastError(0);
    EXPECT_EQ(WaitForMultipleObjects(0, twice, FALSE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(0);
    EXPECT_EQ(WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS + 1, twice, FALSE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(0);
    EXPECT_EQ(WaitForMultipleObjects(2, twice, TRUE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    // Waiting for any of them, a duplicate is harmless.
    EXPECT_EQ(WaitForMultipleObjects(2, twice, FALSE, 0), WAIT_OBJECT_0);
}

// An object whose state changes without announcement, as a named object held by another process will.
class PolledObject : public Waitable {
public:
    std::atomic<bool> signalled{false};
    bool isSignalledFor(DWORD) const override { return signalled.load(); }
    DWORD acquire(DWORD) override { return WAIT_OBJECT_0; }
    DWORD pollIntervalMs() const override { return 1; }
};

unsigned setSilently(void* arg) {
    static_cast<PolledObject*>(arg)->signalled = true;
    return 0;
}

TEST(WaitPolling, UnannouncedChangesEndAnEndlessWait) {
    Handles handles;
    auto* polled = new PolledObject;
    handles.keep(polled);
    handles.keep(beginThread(&setSilently, polled));
    EXPECT_EQ(WaitForSingleObject(polled, INFINITE), WAIT_OBJECT_0);
}

}  // namespace
}  // namespace plat
