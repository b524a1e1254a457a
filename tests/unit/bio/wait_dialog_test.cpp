// The wait window: its thread, what the backend is told, the close rules by code, the close handler.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "bio/FPResourceImage.h"
#include "bio/FPWaitDialog.h"
#include "bio/recording_ui.h"
#include "plat/messages.h"
#include "plat/windows.h"

namespace {

using velq_test::ScopedRecordingUi;
using Events = std::vector<std::string>;

struct CloseCount {
    std::atomic<int> calls{0};
    static int onClose(void* context) {
        static_cast<CloseCount*>(context)->calls.fetch_add(1);
        return 0;
    }
};

class WaitDialogTest : public ::testing::Test {
protected:
    void showWindow() {
        m_dialog.startThread(12, nullptr);
        m_dialog.setCloseCallback(&CloseCount::onClose, &m_closes);
        m_dialog.ShowWaitUI(false);
        ASSERT_NE(m_dialog.getWindow(), nullptr);
    }
    // Delivers a message as the platform delivers it from another thread: handled on the window thread
    // before this returns.
    void deliver(plat::UINT message, plat::WPARAM code) {
        plat::SendMessageW(m_dialog.getWindow(), message, code, 0);
    }

    ScopedRecordingUi m_recording;
    CloseCount m_closes;
    CFPWaitDialog m_dialog;
};

TEST_F(WaitDialogTest, ShowsTheFingerPictureAndClosesOnceWhenThePersonClosesIt) {
    showWindow();
    const plat::HWND window = m_dialog.getWindow();
    EXPECT_TRUE(plat::IsWindow(window));
    EXPECT_TRUE(m_dialog.isThreadRunning());

    ASSERT_TRUE(plat::PostMessageW(window, plat::WM_CLOSE, 0, 0));
    m_recording.ui().waitFor("close");
    m_dialog.closeAndWait();  // the window has gone: this only joins the thread

    EXPECT_FALSE(plat::IsWindow(window));
    EXPECT_EQ(m_dialog.getWindow(), nullptr);
    EXPECT_EQ(m_closes.calls.load(), 1);
    EXPECT_EQ(m_recording.ui().events(), (Events{"show", "image 509", "close"}));
}

TEST_F(WaitDialogTest, SecondStartOfARunningThreadChangesNothing) {
    showWindow();
    const plat::HWND window = m_dialog.getWindow();
    m_dialog.startThread(12, nullptr);
    EXPECT_EQ(m_dialog.getWindow(), window);
    m_dialog.closeAndWait();
    EXPECT_EQ(m_closes.calls.load(), 1);
}

struct CloseRule {
    plat::UINT message;
    plat::WPARAM code;
    bool closes;
};

class WaitDialogCloseRuleTest : public WaitDialogTest, public ::testing::WithParamInterface<CloseRule> {};

TEST_P(WaitDialogCloseRuleTest, SessionAndPowerCodesCloseTheWindowOrNot) {
    const CloseRule rule = GetParam();
    showWindow();
    const plat::HWND window = m_dialog.getWindow();
    deliver(rule.message, rule.code);
    EXPECT_EQ(plat::IsWindow(window) == plat::FALSE, rule.closes);
    if (!rule.closes) {
        EXPECT_EQ(m_closes.calls.load(), 0);
    }
    m_dialog.closeAndWait();
    EXPECT_EQ(m_closes.calls.load(), 1);
    EXPECT_EQ(m_recording.ui().events().back(), "close");
}

INSTANTIATE_TEST_SUITE_P(
    Codes, WaitDialogCloseRuleTest,
    ::testing::Values(
        CloseRule{plat::WM_WTSSESSION_CHANGE, 1, false}, CloseRule{plat::WM_WTSSESSION_CHANGE, 2, true},
        CloseRule{plat::WM_WTSSESSION_CHANGE, 3, false}, CloseRule{plat::WM_WTSSESSION_CHANGE, 4, false},
        CloseRule{plat::WM_WTSSESSION_CHANGE, 5, true}, CloseRule{plat::WM_WTSSESSION_CHANGE, 6, true},
        CloseRule{plat::WM_WTSSESSION_CHANGE, 7, true}, CloseRule{plat::WM_WTSSESSION_CHANGE, 8, true},
        CloseRule{plat::WM_WTSSESSION_CHANGE, 9, false}, CloseRule{plat::WM_POWERBROADCAST, 4, true},
        CloseRule{plat::WM_POWERBROADCAST, 5, true}, CloseRule{plat::WM_POWERBROADCAST, 6, true},
        CloseRule{plat::WM_POWERBROADCAST, 7, false}, CloseRule{plat::WM_POWERBROADCAST, 10, false},
        CloseRule{plat::WM_POWERBROADCAST, 18, true}));

TEST_F(WaitDialogTest, AHiddenWindowIsStillClosedByTheSessionRules) {
    showWindow();
    m_dialog.setImage(CFPWaitDialog::kPictureMatched);
    m_dialog.hide();
    const plat::HWND window = m_dialog.getWindow();
    EXPECT_TRUE(plat::IsWindow(window));
    deliver(plat::WM_WTSSESSION_CHANGE, 7);  // a lock
    EXPECT_FALSE(plat::IsWindow(window));
    m_dialog.closeAndWait();
    EXPECT_EQ(m_closes.calls.load(), 1);
    EXPECT_EQ(m_recording.ui().events(), (Events{"show", "image 509", "image 504", "hide", "close"}));
}

TEST_F(WaitDialogTest, PicturesChangeFromOtherThreadsAndAMissingOneKeepsTheOld) {
    showWindow();
    std::thread callback([this] {
        m_dialog.setImage(CFPWaitDialog::kPictureRefused);
        m_dialog.setImage(999);  // no such resource
        m_dialog.setImage(CFPWaitDialog::kPictureFinger);
    });
    callback.join();
    m_dialog.closeAndWait();
    EXPECT_EQ(m_recording.ui().events(), (Events{"show", "image 509", "image 505", "image 509", "close"}));
    // After the window's end a picture change reaches nobody.
    m_dialog.setImage(CFPWaitDialog::kPictureMatched);
    EXPECT_EQ(m_recording.ui().events().size(), 5u);
}

TEST_F(WaitDialogTest, PictureChangesRacingTheCloseNeverReachAGoneWindow) {
    showWindow();
    std::atomic<bool> stop{false};
    std::thread callback([&] {
        while (!stop.load()) {
            m_dialog.setImage(CFPWaitDialog::kPictureRefused);
            m_dialog.setImage(CFPWaitDialog::kPictureFinger);
        }
    });
    m_dialog.closeAndWait();
    stop.store(true);
    callback.join();
    const Events events = m_recording.ui().events();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back(), "close");
    EXPECT_EQ(m_closes.calls.load(), 1);
}

