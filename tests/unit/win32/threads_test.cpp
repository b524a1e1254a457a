// Threads and their message queues through the Win32 forwards: a post to a thread succeeds as soon as its
// id is known, as the core's workers are posted to at once (Windows itself makes a queue only on a
// thread's first message call).
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "plat/errors.h"
#include "plat/messages.h"
#include "plat/sync.h"
#include "plat/threads.h"

namespace plat {
namespace {

constexpr UINT kWork = WM_APP + 7;

unsigned takeOneMessage(void*) {
    MSG msg{};
    if (GetMessageW(&msg, nullptr, 0, 0) <= 0 || msg.message != kWork) {
        return 0;
    }
    return static_cast<unsigned>(msg.wParam);
}

TEST(Win32Threads, APostRightAfterTheStartReachesTheNewThread) {
    for (unsigned round = 1; round <= 20; ++round) {
        unsigned id = 0;
        HANDLE thread = beginThread(&takeOneMessage, nullptr, &id);
        ASSERT_NE(thread, nullptr);
        EXPECT_EQ(PostThreadMessageW(id, kWork, round, 0), TRUE)
            << "round " << round << ": " << GetLastError();
        ASSERT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        DWORD code = 0;
        EXPECT_EQ(GetExitCodeThread(thread, &code), TRUE);
        EXPECT_EQ(code, round);
        CloseHandle(thread);
    }
}

TEST(Win32Threads, AThreadOfAnotherOriginGetsItsQueueWithItsId) {
    HANDLE idKnown = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE posted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD id = 0;
    UINT received = 0;
    std::thread other([&] {
        id = GetCurrentThreadId();
        SetEvent(idKnown);
        WaitForSingleObject(posted, INFINITE);
        MSG msg{};
        if (PeekMessageW(&msg, nullptr, kWork, kWork, PM_REMOVE)) {
            received = msg.message;
        }
    });
    WaitForSingleObject(idKnown, INFINITE);
    EXPECT_EQ(PostThreadMessageW(id, kWork, 0, 0), TRUE) << GetLastError();
    SetEvent(posted);
    other.join();
    EXPECT_EQ(received, kWork);
    CloseHandle(idKnown);
    CloseHandle(posted);
}

TEST(Win32Threads, SuspendedStartsAndMissingArgumentsAreRefused) {
    errno = 0;
    EXPECT_EQ(_beginthreadex(nullptr, 0, &takeOneMessage, nullptr, CREATE_SUSPENDED, nullptr), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(GetExitCodeThread(nullptr, nullptr), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    DWORD code = 0;
    EXPECT_EQ(GetExitCodeThread(nullptr, &code), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

}  // namespace
}  // namespace plat
