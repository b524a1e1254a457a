// The native UI's message boxes, the shell's progress dialog behind the layer's IProgressDialog, and the
// dialogs whose procedures are the core's (the error list of template 51). Each window is found as it
// stands and driven through its own controls by messages from the test.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "plat/dialogs.h"
#include "plat/errors.h"
#include "plat/progress.h"
#include "plat/ui.h"
#include "plat/windows.h"
#include "ui/win32_backend.h"
#include "ui/win32_dialog_template.h"
#include "ui/win32_dialogs.h"
#include "ui/win32_resource_name.h"
#include "win32_ui_support.h"
// After the layer's headers (win32_ui_support.h brings <windows.h>).
#include <commctrl.h>

namespace plat {
namespace {

using test::Asker;
using test::eventually;
using test::textOf;

bool underWine() {
    const ::HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

// --- The choice of the backend ---

TEST(BackendChoice, TheWindowsProgramsDefaultIsTheNativeUi) {
    const char* requested = std::getenv("VELQ_UI");
    if (requested != nullptr && *requested != '\0') {
        GTEST_SKIP() << "VELQ_UI is set here (" << requested << ")";
    }
    EXPECT_EQ(ui::currentBackend().name(), "win32");
}

// --- Message boxes ---

struct BoxCase {
    const char* name;
    UINT flags;
    const wchar_t* caption;
    int button;     // the control pressed
    int answer;     // what the core gets
    bool bTopmost;  // MB_TOPMOST among the flags
    unsigned icon;  // the system icon the box shows (IDI_HAND ... IDI_ASTERISK)
};

class MessageBoxes : public ::testing::TestWithParam<BoxCase> {};

// The flags of the program's boxes, each answered through one of its buttons.
INSTANTIATE_TEST_SUITE_P(
    ProgramFlags, MessageBoxes,
    ::testing::Values(BoxCase{"Error", 16, L"velq box error", IDOK, 1, false, 32513},
                      BoxCase{"Question", 36, L"velq box question", IDNO, 7, false, 32514},
                      BoxCase{"Warning", 48, L"velq box warning", IDOK, 1, false, 32515},
                      BoxCase{"Information", 64, L"velq box information", IDOK, 1, false, 32516},
                      BoxCase{"TopmostYesNo", 0x40024, L"velq box invalid key", IDYES, 6, true, 32514},
                      BoxCase{"TopmostOkCancel", 0x40021, L"velq box replace", IDCANCEL, 2, true, 32514}),
    [](const ::testing::TestParamInfo<BoxCase>& named) { return std::string(named.param.name); });

// The icon a box shows: the one static control with an icon.
::HICON boxIcon(::HWND box) {
    for (::HWND child = ::GetWindow(box, GW_CHILD); child != nullptr;
         child = ::GetWindow(child, GW_HWNDNEXT)) {
        const auto shown = reinterpret_cast<::HICON>(::SendMessageW(child, STM_GETICON, 0, 0));
        if (shown != nullptr) {
            return shown;
        }
    }
    return nullptr;
}

TEST_P(MessageBoxes, ShowTheFlagsButtonsAndIconAndGiveTheButtonPressed) {
    SKIP_WITHOUT_WINDOWS();
    const BoxCase box = GetParam();
    std::unique_ptr<ui::Backend> backend = ui::makeWin32Backend();
    const std::u16string caption(win32::units(box.caption));
    Asker asker([&] { return backend->messageBox().show(nullptr, u"Is it so?", caption, box.flags); });
    const ::HWND shown = asker.dialog();
    ASSERT_NE(shown, nullptr) << "no box came";
    EXPECT_EQ(textOf(shown), box.caption);
    const bool topmost = (::GetWindowLongW(shown, GWL_EXSTYLE) & WS_EX_TOPMOST) != 0;
    if (box.bTopmost && !topmost && underWine()) {
        // Wine moves a box of MB_TOPMOST to the top but, with its null window driver, does not mark it.
        RecordProperty("topmost", "not observable under Wine's null driver");
    } else {
        EXPECT_EQ(topmost, box.bTopmost);
    }
    EXPECT_EQ(boxIcon(shown), ::LoadIconW(nullptr, ui::resourceName(box.icon)));
    const ::HWND button = ::GetDlgItem(shown, box.button);
    ASSERT_NE(button, nullptr) << "the box has no button " << box.button;
    ::SendMessageW(button, BM_CLICK, 0, 0);
    EXPECT_EQ(asker.answer(), box.answer);
}

TEST(MessageBoxOwner, IsTheWindowTheCoreGave) {
    SKIP_WITHOUT_WINDOWS();
    const ::HWND owner = ::CreateWindowExW(0, L"Static", L"velq owner", WS_OVERLAPPED, 0, 0, 50, 50, nullptr,
                                           nullptr, nullptr, nullptr);
    ASSERT_NE(owner, nullptr);
    std::unique_ptr<ui::Backend> backend = ui::makeWin32Backend();
    Asker asker(
        [&] { return backend->messageBox().show(win32::fromNative(owner), u"Owned?", u"velq owned", 0); });
    const ::HWND shown = asker.dialog();
    ASSERT_NE(shown, nullptr);
    EXPECT_EQ(::GetWindow(shown, GW_OWNER), owner);
    ::SendMessageW(shown, WM_COMMAND, IDOK, 0);
    EXPECT_EQ(asker.answer(), IDOK);
    ::DestroyWindow(owner);
}

TEST(MessageBoxOwner, ThatIsNoWindowFailsWithTheSystemsError) {
    SKIP_WITHOUT_WINDOWS();
    std::unique_ptr<ui::Backend> backend = ui::makeWin32Backend();
    const auto gone = reinterpret_cast<HWND>(static_cast<std::uintptr_t>(0x7ff0));
    EXPECT_EQ(backend->messageBox().show(gone, u"text", u"caption", 0), 0);
    EXPECT_EQ(::GetLastError(), static_cast<::DWORD>(ERROR_INVALID_WINDOW_HANDLE));
}

// --- The shell's progress dialog ---

class ShellProgressDialog : public ::testing::Test {
protected:
    // The shell's dialog is the system UI's: under another UI (VELQ_UI=script) the object is that UI's.
    void SetUp() override {
        ui::currentBackend();  // chosen now, so that it comes back
        m_pPrevious = ui::installBackend(ui::makeWin32Backend());
        ASSERT_TRUE(SUCCEEDED(plat::CoInitialize(nullptr)));
        void* object = nullptr;
        const HRESULT created =
            plat::CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, IID_IProgressDialog, &object);
        if (created == static_cast<HRESULT>(REGDB_E_CLASSNOTREG)) {
            GTEST_SKIP() << "the system has no shell progress dialog";
        }
        ASSERT_EQ(created, S_OK);
        m_pDialog = static_cast<IProgressDialog*>(object);
    }
    void TearDown() override {
        if (m_pDialog != nullptr) {
            m_pDialog->StopProgressDialog();
            EXPECT_EQ(m_pDialog->Release(), 0u);
        }
        plat::CoUninitialize();
        m_pWin32 = ui::installBackend(std::move(m_pPrevious));  // kept: the shell's threads may still ask
    }

    // The dialog's window by its title, once it stands.
    static ::HWND windowTitled(const wchar_t* title) {
        ::HWND found = nullptr;
        eventually([&] { return (found = ::FindWindowW(nullptr, title)) != nullptr; });
        return found;
    }

    static ::HWND childWithText(::HWND dialog, const std::wstring& text) {
        for (::HWND child = ::GetWindow(dialog, GW_CHILD); child != nullptr;
             child = ::GetWindow(child, GW_HWNDNEXT)) {
            if (textOf(child) == text) {
                return child;
            }
        }
        return nullptr;
    }

    IProgressDialog* m_pDialog = nullptr;
    std::unique_ptr<ui::Backend> m_pPrevious;
    std::unique_ptr<ui::Backend> m_pWin32;
};

TEST_F(ShellProgressDialog, ShowsTheTitleAndLinesAndHearsItsCancel) {
    SKIP_WITHOUT_WINDOWS();
    ASSERT_EQ(m_pDialog->SetTitle(u"velq progress title"), S_OK);
    ASSERT_EQ(m_pDialog->SetLine(1, u"Encryption is in progress...", TRUE, nullptr), S_OK);
    ASSERT_EQ(m_pDialog->SetLine(2, u"C:\\data\\report.txt", TRUE, nullptr), S_OK);
    ASSERT_EQ(m_pDialog->SetCancelMsg(u"Canceled...", nullptr), S_OK);
    ASSERT_EQ(m_pDialog->StartProgressDialog(nullptr, nullptr, PROGDLG_AUTOTIME, nullptr), S_OK);
    const ::HWND shown = windowTitled(L"velq progress title");
    ASSERT_NE(shown, nullptr) << "the dialog's window was not found by its title";
    EXPECT_TRUE(eventually([&] { return childWithText(shown, L"Encryption is in progress...") != nullptr; }));
    EXPECT_FALSE(m_pDialog->HasUserCancelled());
    ::SendMessageW(shown, WM_COMMAND, IDCANCEL, 0);
    EXPECT_TRUE(eventually([&] { return m_pDialog->HasUserCancelled() != FALSE; }));
}

// The core finds the running dialog's window by a title of its own, looked for once, at once after
// SetTitle: the title is the window's by the time SetTitle returns.
TEST_F(ShellProgressDialog, HasATitleSetTheMomentSetTitleReturns) {
    SKIP_WITHOUT_WINDOWS();
    ASSERT_EQ(m_pDialog->SetTitle(u"Encrypt Files"), S_OK);
    ASSERT_EQ(m_pDialog->StartProgressDialog(nullptr, nullptr, PROGDLG_AUTOTIME, nullptr), S_OK);
    ASSERT_EQ(m_pDialog->SetTitle(u"{0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0}"), S_OK);
    const ::HWND found = ::FindWindowW(nullptr, L"{0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0}");
    EXPECT_NE(found, nullptr);
    ASSERT_EQ(m_pDialog->SetTitle(u"Encrypt Files"), S_OK);
    EXPECT_EQ(textOf(found), L"Encrypt Files");
}

TEST_F(ShellProgressDialog, MovesItsBarWithBothProgressCalls) {
    SKIP_WITHOUT_WINDOWS();
    ASSERT_EQ(m_pDialog->SetTitle(u"velq progress bar"), S_OK);
    ASSERT_EQ(m_pDialog->StartProgressDialog(nullptr, nullptr, PROGDLG_NORMAL, nullptr), S_OK);
    const ::HWND shown = windowTitled(L"velq progress bar");
    ASSERT_NE(shown, nullptr);
    const ::HWND bar = ::FindWindowExW(shown, nullptr, PROGRESS_CLASSW, nullptr);
    ASSERT_NE(bar, nullptr) << "the dialog has no bar";
    // The share of the bar that is filled, in per cent, read as unsigned values as the shell sets them.
    const auto filled = [bar] {
        ::PBRANGE range{};
        ::SendMessageW(bar, PBM_GETRANGE, TRUE, reinterpret_cast<::LPARAM>(&range));
        const auto low = static_cast<std::uint32_t>(range.iLow);
        const auto high = static_cast<std::uint32_t>(range.iHigh);
        const auto position = static_cast<std::uint32_t>(::SendMessageW(bar, PBM_GETPOS, 0, 0));
        return high > low ? static_cast<int>((std::uint64_t{position} - low) * 100 / (high - low)) : -1;
    };
    ASSERT_EQ(m_pDialog->SetProgress(30, 120), S_OK);
    EXPECT_TRUE(eventually([&] { return filled() == 25; })) << filled();
    ASSERT_EQ(m_pDialog->SetProgress64(3000, 4000), S_OK);
    EXPECT_TRUE(eventually([&] { return filled() == 75; })) << filled();
}

TEST(ShellProgressObject, IsMadeOnlyForItsClassAndInterface) {
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(plat::CoCreateInstance(IID_IProgressDialog, nullptr, CLSCTX_ALL, IID_IProgressDialog, &object),
              static_cast<HRESULT>(REGDB_E_CLASSNOTREG));
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(
        plat::CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, CLSID_ProgressDialog, &object),
        static_cast<HRESULT>(E_NOINTERFACE));
    EXPECT_EQ(plat::CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_ALL, IID_IProgressDialog, nullptr),
              static_cast<HRESULT>(E_POINTER));
}

