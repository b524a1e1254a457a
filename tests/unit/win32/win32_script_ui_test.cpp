// The Windows program under another UI than the system's (the scripted one): the progress dialog and the
// search are that UI's own, and the error list (the system's dialog 51) and the clipboard tell it what a
// person would see, as on every system.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "plat/clipboard.h"
#include "plat/dialogs.h"
#include "plat/progress.h"
#include "plat/shell.h"
#include "plat/strings.h"
#include "plat/ui.h"
#include "plat/windows.h"
#include "platform/recording_kinds.h"
#include "ui/win32_backend.h"
#include "ui/win32_resource_name.h"
#include "win32_ui_support.h"
// After the layer's headers (win32_ui_support.h brings <windows.h>).
#include <commctrl.h>

namespace plat {
namespace {

using velq_test::RecordingScope;

IProgressDialog* newProgressDialog() {
    void* object = nullptr;
    EXPECT_EQ(plat::CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, IID_IProgressDialog, &object),
              S_OK);
    return static_cast<IProgressDialog*>(object);
}

TEST(ScriptedUiProgress, IsTheBackendsOwnWithAWindowTheCoreFindsByItsTitle) {
    SKIP_WITHOUT_WINDOWS();
    RecordingScope recording;
    IProgressDialog* dialog = newProgressDialog();
    ASSERT_NE(dialog, nullptr);
    ASSERT_EQ(dialog->StartProgressDialog(nullptr, nullptr, PROGDLG_AUTOTIME, nullptr), S_OK);
    ASSERT_EQ(dialog->SetTitle(u"velq scripted progress"), S_OK);
    EXPECT_NE(::FindWindowW(nullptr, L"velq scripted progress"), nullptr);
    dialog->SetLine(1, u"Encryption is in progress...", FALSE, nullptr);
    dialog->SetProgress(5, 10);
    EXPECT_FALSE(dialog->HasUserCancelled());
    recording.kinds().bCancel = true;
    EXPECT_TRUE(dialog->HasUserCancelled());
    dialog->StopProgressDialog();
    EXPECT_EQ(dialog->Release(), 0u);
    EXPECT_EQ(recording.kinds().events(),
              (std::vector<std::string>{"opened", "started", "title velq scripted progress",
                                        "line 1 Encryption is in progress...", "progress 5/10", "stopped",
                                        "closed"}));
}

// A recording backend whose windows are the system's own, as the Windows UI's are.
class SystemWindowsRecording : public velq_test::RecordingKinds {
public:
    bool usesSystemWindows() const override { return true; }
};

TEST(SystemUiProgress, IsTheShellsAndTheBackendHearsNothingOfIt) {
    auto made = std::make_unique<SystemWindowsRecording>();
    SystemWindowsRecording& recording = *made;
    made->pForward = &ui::currentBackend();  // chosen now, so that it comes back
    auto previous = ui::installBackend(std::move(made));
    ASSERT_TRUE(SUCCEEDED(plat::CoInitialize(nullptr)));
    void* object = nullptr;
    const HRESULT created =
        plat::CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, IID_IProgressDialog, &object);
    if (object != nullptr) {
        auto* dialog = static_cast<IProgressDialog*>(object);
        dialog->SetTitle(u"velq shell progress");
        dialog->SetProgress(1, 2);
        dialog->Release();
    }
    plat::CoUninitialize();
    const std::vector<std::string> heard = recording.events();
    auto mine = ui::installBackend(std::move(previous));
    if (created == static_cast<HRESULT>(REGDB_E_CLASSNOTREG)) {
        GTEST_SKIP() << "the system has no shell progress dialog";
    }
    EXPECT_EQ(created, S_OK);
    EXPECT_TRUE(heard.empty()) << heard.front();
}

LRESULT quietProcedure(HWND, UINT message, WPARAM, LPARAM) {
    return message == WM_INITDIALOG ? TRUE : FALSE;
}

// Template 51 from this program's resources with a procedure that does nothing of its own.
HWND newErrorList() {
    if (::FindResourceW(nullptr, ui::resourceName(IDD_ERROR_LIST), ui::resourceName(5)) == nullptr) {
        return nullptr;
    }
    return plat::CreateDialogParamW(nullptr, IDD_ERROR_LIST, nullptr, &quietProcedure, 0);
}

void addRow(HWND dialog, const char16_t* text) {
    std::u16string row(text);
    plat::LVITEMW item{};
    item.mask = LVIF_TEXT;
    item.iItem = static_cast<int>(
        plat::SendMessageW(plat::GetDlgItem(dialog, IDC_ERROR_LIST), LVM_GETITEMCOUNT, 0, 0));
    item.pszText = row.data();
    plat::SendMessageW(plat::GetDlgItem(dialog, IDC_ERROR_LIST), LVM_INSERTITEMW, 0,
                       reinterpret_cast<LPARAM>(&item));
}

