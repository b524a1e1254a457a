// The platform's progress dialog object: its creation, its window found by title, what the backend is
// told, the time-left estimate and fresh GUIDs.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "plat/progress.h"
#include "plat/windows.h"
#include "recording_kinds.h"

namespace {

using namespace plat;
using Texts = std::vector<std::string>;

IProgressDialog* createProgress() {
    void* object = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, IID_IProgressDialog, &object),
              S_OK);
    return static_cast<IProgressDialog*>(object);
}

TEST(ProgressObjectCreation, OnlyTheProgressClassAndInterfaceAreKnown) {
    const GUID other = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    void* object = &object;
    EXPECT_EQ(CoCreateInstance(other, nullptr, CLSCTX_ALL, IID_IProgressDialog, &object),
              REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr) << "the out pointer is cleared on failure";
    EXPECT_EQ(CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, other, &object), E_NOINTERFACE);
    EXPECT_EQ(CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, IID_IProgressDialog, nullptr),
              E_POINTER);
}

TEST(ProgressObjectWindow, RunningDialogIsFoundByItsTitleUntilStopped) {
    velq_test::RecordingScope scope;
    IProgressDialog* dialog = createProgress();
    ASSERT_NE(dialog, nullptr);
    dialog->SetTitle(u"{progress-object-test}");
    EXPECT_EQ(FindWindowW(nullptr, u"{progress-object-test}"), nullptr) << "no window before the start";
    ASSERT_EQ(dialog->StartProgressDialog(nullptr, nullptr, PROGDLG_AUTOTIME, nullptr), S_OK);
    EXPECT_EQ(dialog->StartProgressDialog(nullptr, nullptr, PROGDLG_AUTOTIME, nullptr), E_UNEXPECTED);
    HWND window = FindWindowW(nullptr, u"{progress-object-test}");
    EXPECT_TRUE(IsWindow(window));
    dialog->SetTitle(u"Renamed");
    EXPECT_EQ(FindWindowW(nullptr, u"Renamed"), window) << "the title follows SetTitle while it runs";
    EXPECT_EQ(dialog->StopProgressDialog(), S_OK);
    EXPECT_FALSE(IsWindow(window));
    EXPECT_EQ(dialog->Release(), 0U);
}

TEST(ProgressObjectWindow, TwoDialogsHaveTwoWindows) {
    velq_test::RecordingScope scope;
    IProgressDialog* first = createProgress();
    IProgressDialog* second = createProgress();
    first->SetTitle(u"first progress");
    second->SetTitle(u"second progress");
    first->StartProgressDialog(nullptr, nullptr, 0, nullptr);
    second->StartProgressDialog(nullptr, nullptr, 0, nullptr);
    HWND one = FindWindowW(nullptr, u"first progress");
    HWND two = FindWindowW(nullptr, u"second progress");
    EXPECT_TRUE(IsWindow(one));
    EXPECT_TRUE(IsWindow(two));
    EXPECT_NE(one, two);
    first->Release();
    second->Release();
}

TEST(ProgressObjectBackend, TellsTheBackendEachChangeAndItsEndOnce) {
    velq_test::RecordingScope scope;
    IProgressDialog* dialog = createProgress();
    dialog->SetTitle(u"Encrypt Files");
    dialog->SetLine(2, u"/a/b.txt", TRUE, nullptr);
    EXPECT_EQ(dialog->SetLine(0, u"x", FALSE, nullptr), E_INVALIDARG);
    EXPECT_EQ(dialog->SetLine(4, u"x", FALSE, nullptr), E_INVALIDARG);
    dialog->SetCancelMsg(u"Canceled...", nullptr);
    dialog->StartProgressDialog(nullptr, nullptr, 0, nullptr);
    dialog->SetProgress(5, 10);
    dialog->SetProgress64(0x300000000ULL, 0x400000000ULL);
    dialog->StopProgressDialog();
    dialog->Release();
    EXPECT_EQ(scope.kinds().events(),
              (Texts{"opened", "title Encrypt Files", "line 2 compact /a/b.txt", "cancelmsg Canceled...",
                     "started", "progress 5/10", "progress 1610612736/2147483648", "stopped", "closed"}));
}

