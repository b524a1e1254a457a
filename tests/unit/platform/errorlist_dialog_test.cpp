// The error list's dialog (template 51) with its list control, window visibility, and the clipboard.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "plat/clipboard.h"
#include "plat/dialogs.h"
#include "plat/errors.h"
#include "plat/messages.h"
#include "plat/windows.h"
#include "recording_kinds.h"

namespace {

using namespace plat;
using Texts = std::vector<std::string>;

std::vector<UINT> g_seen;  // messages that reached the test's dialog procedure

LRESULT recordingProc(HWND, UINT message, WPARAM, LPARAM) {
    g_seen.push_back(message);
    return message == WM_INITDIALOG ? TRUE : FALSE;
}

LRESULT insertRow(HWND list, const char16_t* text, int index) {
    std::u16string row(text);
    LVITEMW item{};
    item.mask = LVIF_TEXT;
    item.iItem = index;
    item.pszText = row.data();
    return SendMessageW(list, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
}

// The row's text as far as the count that the list returns (a row that does not exist may leave the
// buffer as it was).
std::u16string rowText(HWND list, int row, int capacity) {
    std::vector<WCHAR> buffer(static_cast<std::size_t>(capacity), u'#');
    LVITEMW item{};
    item.pszText = buffer.data();
    item.cchTextMax = capacity;
    const LRESULT copied =
        SendMessageW(list, LVM_GETITEMTEXTW, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
    if (copied < 0 || copied >= capacity) {
        ADD_FAILURE() << "a count of " << copied << " for a buffer of " << capacity;
        return {};
    }
    const auto length = static_cast<std::size_t>(copied);
    if (length > 0) {
        EXPECT_EQ(buffer[length], u'\0') << "the text ends with its terminating zero";
    }
    return std::u16string(buffer.data(), length);
}

std::string windowText(HWND window) {
    WCHAR text[64] = {};
    GetWindowTextW(window, text, 64);
    return toUtf8(text);
}

class ErrorListDialog : public ::testing::Test {
protected:
    void SetUp() override { g_seen.clear(); }
    void TearDown() override { DestroyWindow(m_hDialog); }

    HWND create() {
        m_hDialog = CreateDialogParamW(nullptr, IDD_ERROR_LIST, nullptr, recordingProc, 7);
        return m_hDialog;
    }

    velq_test::RecordingScope m_scope;
    HWND m_hDialog = nullptr;
};

TEST_F(ErrorListDialog, OnlyTemplate51Exists) {
    SetLastError(0);
    EXPECT_EQ(CreateDialogParamW(nullptr, 52, nullptr, recordingProc, 0), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
}

TEST_F(ErrorListDialog, IsCreatedHiddenWithItsControlsAndInitialised) {
    HWND dialog = create();
    ASSERT_TRUE(IsWindow(dialog));
    EXPECT_FALSE(IsWindowVisible(dialog));
    EXPECT_EQ(g_seen, std::vector<UINT>{WM_INITDIALOG});
    EXPECT_EQ(windowText(dialog), "Error List");
    EXPECT_EQ(windowText(GetDlgItem(dialog, IDC_ERROR_OK)), "OK");
    EXPECT_EQ(windowText(GetDlgItem(dialog, IDC_ERROR_COPY)), "Copy to clipboard");
    EXPECT_TRUE(IsWindow(GetDlgItem(dialog, IDC_ERROR_LIST)));
    EXPECT_TRUE(IsWindow(GetDlgItem(dialog, IDC_ERROR_COUNT)));
    SetLastError(0);
    EXPECT_EQ(GetDlgItem(dialog, 999), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_CONTROL_ID_NOT_FOUND);
}

TEST_F(ErrorListDialog, RowsKeepTheirPlacesAndAreReadBackCut) {
    HWND list = GetDlgItem(create(), IDC_ERROR_LIST);
    EXPECT_EQ(insertRow(list, u"first", 0), 0);
    EXPECT_EQ(insertRow(list, u"third", 5), 1) << "past the end appends";
    EXPECT_EQ(insertRow(list, u"second", 1), 1);
    EXPECT_EQ(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0), 3);
    EXPECT_EQ(rowText(list, 1, 64), u"second");
    EXPECT_EQ(rowText(list, 2, 4), u"thi") << "cut to the buffer, with its terminating zero";
    EXPECT_EQ(rowText(list, 9, 8), u"");
    EXPECT_EQ(m_scope.kinds().events(), (Texts{"row first #1", "row third #2", "row second #3"}));
}

TEST_F(ErrorListDialog, TheBackendHearsOfShowingOnceAndOfTheEndOfAShownList) {
    HWND dialog = create();
    EXPECT_FALSE(ShowWindow(dialog, SW_RESTORE));
    EXPECT_TRUE(IsWindowVisible(dialog));
    EXPECT_TRUE(ShowWindow(dialog, SW_RESTORE)) << "it was visible before";
    DestroyWindow(dialog);
    EXPECT_FALSE(IsWindowVisible(dialog));
    EXPECT_EQ(m_scope.kinds().events(), (Texts{"shown", "list closed"}));
}

TEST_F(ErrorListDialog, AListNeverShownEndsUnheard) {
    DestroyWindow(create());
    EXPECT_EQ(m_scope.kinds().events(), Texts{});
}

TEST_F(ErrorListDialog, ClosingIsLeftToTheDialogProcedure) {
    HWND dialog = create();
    SendMessageW(dialog, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsWindow(dialog)) << "the default handling of WM_CLOSE does nothing";
    EXPECT_EQ(g_seen.back(), WM_CLOSE);
}

TEST(WindowPlacement, NeedsALiveWindow) {
    SetLastError(0);
    EXPECT_FALSE(SetWindowPos(nullptr, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_FALSE(ShowWindow(nullptr, SW_SHOW));
    EXPECT_FALSE(IsWindowVisible(nullptr));
    EXPECT_NE(LoadIconW(nullptr, 13), nullptr);
    EXPECT_EQ(LoadIconW(nullptr, 14), nullptr);
}

bool setClipboardText(const std::u16string& text) {
    const std::size_t bytes = (text.size() + 1) * sizeof(WCHAR);
    HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, bytes);
    std::memcpy(GlobalLock(memory), text.c_str(), bytes);
    GlobalUnlock(memory);
    const bool set = SetClipboardData(CF_UNICODETEXT, memory) != nullptr;
    if (!set) {
        GlobalFree(memory);
    }
    return set;
}

TEST(Clipboard, TheTextReachesTheBackend) {
    velq_test::RecordingScope scope;
    ASSERT_TRUE(OpenClipboard(nullptr));
    EXPECT_TRUE(EmptyClipboard());
    EXPECT_TRUE(setClipboardText(u"/a: one\n/b: two\n"));
    EXPECT_TRUE(CloseClipboard());
    EXPECT_EQ(scope.kinds().events(), (Texts{"clipboard /a: one\n/b: two\n"}));
}

TEST(Clipboard, ASetWithoutOpeningItFailsUnheard) {
    velq_test::RecordingScope scope;
    SetLastError(0);
    EXPECT_FALSE(setClipboardText(u"x"));
    EXPECT_EQ(GetLastError(), ERROR_CLIPBOARD_NOT_OPEN);
    EXPECT_EQ(scope.kinds().events(), Texts{});
}

TEST(Clipboard, OnlyOneThreadHoldsItAtATime) {
    ASSERT_TRUE(OpenClipboard(nullptr));
    bool openedByOther = true;
    std::thread other([&openedByOther] { openedByOther = OpenClipboard(nullptr) != FALSE; });
    other.join();
    EXPECT_FALSE(openedByOther) << "another thread holds it";
    CloseClipboard();
    std::thread after([&openedByOther] {
        openedByOther = OpenClipboard(nullptr) != FALSE;
        CloseClipboard();
    });
    after.join();
    EXPECT_TRUE(openedByOther);
}

}  // namespace