// --- Dialogs with the core's procedures ---

// What the core's procedure of a test dialog was given.
struct Heard {
    std::vector<UINT> messages;
    LPARAM initParam = 0;
    std::vector<int> commands;
};
Heard g_heard;

LRESULT recordingProcedure(HWND, UINT message, WPARAM wParam, LPARAM lParam) {
    g_heard.messages.push_back(message);
    if (message == WM_INITDIALOG) {
        g_heard.initParam = lParam;
        return TRUE;
    }
    if (message == WM_COMMAND) {
        g_heard.commands.push_back(LOWORD(wParam));
        return TRUE;
    }
    return FALSE;
}

// The error list's layout (template 51) as the program's resources have it: the report list, the count,
// OK and Copy to clipboard.
ui::DialogTemplate errorListTemplate() {
    constexpr DWORD kChild = WS_CHILD | WS_VISIBLE | WS_TABSTOP;
    ui::DialogTemplate layout(WS_POPUP | WS_CAPTION | WS_SYSMENU, u"Message", 300, 160);
    layout.add(u"SysListView32", u"", kChild | WS_BORDER | LVS_REPORT, IDC_ERROR_LIST, 7, 7, 286, 110);
    layout.add(ui::kStaticClass, u"", kChild, IDC_ERROR_COUNT, 7, 122, 150, 9);
    layout.add(ui::kButtonClass, u"OK", kChild | BS_DEFPUSHBUTTON, IDC_ERROR_OK, 243, 139, 50, 14);
    layout.add(ui::kButtonClass, u"Copy to clipboard", kChild, IDC_ERROR_COPY, 150, 139, 88, 14);
    return layout;
}