TEST(ProgressObjectBackend, AGuidTitleIsNotShownButNamesTheWindow) {
    velq_test::RecordingScope scope;
    IProgressDialog* dialog = createProgress();
    dialog->StartProgressDialog(nullptr, nullptr, 0, nullptr);
    const char16_t guid[] = u"{0123ABCD-4567-89EF-0123-456789ABCDEF}";
    dialog->SetTitle(guid);
    EXPECT_TRUE(IsWindow(FindWindowW(nullptr, guid)));
    dialog->SetTitle(u"Decrypt Files");
    dialog->Release();
    EXPECT_EQ(scope.kinds().events(), (Texts{"opened", "started", "title Decrypt Files", "closed"}))
        << "a dialog released without a stop is closed once";
}

TEST(ProgressObjectBackend, CancelIsWhatTheBackendSays) {
    velq_test::RecordingScope scope;
    IProgressDialog* dialog = createProgress();
    EXPECT_EQ(dialog->HasUserCancelled(), FALSE);
    scope.kinds().bCancel = true;
    EXPECT_NE(dialog->HasUserCancelled(), FALSE);
    dialog->Release();
}

TEST(ProgressObjectBackend, TwoThreadsMayCallAtOnce) {
    velq_test::RecordingScope scope;
    IProgressDialog* dialog = createProgress();
    dialog->StartProgressDialog(nullptr, nullptr, PROGDLG_AUTOTIME, nullptr);
    std::thread other([dialog] {
        for (DWORD i = 0; i < 200; ++i) {
            dialog->SetProgress(i, 200);
        }
    });
    for (DWORD i = 0; i < 200; ++i) {
        dialog->SetLine(2, u"line", TRUE, nullptr);
        dialog->HasUserCancelled();
    }
    other.join();
    dialog->StopProgressDialog();
    dialog->Release();
    std::size_t lines = 0;
    std::size_t values = 0;
    for (const std::string& event : scope.kinds().events()) {
        lines += event.rfind("line ", 0) == 0 ? 1 : 0;
        values += event.rfind("progress ", 0) == 0 ? 1 : 0;
    }
    EXPECT_EQ(lines, 200U);
    EXPECT_EQ(values, 200U);
}

TEST(TimeLeftEstimate, NothingBeforeTwoSecondsOrOnePercent) {
    DWORD seconds = 0;
    EXPECT_FALSE(estimateSecondsLeft(1999, 50, 100, seconds));
    EXPECT_FALSE(estimateSecondsLeft(60000, 0, 100, seconds));
    EXPECT_FALSE(estimateSecondsLeft(60000, 9, 1000, seconds)) << "below one percent";
    EXPECT_FALSE(estimateSecondsLeft(60000, 5, 0, seconds));
}

TEST(TimeLeftEstimate, ScalesTheTimeSoFarByTheWorkLeft) {
    DWORD seconds = 0;
    ASSERT_TRUE(estimateSecondsLeft(10000, 25, 100, seconds));
    EXPECT_EQ(seconds, 30U);
    ASSERT_TRUE(estimateSecondsLeft(2000, 3, 4, seconds));
    EXPECT_EQ(seconds, 1U) << "a part of a second left counts as one";
    ASSERT_TRUE(estimateSecondsLeft(5000, 120, 100, seconds));
    EXPECT_EQ(seconds, 0U) << "done beyond the total leaves nothing";
}

TEST(FreshGuid, EachIsNewAndOfVersionFour) {
    EXPECT_EQ(CoCreateGuid(nullptr), E_POINTER);
    std::set<std::vector<unsigned>> seen;
    for (int i = 0; i < 50; ++i) {
        GUID guid{};
        ASSERT_EQ(CoCreateGuid(&guid), S_OK);
        EXPECT_EQ(guid.Data3 >> 12, 4U);
        EXPECT_EQ(guid.Data4[0] & 0xC0U, 0x80U);
        seen.insert({guid.Data1, guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[7]});
    }
    EXPECT_EQ(seen.size(), 50U);
}

}  // namespace