TEST(WaitDialogLifeTest, DestroyingAStandingWindowRunsNoCloseHandler) {
    ScopedRecordingUi recording;
    CloseCount closes;
    plat::HWND window = nullptr;
    {
        CFPWaitDialog dialog;
        dialog.startThread(12, nullptr);
        dialog.setCloseCallback(&CloseCount::onClose, &closes);
        dialog.ShowWaitUI(false);
        window = dialog.getWindow();
        ASSERT_TRUE(plat::IsWindow(window));
    }
    EXPECT_FALSE(plat::IsWindow(window));
    EXPECT_EQ(closes.calls.load(), 0);
    EXPECT_EQ(recording.ui().events().back(), "close");
}

TEST(WaitDialogLifeTest, AModalWaitReturnsOnceTheWindowHasGone) {
    ScopedRecordingUi recording;
    CloseCount closes;
    CFPWaitDialog dialog;
    dialog.startThread(12, nullptr);
    dialog.setCloseCallback(&CloseCount::onClose, &closes);
    const plat::HWND window = dialog.getWindow();
    std::thread person([&] {
        recording.ui().waitFor("show");
        plat::PostMessageW(window, plat::WM_CLOSE, 0, 0);
    });
    dialog.ShowWaitUI(true);
    person.join();
    EXPECT_FALSE(dialog.isThreadRunning());
    EXPECT_EQ(closes.calls.load(), 1);
}

TEST(ResourceImageTest, ThePicturesAre142By142PngsWithAlpha) {
    for (const plat::UINT id : {504u, 505u, 509u}) {
        CFPResourceImage image;
        ASSERT_TRUE(image.load(id, CFPResourceImage::kKindPng)) << id;
        const FPBitmap* bitmap = image.getBitmap();
        ASSERT_NE(bitmap, nullptr);
        EXPECT_EQ(bitmap->id, id);
        EXPECT_EQ(bitmap->width, 142);
        EXPECT_EQ(bitmap->height, 142);
        ASSERT_GT(bitmap->png.size(), 26u);
        EXPECT_EQ(bitmap->png[24], 8) << "bits per channel of " << id;
        EXPECT_EQ(bitmap->png[25], 6) << "colour type (RGBA) of " << id;
    }
}

TEST(ResourceImageTest, UnknownIdsAndOtherKindsLoadNothingAndReleaseWhatWasHeld) {
    CFPResourceImage image;
    ASSERT_TRUE(image.load(509, CFPResourceImage::kKindPng));
    EXPECT_FALSE(image.load(506, CFPResourceImage::kKindPng));  // present in the design, shown by nothing
    EXPECT_FALSE(image.isLoaded());
    EXPECT_EQ(image.getBitmap(), nullptr);
    EXPECT_FALSE(image.load(504, CFPResourceImage::kKindBitmap));
    EXPECT_FALSE(image.load(504, CFPResourceImage::kKindIcon));
    EXPECT_FALSE(image.load(504, 7));
    ASSERT_TRUE(image.load(504, CFPResourceImage::kKindPng));
    image.release();
    image.release();
    EXPECT_FALSE(image.isLoaded());
}

}  // namespace