TEST(CoreDialogs, GetEveryMessageFromTheFirstAndTheirInitParameter) {
    SKIP_WITHOUT_WINDOWS();
    g_heard = {};
    const ui::DialogTemplate layout = errorListTemplate();
    const HWND dialog = ui::createDialogFromTemplate(layout.data(), nullptr, &recordingProcedure, 0x5151);
    ASSERT_NE(dialog, nullptr) << "last error " << ::GetLastError();
    EXPECT_EQ(g_heard.initParam, 0x5151);
    // The font (DS_SETFONT) comes before WM_INITDIALOG: the core's procedure hears it too.
    ASSERT_GE(g_heard.messages.size(), 2u);
    EXPECT_EQ(g_heard.messages.front(), static_cast<UINT>(WM_SETFONT));
    ::SendMessageW(::GetDlgItem(win32::native(dialog), IDC_ERROR_OK), BM_CLICK, 0, 0);
    EXPECT_EQ(g_heard.commands, std::vector<int>{IDC_ERROR_OK});
    EXPECT_TRUE(plat::DestroyWindow(dialog));
}

TEST(CoreDialogs, FillTheErrorListThroughTheLayersListMessages) {
    SKIP_WITHOUT_WINDOWS();
    g_heard = {};
    const ui::DialogTemplate layout = errorListTemplate();
    const HWND dialog = ui::createDialogFromTemplate(layout.data(), nullptr, &recordingProcedure, 0);
    ASSERT_NE(dialog, nullptr);
    const HWND list = plat::GetDlgItem(dialog, IDC_ERROR_LIST);
    ASSERT_NE(list, nullptr);
    char16_t heading[] = u"Message";
    plat::LVCOLUMNW column{LVCF_TEXT | LVCF_WIDTH, 0, 200, heading, 0, 0};
    EXPECT_EQ(plat::SendMessageW(list, LVM_INSERTCOLUMNW, 0, reinterpret_cast<LPARAM>(&column)), 0);
    char16_t row[] = u"C:\\data\\a.txt Failed to encrypt file!";
    plat::LVITEMW item{};
    item.mask = LVIF_TEXT;
    item.iItem = 0;
    item.pszText = row;
    EXPECT_EQ(plat::SendMessageW(list, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item)), 0);
    EXPECT_EQ(plat::SendMessageW(list, LVM_GETITEMCOUNT, 0, 0), 1);
    char16_t back[64] = {};
    plat::LVITEMW asked{};
    asked.pszText = back;
    asked.cchTextMax = 64;
    plat::SendMessageW(list, LVM_GETITEMTEXTW, 0, reinterpret_cast<LPARAM>(&asked));
    EXPECT_EQ(std::u16string(back), std::u16string(row));
    EXPECT_TRUE(plat::SetDlgItemTextW(dialog, IDC_ERROR_COUNT, u"Total errors: 1"));
    EXPECT_EQ(textOf(::GetDlgItem(win32::native(dialog), IDC_ERROR_COUNT)), L"Total errors: 1");
    EXPECT_TRUE(plat::DestroyWindow(dialog));
}

