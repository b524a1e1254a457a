// Window procedures through the Win32 forwards: the core's procedures are plain functions of the layer's
// types, called by one procedure of the API's kind per class; GWLP_WNDPROC swaps the core's procedure.
#include <gtest/gtest.h>

#include <vector>

#include "plat/dialogs.h"
#include "plat/errors.h"
#include "plat/messages.h"
#include "plat/threads.h"
#include "plat/windows.h"

namespace plat {
namespace {

constexpr UINT kAsk = WM_APP + 3;

LRESULT firstProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    return message == kAsk ? 1 : DefWindowProcW(hwnd, message, wParam, lParam);
}

LRESULT secondProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    return message == kAsk ? static_cast<LRESULT>(wParam) * 2 : DefWindowProcW(hwnd, message, wParam, lParam);
}

// A window of a class of its own, made with a null module (the program); skipped where the system has no
// window driver (a Wine prefix without a display or the null driver).
HWND makeWindow(const char16_t* className) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = &firstProcedure;
    windowClass.lpszClassName = className;
    EXPECT_NE(RegisterClassW(&windowClass), 0);
    return CreateWindowExW(0, className, u"", 0, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
}

TEST(Win32Windows, TheClassProcedureAnswersAndGwlpWndProcSwapsIt) {
    HWND window = makeWindow(u"VelqWin32SwapClass");
    if (window == nullptr) {
        GTEST_SKIP() << "no window driver here (last error " << GetLastError() << ")";
    }
    EXPECT_EQ(SendMessageW(window, kAsk, 21, 0), 1);
    EXPECT_EQ(GetWindowLongPtrW(window, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(&firstProcedure));
    const LONG_PTR previous =
        SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&secondProcedure));
    EXPECT_EQ(previous, reinterpret_cast<LONG_PTR>(&firstProcedure));
    EXPECT_EQ(SendMessageW(window, kAsk, 21, 0), 42);
    EXPECT_EQ(PostMessageW(window, kAsk, 5, 0), TRUE);
    MSG msg{};
    ASSERT_EQ(PeekMessageW(&msg, window, kAsk, kAsk, PM_REMOVE), TRUE);
    EXPECT_EQ(DispatchMessageW(&msg), 10);
    EXPECT_EQ(DestroyWindow(window), TRUE);
    EXPECT_EQ(GetWindowLongPtrW(window, GWLP_WNDPROC), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(Win32Windows, UserDataOfZeroLeavesTheLastErrorAtZero) {
    HWND window = makeWindow(u"VelqWin32DataClass");
    if (window == nullptr) {
        GTEST_SKIP() << "no window driver here (last error " << GetLastError() << ")";
    }
    SetLastError(77);
    EXPECT_EQ(SetWindowLongPtrW(window, GWLP_USERDATA, 9), 0);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(GetWindowLongPtrW(window, GWLP_USERDATA), 9);
    DWORD process = 0;
    EXPECT_EQ(GetWindowThreadProcessId(window, &process), GetCurrentThreadId());
    EXPECT_NE(process, 0u);
    EXPECT_EQ(DestroyWindow(window), TRUE);
}

TEST(Win32Windows, PlacementVisibilityAndControlsReachTheApi) {
    HWND dialog = makeWindow(u"VelqWin32PlaceClass");
    if (dialog == nullptr) {
        GTEST_SKIP() << "no window driver here (last error " << GetLastError() << ")";
    }
    EXPECT_EQ(IsWindowVisible(dialog), FALSE);
    ShowWindow(dialog, SW_SHOW);
    EXPECT_EQ(IsWindowVisible(dialog), TRUE);
    EXPECT_EQ(SetWindowPos(dialog, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE), TRUE);
    EXPECT_EQ(MoveWindow(dialog, 5, 5, 200, 100, FALSE), TRUE);
    // A child's menu handle is its control id, as in a dialog template.
    HWND control =
        CreateWindowExW(0, u"VelqWin32PlaceClass", u"", WS_CHILD, 0, 0, 10, 10, dialog,
                        reinterpret_cast<HMENU>(std::uintptr_t{IDC_ERROR_COUNT}), nullptr, nullptr);
    ASSERT_NE(control, nullptr);
    EXPECT_EQ(GetDlgItem(dialog, IDC_ERROR_COUNT), control);
    EXPECT_EQ(SetDlgItemTextW(dialog, IDC_ERROR_COUNT, u"3"), TRUE);
    WCHAR text[8] = {};
    EXPECT_EQ(GetWindowTextW(control, text, 8), 1);
    EXPECT_EQ(std::u16string(text), u"3");
    EXPECT_EQ(GetDlgItem(dialog, IDC_ERROR_COPY), nullptr);
    ShowWindow(dialog, SW_HIDE);
    EXPECT_EQ(IsWindowVisible(dialog), FALSE);
    EXPECT_EQ(DestroyWindow(dialog), TRUE);
    EXPECT_EQ(IsWindow(control), FALSE);
}

}  // namespace
}  // namespace plat
