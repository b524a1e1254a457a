// Threads and their message queues through the Win32 forwards: a post to a thread succeeds as soon as its
// id is known, as the core's workers are posted to at once (Windows itself makes a queue only on a
// thread's first message call).
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "plat/errors.h"
#include "plat/language.h"
#include "plat/messages.h"
#include "plat/sync.h"
#include "plat/threads.h"

// After the layer's headers, whose names its macros would replace.
#include <windows.h>

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

// Every worker that shows texts sets its languages; what the layer keeps of them per thread must go with
// the thread without touching memory that is no longer the thread's (a free of a pointer read from the
// thread's freed storage damaged the heap, and a later allocation crashed far from the cause). Under Wine
// the run's heap checks report such a free, which fails the run; the heaps are validated here as well.
TEST(Win32Threads, ThreadsThatSetTheirLanguagesEndWithoutHarmingTheHeap) {
    for (int round = 0; round < 20; ++round) {
        std::thread worker(
            [] { SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, u"de-DE\0fr-FR\0", nullptr); });
        worker.join();
    }
    std::vector<::HANDLE> heaps(::GetProcessHeaps(0, nullptr));
    heaps.resize(::GetProcessHeaps(static_cast<::DWORD>(heaps.size()), heaps.data()));
    ASSERT_FALSE(heaps.empty());
    for (::HANDLE heap : heaps) {
        EXPECT_TRUE(::HeapValidate(heap, 0, nullptr)) << heap;
    }
}

TEST(Win32Threads, AThreadKeepsTheFirstSixteenOfALongLanguageList) {
    std::u16string list;
    for (const char16_t* name : {u"de-DE", u"fr-FR"}) {
        for (int copy = 0; copy < 10; ++copy) {
            list += name;
            list += u'\0';
        }
    }
    ULONG count = 0;
    ASSERT_TRUE(SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, list.c_str(), &count));
    EXPECT_EQ(count, 16u);
    const std::span<const LANGID> kept = threadPreferredUILanguages();
    ASSERT_EQ(kept.size(), 16u);
    EXPECT_EQ(kept.front(), LocaleNameToLCID(u"de-DE", 0) & 0xFFFF);
    EXPECT_EQ(kept.back(), LocaleNameToLCID(u"fr-FR", 0) & 0xFFFF);
    SetThreadPreferredUILanguages(0, nullptr, nullptr);
    EXPECT_TRUE(threadPreferredUILanguages().empty());
}

}  // namespace
}  // namespace plat