TEST(CoreDialogs, OfTheProgramAreOnlyTheErrorList) {
    EXPECT_EQ(plat::CreateDialogParamW(nullptr, 52, nullptr, &recordingProcedure, 0), nullptr);
    EXPECT_EQ(plat::GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
}

TEST(CoreDialogs, TheErrorListComesFromTheProgramsTemplate51) {
    SKIP_WITHOUT_WINDOWS();
    if (::FindResourceW(nullptr, ui::resourceName(IDD_ERROR_LIST), ui::resourceName(5)) == nullptr) {
        GTEST_SKIP() << "this test program has no dialog 51 among its resources";
    }
    g_heard = {};
    const HWND dialog = plat::CreateDialogParamW(nullptr, IDD_ERROR_LIST, nullptr, &recordingProcedure, 77);
    ASSERT_NE(dialog, nullptr) << "last error " << ::GetLastError();
    EXPECT_EQ(g_heard.initParam, 77);
    for (const int id : {IDC_ERROR_LIST, IDC_ERROR_COUNT, IDC_ERROR_OK, IDC_ERROR_COPY}) {
        EXPECT_NE(plat::GetDlgItem(dialog, id), nullptr) << "control " << id;
    }
    EXPECT_TRUE(plat::DestroyWindow(dialog));
}

}  // namespace
}  // namespace plat
