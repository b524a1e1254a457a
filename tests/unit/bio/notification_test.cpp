// The notification lock and the client registration: one client call at a time, a client that may call
// back into the engine, a client cleared while a notification waits; and the error texts of the log.
#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "bio/AsynBioOperation.h"
#include "bio/FPThreadEvent.h"
#include "plat/sync.h"
#include "plat/threads.h"

using namespace plat;

namespace {

TEST(FPThreadEventTest, TheHolderTakesItAgainAndOthersWaitUntilItIsFree) {
    CFPThreadEvent lock;
    ASSERT_TRUE(lock.createMutex());
    ASSERT_TRUE(lock.Lock(0, INFINITE));
    EXPECT_TRUE(lock.Lock(0, 0)) << "the owner takes it again without a wait";
    bool othersGotIt = true;
    std::thread([&] { othersGotIt = lock.Lock(0, 0); }).join();
    EXPECT_FALSE(othersGotIt) << "held by this thread";
    EXPECT_NE(lock.Unlock(), FALSE);
    std::thread([&] { othersGotIt = lock.Lock(0, 0); }).join();
    EXPECT_FALSE(othersGotIt) << "still held once: one Unlock per Lock";
    EXPECT_NE(lock.Unlock(), FALSE);
    std::thread([&] {
        othersGotIt = lock.Lock(0, 0);
        if (othersGotIt) {
            lock.Unlock();
        }
    }).join();
    EXPECT_TRUE(othersGotIt);
    EXPECT_EQ(lock.Unlock(), FALSE) << "a thread that does not hold it cannot release it";
}

TEST(FPThreadEventTest, WithoutAMutexLockMakesOneAndUnlockHasNothingToDo) {
    CFPThreadEvent lock;
    EXPECT_NE(lock.Unlock(), FALSE);
    ASSERT_TRUE(lock.Lock(0, INFINITE));
    EXPECT_NE(lock.Unlock(), FALSE);
    lock.closeMutex();
    EXPECT_NE(lock.Unlock(), FALSE);
    EXPECT_TRUE(lock.createMutex());
    EXPECT_TRUE(lock.createMutex()) << "a second make replaces the first";
}

TEST(FPThreadEventTest, TwoLocksAreTwoMutexes) {
    CFPThreadEvent first;
    CFPThreadEvent second;
    ASSERT_TRUE(first.Lock(0, INFINITE));
    bool gotSecond = false;
    std::thread([&] {
        gotSecond = second.Lock(0, 0);
        if (gotSecond) {
            second.Unlock();
        }
    }).join();
    EXPECT_TRUE(gotSecond) << "the names are unique, so the mutexes are not shared";
    first.Unlock();
}

// A client that counts its calls and, on its first, lets a second notification start and then clears
// the registration before it returns.
struct Gate {
    std::atomic<int> calls{0};
    std::atomic<bool> secondStarted{false};
    AsynBioOperation* op = nullptr;
    std::thread second;
};

HRESULT clearingClient(int, AsynBioOperation* op, void* context) {
    auto* gate = static_cast<Gate*>(context);
    if (gate->calls.fetch_add(1) == 0) {
        gate->second = std::thread([gate] {
            gate->secondStarted = true;
            gate->op->NotifyClient(OP_TYPE_VERIFYUSER_END);
        });
        while (!gate->secondStarted) {
            std::this_thread::yield();
        }
        // The second notification has seen a client and now waits for the lock, or soon will.
        Sleep(20);
        op->setClient(nullptr, nullptr);
    }
    return 0;
}

TEST(NotifyClientTest, AClientClearedWhileANotificationWaitsIsNotCalled) {
    AsynBioOperation op;
    Gate gate;
    gate.op = &op;
    op.setClient(clearingClient, &gate);
    op.NotifyClient(OP_TYPE_VERIFYUSER_END);
    gate.second.join();
    EXPECT_EQ(gate.calls.load(), 1);
}

// A client that calls back into the engine from inside its notification.
HRESULT reenteringClient(int type, AsynBioOperation* op, void* context) {
    auto* seen = static_cast<std::atomic<int>*>(context);
    seen->fetch_add(1);
    if (type == OP_TYPE_VERIFYUSER_END) {
        op->NotifyClient(OP_TYPE_NULL);  // takes the lock again on the same thread
        op->setThreadAutoEnd();          // clears the client: the notification after this finds none
        op->NotifyClient(OP_TYPE_NULL);
    }
    return 0;
}

TEST(NotifyClientTest, AClientMayCallBackIntoTheEngineOnItsOwnThread) {
    AsynBioOperation op;
    std::atomic<int> seen{0};
    op.setClient(reenteringClient, &seen);
    op.NotifyClient(OP_TYPE_VERIFYUSER_END);
    EXPECT_EQ(seen.load(), 2);
    op.NotifyClient(OP_TYPE_VERIFYUSER_END);
    EXPECT_EQ(seen.load(), 2) << "setThreadAutoEnd cleared the client";
}

TEST(NotifyClientTest, NotificationsOfManyThreadsNeverOverlap) {
    struct Overlap {
        std::atomic<int> inside{0};
        std::atomic<int> most{0};
        std::atomic<int> calls{0};
    } overlap;
    AsynBioOperation op;
    op.setClient(
        [](int, AsynBioOperation*, void* context) -> HRESULT {
            auto* seen = static_cast<Overlap*>(context);
            const int now = seen->inside.fetch_add(1) + 1;
            int most = seen->most.load();
            while (now > most && !seen->most.compare_exchange_weak(most, now)) {
            }
            std::this_thread::yield();
            seen->inside.fetch_sub(1);
            seen->calls.fetch_add(1);
            return 0;
        },
        &overlap);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 50; ++n) {
                op.NotifyClient(OP_TYPE_IMAGE);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(overlap.calls.load(), 200);
    EXPECT_EQ(overlap.most.load(), 1);
}

TEST(IdentifyCallbackTest, WithoutAContextOrAListOfUsersNothingHappens) {
    AsynBioOperation::IdentifyCallback(nullptr, WINBIO_E_UNKNOWN_ID, 1, nullptr, 0, 0);
    AsynBioOperation op;
    std::atomic<int> seen{0};
    op.setClient(
        [](int, AsynBioOperation*, void* context) -> HRESULT {
            static_cast<std::atomic<int>*>(context)->fetch_add(1);
            return 0;
        },
        &seen);
    // Before a verification worker has listed the users, a sample is dropped untouched.
    AsynBioOperation::IdentifyCallback(&op, WINBIO_E_UNKNOWN_ID, 1, nullptr, 0, WINBIO_FP_TOO_FAST);
    EXPECT_EQ(seen.load(), 0);
    EXPECT_EQ(op.getNotifyData(), nullptr);
    EXPECT_EQ(op.getResult(), 0);
}

TEST(WinBioErrorsTest, EachListedCodeHasItsTextAndEveryOtherFailureTheUnknownOne) {
    EXPECT_EQ(std::u16string(AsynBioOperation::winBioErrorText(WINBIO_E_UNKNOWN_ID)),
              u"The biometric sample doesn't match any known identity.");
    const std::u16string busy = AsynBioOperation::winBioErrorText(WINBIO_E_ENROLLMENT_IN_PROGRESS);
    EXPECT_EQ(busy,
              u"An enrollment transaction could not be started because another enrollment is already in "
              u"progress.");
    EXPECT_EQ(std::u16string(AsynBioOperation::winBioErrorText(WINBIO_E_ADAPTER_INTEGRITY_FAILURE)),
              u"The adapter binary did not pass its integrity check.");
    EXPECT_EQ(std::u16string(AsynBioOperation::winBioErrorText(winbioCode(0x80098001))),
              u"Windows Biometric Service doesn't support the specified biometric factor.");
    const std::u16string unknown = u"WinBio Unknown Errors";
    for (ULONG code : {0x8009800Au, 0x80098017u, 0x80098023u, 0x80098028u, 0x80098029u, 0x8009802Eu,
                       0x8009802Fu, 0x8009803Eu, 0x80004005u, 0x80098000u}) {
        EXPECT_EQ(std::u16string(AsynBioOperation::winBioErrorText(winbioCode(code))), unknown)
            << std::hex << code;
    }
    // Every code from 0x80098001 to 0x8009803D but the seven gaps has a text of its own, all different.
    std::vector<std::u16string> texts;
    for (ULONG code = 0x80098001u; code <= 0x8009803Du; ++code) {
        const std::u16string text = AsynBioOperation::winBioErrorText(winbioCode(code));
        if (text != unknown) {
            EXPECT_EQ(std::find(texts.begin(), texts.end(), text), texts.end()) << std::hex << code;
            texts.push_back(text);
        }
    }
    EXPECT_EQ(texts.size(), 61u - 7u);
}

TEST(WinBioErrorsTest, OnlyFailuresAreLogged) {
    EXPECT_EQ(AsynBioOperation::LogWinBioErrors(0), 0);
    EXPECT_EQ(AsynBioOperation::LogWinBioErrors(WINBIO_I_MORE_DATA), 0);
    EXPECT_EQ(AsynBioOperation::LogWinBioErrors(WINBIO_E_CANCELED), WINBIO_E_CANCELED);
    EXPECT_EQ(AsynBioOperation::LogWinBioErrors(winbioCode(0x8009802E)), winbioCode(0x8009802E));
}

}  // namespace
