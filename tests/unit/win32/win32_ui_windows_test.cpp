// The native UI's wait window (the core's own window, made the native one by the backend) and the key
// backup's password dialogs, driven by messages from the test as a person would drive them.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "plat/windows.h"
#include "ui/gtk_rules.h"
#include "ui/win32_backend.h"
#include "ui/win32_kinds.h"
#include "win32_ui_support.h"

namespace plat {
namespace {

using test::Asker;
using test::eventually;
using test::pumpMessages;
using test::textOf;

// A red 4 by 4 picture, and the ids the test's picture source knows.
constexpr std::array<std::uint8_t, 75> kRedPng = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44,
    0x52, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x04, 0x08, 0x06, 0x00, 0x00, 0x00, 0xa9,
    0xf1, 0x9e, 0x7e, 0x00, 0x00, 0x00, 0x12, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63, 0xf8,
    0xcf, 0xc0, 0xf0, 0x1f, 0x19, 0x33, 0x90, 0x2e, 0x00, 0x00, 0x3c, 0x40, 0x1f, 0xe1, 0xe0,
    0x81, 0x77, 0xb4, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};
constexpr UINT kFinger = 509;
constexpr UINT kTick = 504;
constexpr UINT kBroken = 505;  // bytes that are no PNG

std::span<const std::uint8_t> testPictures(UINT id) {
    static constexpr std::array<std::uint8_t, 8> kNotPng = {1, 2, 3, 4, 5, 6, 7, 8};
    if (id == kFinger || id == kTick) {
        return kRedPng;
    }
    return id == kBroken ? std::span<const std::uint8_t>(kNotPng) : std::span<const std::uint8_t>();
}

// --- The wait window ---

// What the core's window procedure heard: the messages that end a wait, with their codes.
std::vector<std::pair<UINT, WPARAM>> g_heard;

LRESULT coreWaitProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_WTSSESSION_CHANGE || message == WM_POWERBROADCAST || message == WM_CLOSE) {
        g_heard.emplace_back(message, wParam);
    }
    return plat::DefWindowProcW(hwnd, message, wParam, lParam);
}

// The core's wait window as src/bio makes it: hidden, on top, 203 by 268, with a picture child of its own.
class WaitWindow : public ::testing::Test {
protected:
    void SetUp() override {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = &coreWaitProcedure;
        windowClass.lpszClassName = u"VelqTestFPMonitor";
        plat::RegisterClassW(&windowClass);
        WNDCLASSW pictureClass{};
        pictureClass.lpfnWndProc = &plat::DefWindowProcW;
        pictureClass.lpszClassName = u"VelqTestFPMonitorPicture";
        plat::RegisterClassW(&pictureClass);
        m_window = plat::CreateWindowExW(0x8, u"VelqTestFPMonitor", u"", 0x00CC0000, 0, 0, 203, 268, nullptr,
                                         nullptr, nullptr, nullptr);
        if (m_window == nullptr) {
            GTEST_SKIP() << "the system cannot make windows here (no window driver)";
        }
        m_corePicture = plat::CreateWindowExW(0, u"VelqTestFPMonitorPicture", u"Static", 0x50000000, 0, 0,
                                              203, 268, m_window, nullptr, nullptr, nullptr);
        g_heard.clear();
    }
    void TearDown() override {
        if (m_window != nullptr && plat::IsWindow(m_window)) {
            m_backend->wait().closed(m_window);
            plat::DestroyWindow(m_window);
        }
    }

    ::HWND native() const { return win32::native(m_window); }
    // The backend's picture control: the window's visible child of class "Static".
    ::HWND pictureControl() const {
        for (::HWND child = ::GetWindow(native(), GW_CHILD); child != nullptr;
             child = ::GetWindow(child, GW_HWNDNEXT)) {
            wchar_t className[16] = {};
            ::GetClassNameW(child, className, 16);
            if (std::wstring(className) == L"Static" && ::IsWindowVisible(child)) {
                return child;
            }
        }
        return nullptr;
    }
    ::HBITMAP shownPicture() const {
        return reinterpret_cast<::HBITMAP>(::SendMessageW(pictureControl(), STM_GETIMAGE, IMAGE_BITMAP, 0));
    }
    void show() {
        m_backend->wait().shown(m_window);
        pumpMessages();
    }

    std::unique_ptr<ui::Backend> m_backend = ui::makeWin32Backend(&testPictures);
    HWND m_window = nullptr;
    HWND m_corePicture = nullptr;
};