TEST(ScriptedUiErrorList, HearsEachRowItsShowingAndTheEndOfAShownList) {
    SKIP_WITHOUT_WINDOWS();
    RecordingScope recording;
    const HWND dialog = newErrorList();
    if (dialog == nullptr) {
        GTEST_SKIP() << "this test program has no dialog 51 among its resources";
    }
    plat::ShowWindow(dialog, SW_HIDE);
    addRow(dialog, u"C:\\data\\a.txt Failed to encrypt file!");
    plat::ShowWindow(dialog, SW_RESTORE);
    addRow(dialog, u"C:\\data\\b.txt Failed to encrypt file!");
    plat::ShowWindow(dialog, SW_RESTORE);  // shown once, told once
    EXPECT_TRUE(plat::DestroyWindow(dialog));
    EXPECT_EQ(recording.kinds().events(),
              (std::vector<std::string>{"row C:\\data\\a.txt Failed to encrypt file! #1", "shown",
                                        "row C:\\data\\b.txt Failed to encrypt file! #2", "list closed"}));
}

TEST(ScriptedUiErrorList, ThatWasNeverShownEndsUnheard) {
    SKIP_WITHOUT_WINDOWS();
    RecordingScope recording;
    const HWND dialog = newErrorList();
    if (dialog == nullptr) {
        GTEST_SKIP() << "this test program has no dialog 51 among its resources";
    }
    addRow(dialog, u"row");
    EXPECT_TRUE(plat::DestroyWindow(dialog));
    EXPECT_EQ(recording.kinds().events(), (std::vector<std::string>{"row row #1"}));
}

TEST(ScriptedUiClipboard, HearsTheTextThatTheSystemsClipboardGets) {
    RecordingScope recording;
    if (!plat::OpenClipboard(nullptr)) {
        GTEST_SKIP() << "the system's clipboard cannot be opened here";
    }
    ASSERT_TRUE(plat::EmptyClipboard());
    const std::u16string text = u"C:\\data\\a.txt Failed\n";
    const HGLOBAL memory = plat::GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(char16_t));
    std::copy(text.c_str(), text.c_str() + text.size() + 1, static_cast<char16_t*>(plat::GlobalLock(memory)));
    plat::GlobalUnlock(memory);
    EXPECT_NE(plat::SetClipboardData(CF_UNICODETEXT, memory), nullptr);
    plat::CloseClipboard();
    EXPECT_EQ(recording.kinds().events(), (std::vector<std::string>{"clipboard " + plat::toUtf8(text)}));
}

// A backend that keeps what its search window was given.
class SearchRecorder : public ui::Backend, public ui::SearchWindowUi {
public:
    explicit SearchRecorder(ui::Backend& forward) : m_forward(forward) {}
    std::string_view name() const override { return "search recorder"; }
    ui::MessageBoxUi& messageBox() override { return m_forward.messageBox(); }
    ui::CursorUi& cursor() override { return m_forward.cursor(); }
    ui::SearchWindowUi& searchWindow() override { return *this; }
    void show(std::u16string_view query, const std::vector<std::u16string>& results) override {
        shownQuery = query;
        shownResults = results;
    }

    std::u16string shownQuery;
    std::vector<std::u16string> shownResults;

private:
    ui::Backend& m_forward;
};

TEST(ScriptedUiSearch, WalksTheLocationAndGivesWindowsPaths) {
    namespace fs = std::filesystem;
    const fs::path root =
        fs::temp_directory_path() / ("velq-search-" + std::to_string(::GetCurrentProcessId()));
    fs::create_directories(root / "sub");
    for (const char* name : {"a.txt.lqvz", "sub/B.PDF.LQVZ", "c.txt"}) {
        std::ofstream(root / name) << "x";
    }
    ui::Backend& previous = ui::currentBackend();
    auto made = std::make_unique<SearchRecorder>(previous);
    SearchRecorder* recorder = made.get();
    auto replaced = ui::installBackend(std::move(made));

    const std::u16string folder = root.u16string();
    std::u16string escaped(folder.size() * 3 + 1, u'\0');
    DWORD capacity = static_cast<DWORD>(escaped.size());
    ASSERT_EQ(plat::UrlEscapeW(folder.c_str(), escaped.data(), &capacity, URL_ESCAPE_PERCENT), S_OK);
    escaped.resize(capacity);
    const std::u16string query = u"search-ms:query=*.lqvz&crumb=location:" + escaped;
    const std::intptr_t opened =
        plat::ShellExecuteW(nullptr, u"open", query.c_str(), nullptr, nullptr, SW_SHOW);

    const auto mine = ui::installBackend(std::move(replaced));
    fs::remove_all(root);
    EXPECT_EQ(opened, SE_SUCCESS);
    EXPECT_EQ(recorder->shownQuery, query);
    EXPECT_EQ(recorder->shownResults,
              (std::vector<std::u16string>{folder + u"\\a.txt.lqvz", folder + u"\\sub\\B.PDF.LQVZ"}));
}

}  // namespace
}  // namespace plat
