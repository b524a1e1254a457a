#include "plat/messages.h"

#include <gtest/gtest.h>

#include <vector>

#include "plat/errors.h"
#include "plat/sync.h"
#include "plat/threads.h"

namespace plat {
namespace {

constexpr UINT kPing = WM_USER + 1;
constexpr UINT kPong = WM_USER + 2;

// Removes every posted message of the calling thread, so that tests on the main thread start empty.
void drainQueue() {
    MSG msg{};
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE) != FALSE) {
    }
}

// A thread that records every message until GetMessageW gives 0, and the result of that last call.
struct Recorder {
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::vector<MSG> messages;
    BOOL lastResult = -2;
    ~Recorder() { CloseHandle(go); }
};

unsigned recordUntilQuit(void* arg) {
    auto* recorder = static_cast<Recorder*>(arg);
    // Posts are sent before the thread is let go; they must all have arrived.
    WaitForSingleObject(recorder->go, INFINITE);
    MSG msg{};
    BOOL result = 0;
    while ((result = GetMessageW(&msg, nullptr, 0, 0)) > 0) {
        recorder->messages.push_back(msg);
    }
    recorder->messages.push_back(msg);
    recorder->lastResult = result;
    return 0;
}

TEST(ThreadPosts, ANewThreadTakesPostsBeforeItRunsAndEndsOnQuit) {
    Recorder recorder;
    unsigned id = 0;
    HANDLE thread = beginThread(&recordUntilQuit, &recorder, &id);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(PostThreadMessageW(id, kPing, 1, 10), TRUE);
    EXPECT_EQ(PostThreadMessageW(id, kPong, 2, 20), TRUE);
    EXPECT_EQ(PostThreadMessageW(id, WM_QUIT, 5, 0), TRUE);
    EXPECT_EQ(PostThreadMessageW(id, kPing, 3, 30), TRUE);  // after the quit: never read
    SetEvent(recorder.go);
    ASSERT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);

    ASSERT_EQ(recorder.messages.size(), 3u);
    EXPECT_EQ(recorder.messages[0].message, kPing);
    EXPECT_EQ(recorder.messages[0].wParam, 1u);
    EXPECT_EQ(recorder.messages[0].lParam, 10);
    EXPECT_EQ(recorder.messages[0].hwnd, nullptr);
    EXPECT_EQ(recorder.messages[1].message, kPong);
    EXPECT_EQ(recorder.messages[2].message, WM_QUIT);
    EXPECT_EQ(recorder.messages[2].wParam, 5u);
    EXPECT_EQ(recorder.lastResult, FALSE);
}

struct Sender {
    DWORD target;
    LPARAM index;
};

constexpr WPARAM kPostsPerSender = 300;

unsigned postSequence(void* arg) {
    const auto* sender = static_cast<Sender*>(arg);
    for (WPARAM seq = 0; seq < kPostsPerSender; ++seq) {
        if (PostThreadMessageW(sender->target, kPing, seq, sender->index) == FALSE) {
            return 1;
        }
    }
    return 0;
}

TEST(ThreadPosts, PostsOfSeveralSendersArriveInOrderPerSender) {
    Recorder recorder;
    unsigned id = 0;
    HANDLE receiver = beginThread(&recordUntilQuit, &recorder, &id);
    SetEvent(recorder.go);  // the receiver reads while the senders post
    Sender senders[] = {{id, 0}, {id, 1}, {id, 2}};
    HANDLE threads[3];
    for (int i = 0; i < 3; ++i) {
        threads[i] = beginThread(&postSequence, &senders[i]);
        ASSERT_NE(threads[i], nullptr);
    }
    ASSERT_EQ(WaitForMultipleObjects(3, threads, TRUE, INFINITE), WAIT_OBJECT_0);
    for (HANDLE thread : threads) {
        DWORD code = 1;
        GetExitCodeThread(thread, &code);
        EXPECT_EQ(code, 0u);
        CloseHandle(thread);
    }
    PostThreadMessageW(id, WM_QUIT, 0, 0);
    WaitForSingleObject(receiver, INFINITE);
    CloseHandle(receiver);

    WPARAM next[3] = {0, 0, 0};
    for (std::size_t i = 0; i + 1 < recorder.messages.size(); ++i) {
        const MSG& msg = recorder.messages[i];
        ASSERT_GE(msg.lParam, 0);
        ASSERT_LT(msg.lParam, 3);
        EXPECT_EQ(msg.wParam, next[msg.lParam]) << "sender " << msg.lParam;
        next[msg.lParam] = msg.wParam + 1;
    }
    for (WPARAM count : next) {
        EXPECT_EQ(count, kPostsPerSender);
    }
}