TEST_F(WaitWindow, StandsOnTopVisibleAndCentredWithItsSizeKept) {
    show();
    EXPECT_TRUE(::IsWindowVisible(native()));
    EXPECT_NE(::GetWindowLongW(native(), GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
    ::RECT own{};
    ::GetWindowRect(native(), &own);
    ::RECT desktop{};
    ::GetWindowRect(::GetDesktopWindow(), &desktop);
    EXPECT_EQ(own.right - own.left, 203);
    EXPECT_EQ(own.bottom - own.top, 268);
    EXPECT_EQ(own.left, (desktop.left + desktop.right) / 2 - 203 / 2);
    EXPECT_EQ(own.top, (desktop.top + desktop.bottom) / 2 - 268 / 2);
    // Dragging the frame (a new size asked for) changes nothing.
    ::SetWindowPos(native(), nullptr, 0, 0, 400, 500, SWP_NOMOVE | SWP_NOZORDER);
    ::GetWindowRect(native(), &own);
    EXPECT_EQ(own.right - own.left, 203);
    EXPECT_EQ(own.bottom - own.top, 268);
}

TEST_F(WaitWindow, ShowsEachPictureInAControlThatFillsIt) {
    show();
    m_backend->wait().image(m_window, kFinger);
    pumpMessages();
    ASSERT_NE(pictureControl(), nullptr);
    EXPECT_FALSE(::IsWindowVisible(win32::native(m_corePicture)));
    EXPECT_NE(::GetWindowLongW(pictureControl(), GWL_STYLE) & SS_CENTERIMAGE, 0);
    const ::HBITMAP finger = shownPicture();
    ASSERT_NE(finger, nullptr);
    ::BITMAP described{};
    ASSERT_NE(::GetObjectW(finger, sizeof(described), &described), 0);
    EXPECT_EQ(described.bmWidth, 4);
    EXPECT_EQ(described.bmBitsPixel, 32);  // with its alpha channel
    m_backend->wait().image(m_window, kTick);
    pumpMessages();
    EXPECT_NE(shownPicture(), nullptr);
    EXPECT_NE(shownPicture(), finger);
}

TEST_F(WaitWindow, KeepsItsPictureWhenTheNextDoesNotLoad) {
    show();
    m_backend->wait().image(m_window, kFinger);
    pumpMessages();
    const ::HBITMAP finger = shownPicture();
    ASSERT_NE(finger, nullptr);
    for (const UINT missing : {kBroken, 4711u}) {
        m_backend->wait().image(m_window, missing);
        pumpMessages();
        EXPECT_EQ(shownPicture(), finger) << "picture " << missing;
    }
}

TEST_F(WaitWindow, HidesAndShowsAgain) {
    show();
    m_backend->wait().hidden(m_window);
    pumpMessages();
    EXPECT_FALSE(::IsWindowVisible(native()));
    show();
    EXPECT_TRUE(::IsWindowVisible(native()));
}

// The system sends these to the window (Wine never does): the core's procedure gets them with their codes.
TEST_F(WaitWindow, HandsSessionAndPowerNoticesAndItsCloseToTheCore) {
    show();
    ::SendMessageW(native(), WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, 0);
    ::SendMessageW(native(), WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT, 0);
    ::SendMessageW(native(), WM_POWERBROADCAST, PBT_APMSUSPEND, 0);
    ::SendMessageW(native(), WM_SYSCOMMAND, SC_CLOSE, 0);
    const std::vector<std::pair<UINT, WPARAM>> expected = {
        {WM_WTSSESSION_CHANGE, 7}, {WM_WTSSESSION_CHANGE, 1}, {WM_POWERBROADCAST, 4}, {WM_CLOSE, 0}};
    EXPECT_EQ(g_heard, expected);
}

TEST_F(WaitWindow, GoesWithTheCoresDestroy) {
    show();
    m_backend->wait().image(m_window, kFinger);
    pumpMessages();
    ASSERT_TRUE(plat::DestroyWindow(m_window));
    EXPECT_FALSE(::IsWindow(native()));
    // Posts to a window that has gone are refused by the system and harm nothing.
    m_backend->wait().image(m_window, kTick);
    m_backend->wait().hidden(m_window);
    pumpMessages();
}

// The program's own pictures (type "PNG" among its resources) are what the window shows by default.
TEST_F(WaitWindow, ShowsTheProgramsOwnPictures) {
    if (ui::programPicture(kFinger).empty()) {
        GTEST_SKIP() << "this test program has no pictures among its resources";
    }
    m_backend = ui::makeWin32Backend();
    show();
    m_backend->wait().image(m_window, kFinger);
    pumpMessages();
    ::BITMAP described{};
    ASSERT_NE(::GetObjectW(shownPicture(), sizeof(described), &described), 0);
    EXPECT_EQ(described.bmWidth, 142);
    EXPECT_EQ(described.bmHeight, 142);
}

// --- The key backup's password dialogs ---

// A text of the string table as the dialog shows it.
std::wstring tableText(UINT id) {
    const std::u16string text = ui::tableText(id);
    return std::wstring(text.begin(), text.end());
}
std::wstring problemText(const ui::KeyFileRequest& request, UINT problem) {
    const std::u16string text = ui::keyFileProblemText(request, problem);
    return std::wstring(text.begin(), text.end());
}

// What the export of a new key asks: "key", the filter's name, a password of 1 to 50 units.
ui::KeyFileRequest exportRequest() {
    ui::KeyFileRequest request;
    request.bExport = true;
    request.typeName = u"Key File(*.key)";
    request.defaultExtension = u"key";
    request.nMinPassword = 1;
    request.nMaxPassword = 50;
    return request;
}

void type(::HWND dialog, int id, const wchar_t* text) {
    ::SetDlgItemTextW(dialog, id, text);
}

constexpr int kPath = 201;
constexpr int kPassword = 203;
constexpr int kConfirmation = 204;
constexpr int kProblem = 205;

TEST(KeyFileDialog, ExportTakesAPathAndTwoMatchingPasswords) {
    std::unique_ptr<ui::Backend> backend = ui::makeWin32Backend(&testPictures);
    const ui::KeyFileRequest request = exportRequest();
    ui::KeyFileAnswer answer;
    Asker asker([&] { return backend->keyFileDialog().ask(nullptr, request, answer); });
    const ::HWND dialog = asker.dialog();
    if (dialog == nullptr) {
        GTEST_SKIP() << "no dialog came (the system cannot make windows here?)";
    }
    EXPECT_EQ(textOf(dialog), tableText(ui::kTextExportTitle));
    EXPECT_NE(::GetWindowLongW(::GetDlgItem(dialog, kPassword), GWL_STYLE) & ES_PASSWORD, 0);
    type(dialog, kPath, L"C:\\backup\\velq");
    type(dialog, kPassword, L"correct horse");
    type(dialog, kConfirmation, L"correct hose");
    ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
    // The two differ: the dialog stays and says so.
    EXPECT_TRUE(::IsWindow(dialog));
    EXPECT_EQ(textOf(::GetDlgItem(dialog, kProblem)), problemText(request, ui::kTextPasswordsDiffer));
    type(dialog, kConfirmation, L"correct horse");
    ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
    EXPECT_EQ(asker.answer(), IDOK);
    EXPECT_EQ(answer.path, u"C:\\backup\\velq.key");  // the request's extension added
    EXPECT_EQ(answer.password, u"correct horse");
}

TEST(KeyFileDialog, ImportOffersTheLastPathAndCancels) {
    std::unique_ptr<ui::Backend> backend = ui::makeWin32Backend(&testPictures);
    ui::KeyFileRequest request;
    request.startPath = u"D:\\keys\\old.key";
    ui::KeyFileAnswer answer;
    Asker asker([&] { return backend->keyFileDialog().ask(nullptr, request, answer); });
    const ::HWND dialog = asker.dialog();
    if (dialog == nullptr) {
        GTEST_SKIP() << "no dialog came (the system cannot make windows here?)";
    }
    EXPECT_EQ(textOf(dialog), tableText(ui::kTextImportTitle));
    EXPECT_EQ(textOf(::GetDlgItem(dialog, kPath)), L"D:\\keys\\old.key");
    EXPECT_EQ(::GetDlgItem(dialog, kConfirmation), nullptr);  // asked once
    ::SendMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
    EXPECT_EQ(asker.answer(), IDCANCEL);
    EXPECT_TRUE(answer.path.empty());
}

TEST(KeyFileDialog, RefusesAnEmptyPathAndAPasswordOutsideTheLimits) {
    std::unique_ptr<ui::Backend> backend = ui::makeWin32Backend(&testPictures);
    ui::KeyFileRequest request;
    request.nMinPassword = 6;
    request.bShowPassword = true;
    ui::KeyFileAnswer answer;
    Asker asker([&] { return backend->keyFileDialog().ask(nullptr, request, answer); });
    const ::HWND dialog = asker.dialog();
    if (dialog == nullptr) {
        GTEST_SKIP() << "no dialog came (the system cannot make windows here?)";
    }
    EXPECT_EQ(::GetWindowLongW(::GetDlgItem(dialog, kPassword), GWL_STYLE) & ES_PASSWORD, 0);
    type(dialog, kPassword, L"secret");
    ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
    EXPECT_EQ(textOf(::GetDlgItem(dialog, kProblem)), problemText(request, ui::kTextChooseKeyFile));
    type(dialog, kPath, L"E:\\k.key");
    type(dialog, kPassword, L"short");
    ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
    EXPECT_EQ(textOf(::GetDlgItem(dialog, kProblem)), problemText(request, ui::kTextPasswordAtLeast));
    type(dialog, kPassword, L"longer");
    ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
    EXPECT_EQ(asker.answer(), IDOK);
    EXPECT_EQ(answer.path, u"E:\\k.key");
    EXPECT_EQ(answer.password, u"longer");
}

}  // namespace
}  // namespace plat
