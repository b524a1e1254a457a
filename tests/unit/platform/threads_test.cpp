#include "plat/threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>

#include "plat/errors.h"
#include "plat/sync.h"

namespace plat {
namespace {

struct Gate {
    HANDLE release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> seenId{0};
    ~Gate() { CloseHandle(release); }
};

unsigned waitForGateThen42(void* arg) {
    auto* gate = static_cast<Gate*>(arg);
    gate->seenId = GetCurrentThreadId();
    WaitForSingleObject(gate->release, INFINITE);
    return 42;
}

unsigned returnArgument(void* arg) {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(arg));
}

TEST(ThreadLifetime, ExitCodeIsStillActiveWhileRunningThenTheReturnValue) {
    Gate gate;
    unsigned id = 0;
    HANDLE thread = beginThread(&waitForGateThen42, &gate, &id);
    ASSERT_NE(thread, nullptr);
    DWORD code = 0;
    ASSERT_EQ(GetExitCodeThread(thread, &code), TRUE);
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(thread, 10), WAIT_TIMEOUT);

    SetEvent(gate.release);
    ASSERT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    ASSERT_EQ(GetExitCodeThread(thread, &code), TRUE);
    EXPECT_EQ(code, 42u);
    // An ended thread's handle stays signalled.
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_OBJECT_0);
    EXPECT_EQ(gate.seenId.load(), id);
    CloseHandle(thread);
}

// Owned by the thread that gets it, so that nothing of the test's stack is touched after `done`.
struct Relay {
    HANDLE go;
    HANDLE done;
};

unsigned relay(void* arg) {
    const std::unique_ptr<Relay> handles(static_cast<Relay*>(arg));
    WaitForSingleObject(handles->go, INFINITE);
    SetEvent(handles->done);
    return 0;
}

TEST(ThreadLifetime, HandleClosedWhileRunningLeavesTheThreadItsObject) {
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE thread = beginThread(&relay, new Relay{go, done});
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(CloseHandle(thread), TRUE);
    // The thread runs on and ends on its own reference; the sanitizer catches a use after free.
    SetEvent(go);
    EXPECT_EQ(WaitForSingleObject(done, INFINITE), WAIT_OBJECT_0);
    CloseHandle(go);
    CloseHandle(done);
}

TEST(ThreadStart, RefusesSuspendedStartAndMissingProcedureWithEinval) {
    errno = 0;
    EXPECT_EQ(_beginthreadex(nullptr, 0, &returnArgument, nullptr, CREATE_SUSPENDED, nullptr), 0u);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(_beginthreadex(nullptr, 0, nullptr, nullptr, 0, nullptr), 0u);
    EXPECT_EQ(errno, EINVAL);
}

TEST(ThreadStart, TinyStackSizeIsRaisedToAWorkingOne) {
    HANDLE thread = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 1, &returnArgument, reinterpret_cast<void*>(std::uintptr_t{7}), 0, nullptr));
    ASSERT_NE(thread, nullptr);
    ASSERT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    DWORD code = 0;
    GetExitCodeThread(thread, &code);
    EXPECT_EQ(code, 7u);
    CloseHandle(thread);
}

TEST(ThreadIds, AreNonZeroDistinctAndStablePerThread) {
    const DWORD self = GetCurrentThreadId();
    EXPECT_NE(self, 0u);
    EXPECT_EQ(GetCurrentThreadId(), self);
    Gate first;
    Gate second;
    unsigned firstId = 0;
    unsigned secondId = 0;
    HANDLE a = beginThread(&waitForGateThen42, &first, &firstId);
    HANDLE b = beginThread(&waitForGateThen42, &second, &secondId);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_NE(firstId, secondId);
    EXPECT_NE(firstId, self);
    SetEvent(first.release);
    SetEvent(second.release);
    HANDLE both[] = {a, b};
    WaitForMultipleObjects(2, both, TRUE, INFINITE);
    EXPECT_EQ(first.seenId.load(), firstId);
    EXPECT_EQ(second.seenId.load(), secondId);
    CloseHandle(a);
    CloseHandle(b);
}

TEST(ThreadExitCode, RefusesHandlesThatAreNoThread) {
    DWORD code = 0;
    SetLastError(0);
    EXPECT_EQ(GetExitCodeThread(nullptr, &code), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    SetLastError(0);
    EXPECT_EQ(GetExitCodeThread(event, &code), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    CloseHandle(event);
}

}  // namespace
}  // namespace plat
