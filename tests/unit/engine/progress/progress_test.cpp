// The progress thread and the percent arithmetic of a batch, over a recording progress dialog.
#include <gtest/gtest.h>

#include <algorithm>

#include "plat/threads.h"
#include "progress/progress_doubles.h"

namespace {

using progress_test::eventsStartingWith;
using progress_test::script;
using progress_test::world;
using Texts = std::vector<std::string>;

class ProgressTest : public ::testing::Test {
protected:
    void SetUp() override { progress_test::reset(); }

    // setProgress calls made by the worker (this thread) and by the progress thread, in order.
    static Texts barOf(bool worker) {
        Texts kept;
        for (const progress_test::Event& event : progress_test::events()) {
            if (event.what.rfind("setProgress", 0) == 0 &&
                (event.thread == progress_test::thisThread()) == worker) {
                kept.push_back(event.what.substr(12));
            }
        }
        return kept;
    }

    static int run(const std::vector<std::u16string>& paths, int mode) {
        VELQCryptFile engine(paths, 1);
        return engine.beginCryptFiles(mode);
    }
};

TEST_F(ProgressTest, OneEncryptedFileReachesHalfAfterItsPassAndFullAfterItsProof) {
    world().files[u"/a"] = script({25, 50, 100}, {50, 100});
    EXPECT_EQ(run({u"/a"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(barOf(true), (Texts{"12/100", "25/100", "50/100", "75/100", "100/100"}));
    // The thread shows the percent of the running pass.
    EXPECT_EQ(barOf(false), (Texts{"25/100", "50/100", "100/100", "50/100", "100/100"}));
}

TEST_F(ProgressTest, ThreeDecryptedFilesWithTheSecondFailingStayBelowFull) {
    world().files[u"/a.lqvz"] = script({100}, {});
    world().files[u"/b.lqvz"] = script({}, {}, CRYPT_E_DECRYPT);
    world().files[u"/c.lqvz"] = script({50, 100}, {});
    EXPECT_EQ(run({u"/a.lqvz", u"/b.lqvz", u"/c.lqvz"}, CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(barOf(true), (Texts{"33/100", "50/100", "66/100"}));
    EXPECT_EQ(barOf(false), barOf(true)) << "in a decrypt batch both values are the mean";
}

TEST_F(ProgressTest, TwoEncryptedFilesMoveEvenlyAcrossBothPasses) {
    world().files[u"/a"] = script({100}, {100});
    world().files[u"/b"] = script({100}, {100});
    EXPECT_EQ(run({u"/a", u"/b"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(barOf(true), (Texts{"25/100", "50/100", "75/100", "100/100"}));
}

TEST_F(ProgressTest, ThePercentOfTheThreadIsPostedOnlyWhenItChanges) {
    world().files[u"/a"] = script({50, 50, 100}, {100, 100});
    EXPECT_EQ(run({u"/a"}, CRYPT_MODE_ENCRYPT), 0);
    // The worker sets its own bar at every block; the thread is told only of a new value.
    EXPECT_EQ(barOf(true), (Texts{"25/100", "25/100", "50/100", "100/100", "100/100"}));
    EXPECT_EQ(barOf(false), (Texts{"50/100", "100/100"}));
}

TEST_F(ProgressTest, NoRecordsGiveZeroOnBothRoads) {
    VELQCryptFile engine({}, 1);
    ASSERT_EQ(VELQCryptFileTestAccess::startProgressBar(engine, CRYPT_MODE_DECRYPT), 0);
    VELQCryptFileTestAccess::updateProgress(engine);
    VELQCryptFileTestAccess::stopProgressBar(engine);
    EXPECT_EQ(barOf(true), (Texts{"0/100"}));
    EXPECT_EQ(barOf(false), (Texts{"0/100"}));
}

TEST_F(ProgressTest, WithoutAThreadAnUpdateDoesNothing) {
    VELQCryptFile engine({u"/a"}, 1);
    VELQCryptFileTestAccess::updateProgress(engine);
    EXPECT_TRUE(progress_test::events().empty());
}

TEST_F(ProgressTest, TheThreadSetsTheTextsThenStartsAndStopsLast) {
    world().files[u"/a"] = script({100}, {100});
    EXPECT_EQ(run({u"/a"}, CRYPT_MODE_ENCRYPT), 0);
    Texts onThread;
    unsigned long progressThread = 0;
    for (const progress_test::Event& event : progress_test::events()) {
        if (event.thread != progress_test::thisThread()) {
            progressThread = progressThread == 0 ? event.thread : progressThread;
            EXPECT_EQ(event.thread, progressThread) << "one progress thread: " << event.what;
            onThread.push_back(event.what);
        }
    }
    ASSERT_GE(onThread.size(), 7U);
    EXPECT_EQ(Texts(onThread.begin(), onThread.begin() + 6),
              (Texts{"setTitle Encrypt Files", "setLine 1 Encryption is in progress...",
                     "setLine 2 Starting, please wait...", "setLine 3 Calculating the remaining time...",
                     "setCancelMessage Canceled...", "start"}));
    EXPECT_EQ(onThread.back(), "stop");
    // The worker's count line, with three blanks before the count of records.
    EXPECT_EQ(eventsStartingWith("setLine 2 Starting, please wait...   "),
              (Texts{"setLine 2 Starting, please wait...   1 / 1"}));
}

TEST_F(ProgressTest, DecryptBatchShowsTheDecryptTexts) {
    EXPECT_EQ(run({u"/a.lqvz"}, CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(eventsStartingWith("setTitle"), (Texts{"setTitle Decrypt Files"}));
    EXPECT_EQ(eventsStartingWith("setLine 1"), (Texts{"setLine 1 Decryption is in progress..."}));
}

TEST_F(ProgressTest, AWindowNotFoundGetsNoUpdatesAndNoStopThroughTheThread) {
    world().bWindowFound = false;
    world().files[u"/a.lqvz"] = script({50, 100}, {});
    EXPECT_EQ(run({u"/a.lqvz"}, CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(barOf(false), Texts{});
    EXPECT_EQ(barOf(true), (Texts{"50/100", "100/100"})) << "the worker's direct calls go on";
    EXPECT_TRUE(eventsStartingWith("stop").empty());
}

TEST_F(ProgressTest, TheThreadHasEndedWhenTheBarIsStopped) {
    VELQCryptFile engine({u"/a"}, 1);
    ASSERT_EQ(VELQCryptFileTestAccess::startProgressBar(engine, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_NE(VELQCryptFileTestAccess::progressThreadId(engine), 0U);
    VELQCryptFileTestAccess::stopProgressBar(engine);
    EXPECT_EQ(VELQCryptFileTestAccess::progressThread(engine), plat::INVALID_HANDLE_VALUE);
    // Nothing of the thread comes after the stop: its last act was the stop itself.
    EXPECT_EQ(progress_test::events().back().what, "stop");
}

TEST_F(ProgressTest, CancelBetweenFilesLeavesTheRestUntouchedWithoutARow) {
    world().files[u"/a"] = script({100}, {100}, 0, false, true);
    world().files[u"/b"] = script({100}, {100});
    EXPECT_EQ(run({u"/a", u"/b"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(
        eventsStartingWith("setLine 2 Starting, please wait...   "),
        (Texts{"setLine 2 Starting, please wait...   1 / 2", "setLine 2 Starting, please wait...   2 / 2"}));
    EXPECT_EQ(barOf(true), (Texts{"25/100", "50/100"})) << "file two was not worked";
    EXPECT_TRUE(eventsStartingWith("row").empty());
}

}  // namespace
