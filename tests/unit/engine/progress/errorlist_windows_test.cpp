// Where the error list stands on Windows, measured by the system itself (the API's macros stand in the way
// of the platform layer's names, so this case has a file of its own).
#ifdef _WIN32
#include <gtest/gtest.h>

#include <thread>

#include "progress/progress_doubles.h"
#include "win32/wide.h"

namespace {

// The list stands at 40, 40 with the size its template gives in dialog units, which is more than 299 by
// 131 pixels with any font: a size in pixels would cut its list and buttons off.
TEST(ErrorListWindow, KeepsItsTemplatesSizeAtFortyFromTheCorner) {
    progress_test::reset();
    progress_test::world().bCloseListAtStop = false;
    progress_test::world().files[u"/a"] = progress_test::script({100}, {}, CRYPT_E_WRITE);
    std::thread batch([] {
        VELQCryptFile engine({u"/a"}, 1);
        engine.beginCryptFiles(CRYPT_MODE_ENCRYPT);
    });
    while (progress_test::eventsStartingWith("stop").empty()) {
        ::Sleep(5);
    }
    const ::HWND dialog = ::FindWindowW(nullptr, L"Message");
    ::RECT rect{};
    EXPECT_TRUE(::GetWindowRect(dialog, &rect));
    ::PostMessageW(dialog, WM_CLOSE, 0, 0);
    batch.join();
    EXPECT_EQ(rect.left, 40);
    EXPECT_EQ(rect.top, 40);
    EXPECT_GT(rect.right - rect.left, 299);
    EXPECT_GT(rect.bottom - rect.top, 131);
}

}  // namespace
#endif
