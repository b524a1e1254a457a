// The error list of a batch: the real dialog over the platform, shown through a recording UI backend.
#include <gtest/gtest.h>

#include <thread>

#include "plat/dialogs.h"
#include "plat/strings.h"
#include "plat/sync.h"
#include "plat/threads.h"
#include "plat/windows.h"
#include "progress/progress_doubles.h"

namespace {

using progress_test::eventsStartingWith;
using progress_test::script;
using progress_test::world;
using Texts = std::vector<std::string>;

class ErrorListTest : public ::testing::Test {
protected:
    void SetUp() override { progress_test::reset(); }

    static Texts listEvents() {
        Texts kept;
        for (const progress_test::Event& event : progress_test::events()) {
            if (event.what.rfind("row", 0) == 0 || event.what == "shown" || event.what == "closed") {
                kept.push_back(event.what);
            }
        }
        return kept;
    }

    static std::string countLabel(plat::HWND dialog) {
        plat::WCHAR text[64] = {};
        plat::GetWindowTextW(plat::GetDlgItem(dialog, plat::IDC_ERROR_COUNT), text, 64);
        return plat::toUtf8(text);
    }
};

TEST_F(ErrorListTest, ThreeFailuresGiveThreeRowsInOrderWithTheCountThree) {
    VELQCryptFile engine({}, 1);
    for (const char16_t* row : {u"/a: one", u"/b: two", u"/c: three"}) {
        EXPECT_EQ(VELQCryptFileTestAccess::showMessageDialog(engine, row), plat::S_OK);
    }
    plat::HWND dialog = VELQCryptFileTestAccess::errorDialog(engine);
    EXPECT_EQ(countLabel(dialog), "Total errors: 3");
    EXPECT_TRUE(VELQCryptFileTestAccess::isErrorDialogVisible(engine));
    EXPECT_EQ(listEvents(), (Texts{"row /a: one #1", "shown", "row /b: two #2", "row /c: three #3"}));
    plat::WCHAR caption[32] = {};
    plat::GetWindowTextW(dialog, caption, 32);
    EXPECT_EQ(plat::toUtf8(caption), "Message");
    plat::PostMessageW(dialog, plat::WM_CLOSE, 0, 0);  // the close box
}

TEST_F(ErrorListTest, CopyGivesEveryRowEndedByALineFeed) {
    VELQCryptFile engine({}, 1);
    VELQCryptFileTestAccess::showMessageDialog(engine, u"/a: one");
    VELQCryptFileTestAccess::showMessageDialog(engine, u"/b: two");
    plat::HWND dialog = VELQCryptFileTestAccess::errorDialog(engine);
    plat::SendMessageW(dialog, plat::WM_COMMAND, plat::IDC_ERROR_COPY, 0);
    EXPECT_EQ(eventsStartingWith("clipboard"), (Texts{"clipboard /a: one\n/b: two\n"}));
    EXPECT_TRUE(VELQCryptFileTestAccess::isErrorDialogVisible(engine)) << "copying does not close the list";
    plat::SendMessageW(dialog, plat::WM_COMMAND, plat::IDC_ERROR_OK, 0);
}

TEST_F(ErrorListTest, OkAfterTheFirstRowThenASecondFailureStartsANewListCountingOne) {
    world().files[u"/a"] = script({}, {}, CRYPT_E_INVALID_FILE);
    world().files[u"/b"] = script({}, {}, CRYPT_E_INVALID_FILE);
    // The person presses OK before file two fails; its thread has ended by then.
    world().files[u"/b"].onStart = [](VELQCryptFile& engine) {
        plat::SendMessageW(VELQCryptFileTestAccess::errorDialog(engine), plat::WM_COMMAND, plat::IDC_ERROR_OK,
                           0);
        plat::WaitForSingleObject(VELQCryptFileTestAccess::errorThread(engine), plat::INFINITE);
    };
    VELQCryptFile engine({u"/a.lqvz", u"/b.lqvz"}, 1);
    world().files[u"/a.lqvz"] = world().files[u"/a"];
    world().files[u"/b.lqvz"] = world().files[u"/b"];
    EXPECT_EQ(engine.beginCryptFiles(CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(listEvents(), (Texts{"row /a.lqvz: The file is invalid! #1", "shown", "closed",
                                   "row /b.lqvz: The file is invalid! #1", "shown", "closed"}));
}

TEST_F(ErrorListTest, TheBatchReturnsOnlyAfterTheListIsClosed) {
    world().bCloseListAtStop = false;
    world().files[u"/a"] = script({100}, {}, CRYPT_E_WRITE);
    std::atomic<bool> returned{false};
    std::thread batch([&returned] {
        VELQCryptFile engine({u"/a"}, 1);
        engine.beginCryptFiles(CRYPT_MODE_ENCRYPT);
        returned = true;
    });
    // Once the progress has stopped the batch is at its end; it must still be waiting for the person.
    while (eventsStartingWith("stop").empty()) {
        plat::Sleep(5);
    }
    plat::HWND dialog = plat::FindWindowW(nullptr, u"Message");
    for (int i = 0; i < 20 && !returned; ++i) {
        plat::Sleep(10);
    }
    EXPECT_FALSE(returned) << "the batch returned while the list was still open";
    plat::PostMessageW(dialog, plat::WM_CLOSE, 0, 0);
    batch.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(listEvents().back(), "closed");
}

TEST_F(ErrorListTest, CancelWithinAFileGivesItsRowAndTouchesNoFurtherFile) {
    world().files[u"/a"] = script({50, 100}, {}, 0, true);
    world().files[u"/b"] = script({100}, {});
    VELQCryptFile engine({u"/a", u"/b"}, 1);
    EXPECT_EQ(engine.beginCryptFiles(CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(listEvents(), (Texts{"row /a: The operation is canceled. #1", "shown", "closed"}));
    EXPECT_EQ(
        eventsStartingWith("setLine 2 Starting, please wait...   "),
        (Texts{"setLine 2 Starting, please wait...   1 / 2", "setLine 2 Starting, please wait...   2 / 2"}));
}

TEST_F(ErrorListTest, ABatchWithoutFailuresNeverShowsTheList) {
    world().files[u"/a"] = script({100}, {100});
    VELQCryptFile engine({u"/a"}, 1);
    EXPECT_EQ(engine.beginCryptFiles(CRYPT_MODE_ENCRYPT), 0);
    EXPECT_FALSE(VELQCryptFileTestAccess::isErrorDialogVisible(engine));
    EXPECT_EQ(listEvents(), Texts{});
}

TEST_F(ErrorListTest, AnObjectGoneBeforeItsListThreadReachedItsLoopEndsIt) {
    for (int i = 0; i < 20; ++i) {
        VELQCryptFile engine({}, 1);
    }
    EXPECT_EQ(listEvents(), Texts{}) << "a hidden list ends without being shown";
}

}  // namespace