unsigned endAtOnce(void*) {
    return 0;
}

TEST(ThreadPosts, PostsToEndedOrUnknownThreadsFailWithInvalidThreadId) {
    unsigned id = 0;
    HANDLE thread = beginThread(&endAtOnce, nullptr, &id);
    ASSERT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);
    for (DWORD target : {DWORD{id}, DWORD{0}, DWORD{0xFFFFFFF0}}) {
        SetLastError(0);
        EXPECT_EQ(PostThreadMessageW(target, kPing, 0, 0), FALSE);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_THREAD_ID);
    }
}

unsigned postToArgument(void* arg) {
    const auto target = static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(arg));
    return static_cast<unsigned>(PostThreadMessageW(target, kPong, 7, 0));
}

TEST(ThreadPosts, TheMainThreadTakesPostsFromOtherThreads) {
    drainQueue();
    HANDLE thread =
        beginThread(&postToArgument, reinterpret_cast<void*>(std::uintptr_t{GetCurrentThreadId()}));
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    MSG msg{};
    ASSERT_EQ(GetMessageW(&msg, nullptr, 0, 0), TRUE);
    EXPECT_EQ(msg.message, kPong);
    EXPECT_EQ(msg.wParam, 7u);
}

TEST(QuitMessage, GetMessageGivesZeroWithTheCodeAfterPendingPosts) {
    drainQueue();
    PostQuitMessage(3);
    PostThreadMessageW(GetCurrentThreadId(), kPing, 0, 0);
    MSG msg{};
    EXPECT_EQ(GetMessageW(&msg, nullptr, 0, 0), TRUE);
    EXPECT_EQ(msg.message, kPing);
    EXPECT_EQ(GetMessageW(&msg, nullptr, 0, 0), FALSE);
    EXPECT_EQ(msg.message, WM_QUIT);
    EXPECT_EQ(msg.wParam, 3u);
    // Taken once: the queue is empty again.
    EXPECT_EQ(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE), FALSE);
}

TEST(PeekMessage, NoRemoveLeavesTheMessageAndRemoveTakesIt) {
    drainQueue();
    MSG msg{};
    EXPECT_EQ(PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE), FALSE);
    PostThreadMessageW(GetCurrentThreadId(), kPing, 1, 0);
    EXPECT_EQ(PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE), TRUE);
    EXPECT_EQ(PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE), TRUE);
    EXPECT_EQ(msg.message, kPing);
    EXPECT_EQ(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE), TRUE);
    EXPECT_EQ(msg.wParam, 1u);
    EXPECT_EQ(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE), FALSE);
}

TEST(PeekMessage, RangeFilterSkipsOtherNumbersAndKeepsThem) {
    drainQueue();
    PostThreadMessageW(GetCurrentThreadId(), kPing, 1, 0);
    PostThreadMessageW(GetCurrentThreadId(), kPong, 2, 0);
    MSG msg{};
    ASSERT_EQ(PeekMessageW(&msg, nullptr, kPong, kPong, PM_REMOVE), TRUE);
    EXPECT_EQ(msg.wParam, 2u);
    EXPECT_EQ(PeekMessageW(&msg, nullptr, WM_USER, WM_USER, PM_REMOVE), FALSE);
    // A quit outside the filter's range is not seen either.
    PostQuitMessage(0);
    EXPECT_EQ(PeekMessageW(&msg, nullptr, WM_USER, WM_USER, PM_REMOVE), FALSE);
    ASSERT_EQ(GetMessageW(&msg, nullptr, 0, 0), TRUE);
    EXPECT_EQ(msg.message, kPing);
    EXPECT_EQ(GetMessageW(&msg, nullptr, 0, 0), FALSE);
}

TEST(GetMessage, FailsWithMinusOneOnUnusableArguments) {
    SetLastError(0);
    EXPECT_EQ(GetMessageW(nullptr, nullptr, 0, 0), -1);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    MSG msg{};
    SetLastError(0);
    EXPECT_EQ(GetMessageW(&msg, reinterpret_cast<HWND>(std::uintptr_t{0x1234}), 0, 0), -1);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

}  // namespace
}  // namespace plat
