// VELQProgressDialog over the platform's progress object, shown through a recording backend.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plat/windows.h"
#include "platform/recording_kinds.h"
#include "ui/VELQProgressDialog.h"

namespace {

using Texts = std::vector<std::string>;

std::string titleOf(plat::HWND window) {
    plat::WCHAR text[64] = {};
    plat::GetWindowTextW(window, text, 64);
    return plat::toUtf8(text);
}

bool isGuidText(const std::u16string& text) {
    if (text.size() != 38 || text.front() != u'{' || text.back() != u'}') {
        return false;
    }
    for (std::size_t i = 1; i < 37; ++i) {
        const char16_t c = text[i];
        const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
        if (dash ? c != u'-' : !((c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'F'))) {
            return false;
        }
    }
    return true;
}

TEST(ProgressDialogGuid, IsBracedUpperCaseAndNewEachTime) {
    const std::u16string first = VELQProgressDialog::generateGuidText();
    const std::u16string second = VELQProgressDialog::generateGuidText();
    EXPECT_TRUE(isGuidText(first)) << plat::toUtf8(first);
    EXPECT_TRUE(isGuidText(second)) << plat::toUtf8(second);
    EXPECT_NE(first, second);
}

TEST(ProgressDialog, TheTitleWaitsForTheStartAndTheWindowIsFoundUnderIt) {
    velq_test::RecordingScope scope;
    {
        VELQProgressDialog dialog;
        EXPECT_EQ(dialog.getWindow(), nullptr);
        EXPECT_TRUE(dialog.setTitle(u"Encrypt Files"));
        EXPECT_TRUE(dialog.setLine(1, u"Encryption is in progress..."));
        EXPECT_TRUE(dialog.setCancelMessage(u"Canceled..."));
        EXPECT_EQ(scope.kinds().events(),
                  (Texts{"opened", "line 1 compact Encryption is in progress...", "cancelmsg Canceled..."}))
            << "a topmost dialog keeps its title until start";
        EXPECT_TRUE(dialog.start());
        ASSERT_TRUE(plat::IsWindow(dialog.getWindow()));
        EXPECT_EQ(titleOf(dialog.getWindow()), "Encrypt Files")
            << "the person's title is back after the search";
        EXPECT_TRUE(dialog.stop());
        EXPECT_FALSE(plat::IsWindow(dialog.getWindow()));
    }
    EXPECT_EQ(scope.kinds().events(),
              (Texts{"opened", "line 1 compact Encryption is in progress...", "cancelmsg Canceled...",
                     "started", "title Encrypt Files", "stopped", "closed"}));
}

TEST(ProgressDialog, AValueAboveTheTotalIsClamped) {
    velq_test::RecordingScope scope;
    VELQProgressDialog dialog;
    EXPECT_TRUE(dialog.setProgress(120, 100));
    EXPECT_TRUE(dialog.setProgress(7, 100));
    const Texts events = scope.kinds().events();
    EXPECT_EQ(Texts(events.begin() + 1, events.end()), (Texts{"progress 100/100", "progress 7/100"}));
}

TEST(ProgressDialog, TwoDialogsFindTheirOwnWindows) {
    velq_test::RecordingScope scope;
    VELQProgressDialog first;
    VELQProgressDialog second;
    first.setTitle(u"Same title");
    second.setTitle(u"Same title");
    first.start();
    second.start();
    EXPECT_TRUE(plat::IsWindow(first.getWindow()));
    EXPECT_TRUE(plat::IsWindow(second.getWindow()));
    EXPECT_NE(first.getWindow(), second.getWindow()) << "each was searched under its own GUID";
    first.stop();
    second.stop();
}

TEST(ProgressDialog, CancelComesFromTheBackend) {
    velq_test::RecordingScope scope;
    VELQProgressDialog dialog;
    EXPECT_FALSE(dialog.hasUserCancelled());
    scope.kinds().bCancel = true;
    EXPECT_TRUE(dialog.hasUserCancelled());
}

}  // namespace
