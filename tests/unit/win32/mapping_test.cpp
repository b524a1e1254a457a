// Views of file mappings through the Win32 forwards, and the in-page error: a fault in a view becomes
// the thread's mark for TakeInPageError, the view reads as zeros until it is unmapped, and faults
// anywhere else go on to the next handler untouched.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "plat/file_mapping.h"
#include "plat/files.h"
#include "plat/named.h"
#include "win32/win32_test_support.h"
// After the plat headers: <windows.h> turns their names into macros.
#include <windows.h>

namespace {

constexpr std::size_t kViewBytes = 65536;

// Raises the exception that Windows raises when a view's page cannot be read, for `address`.
void raiseInPageError(const void* address) {
    const ULONG_PTR details[3] = {0, reinterpret_cast<ULONG_PTR>(address), 0xC000009C};
    ::RaiseException(EXCEPTION_IN_PAGE_ERROR, 0, 3, details);
}

std::atomic<int> g_passedOn{0};

// Registered after the layer's handler: sees what the layer did not take, and lets the program go on.
LONG CALLBACK countPassedOn(EXCEPTION_POINTERS* info) {
    if (info->ExceptionRecord->ExceptionCode != EXCEPTION_IN_PAGE_ERROR) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    g_passedOn.fetch_add(1);
    return EXCEPTION_CONTINUE_EXECUTION;
}

class Win32Views : public ::testing::Test {
protected:
    void SetUp() override {
        const std::u16string path = m_folder.path(u"source.bin");
        m_hFile = plat::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(m_hFile, reinterpret_cast<plat::HANDLE>(INVALID_HANDLE_VALUE));
        const std::vector<char> bytes(2 * kViewBytes, 'v');
        plat::DWORD written = 0;
        ASSERT_EQ(plat::WriteFile(m_hFile, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr),
                  TRUE);
        m_hMapping = plat::CreateFileMappingW(m_hFile, nullptr, PAGE_READWRITE, 0, 0, nullptr);
        ASSERT_NE(m_hMapping, nullptr);
        plat::TakeInPageError();
    }
    void TearDown() override {
        plat::CloseHandle(m_hMapping);
        plat::CloseHandle(m_hFile);
    }

    plat::test::TempFolder m_folder;
    plat::HANDLE m_hFile = nullptr;
    plat::HANDLE m_hMapping = nullptr;
};

TEST_F(Win32Views, AnInPageErrorMarksTheThreadAndTheViewReadsZerosUntilUnmapped) {
    auto* view =
        static_cast<char*>(plat::MapViewOfFile(m_hMapping, FILE_MAP_WRITE, 0, kViewBytes, kViewBytes));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view[10], 'v');
    raiseInPageError(view + 10);
    EXPECT_EQ(view[10], '\0');
    EXPECT_EQ(view[kViewBytes - 1], '\0');
    view[0] = 'w';  // still writable: the block's work finishes on the stand-in
    EXPECT_EQ(plat::UnmapViewOfFile(view), TRUE);
    EXPECT_EQ(plat::TakeInPageError(), TRUE);
    EXPECT_EQ(plat::TakeInPageError(), FALSE);
    // The file keeps its bytes: nothing of the stand-in is written back.
    auto* again = static_cast<const char*>(plat::MapViewOfFile(m_hMapping, FILE_MAP_READ, 0, kViewBytes, 0));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again[0], 'v');
    EXPECT_EQ(plat::UnmapViewOfFile(again), TRUE);
}

TEST_F(Win32Views, FaultsOutsideTheViewsGoOnToTheNextHandler) {
    void* next = ::AddVectoredExceptionHandler(0, &countPassedOn);
    ASSERT_NE(next, nullptr);
    g_passedOn = 0;
    auto* view = static_cast<char*>(plat::MapViewOfFile(m_hMapping, FILE_MAP_READ, 0, 0, kViewBytes));
    ASSERT_NE(view, nullptr);
    const char local = 'x';
    raiseInPageError(&local);
    raiseInPageError(view + kViewBytes);  // just past the view
    EXPECT_EQ(g_passedOn.load(), 2);
    EXPECT_EQ(view[0], 'v');
    EXPECT_EQ(plat::UnmapViewOfFile(view), TRUE);
    EXPECT_EQ(plat::TakeInPageError(), FALSE);
    ::RemoveVectoredExceptionHandler(next);
}

TEST_F(Win32Views, TheMarkBelongsToTheThreadWhoseViewFailed) {
    auto* view = static_cast<char*>(plat::MapViewOfFile(m_hMapping, FILE_MAP_READ, 0, 0, kViewBytes));
    ASSERT_NE(view, nullptr);
    struct Work {
        char* view;
        plat::BOOL markSeen;
    } work{view, FALSE};
    plat::HANDLE thread = plat::beginThread(
        [](void* arg) -> unsigned {
            auto* w = static_cast<Work*>(arg);
            raiseInPageError(w->view);
            w->markSeen = plat::TakeInPageError();
            return 0;
        },
        &work);
    ASSERT_NE(thread, nullptr);
    plat::WaitForSingleObject(thread, INFINITE);
    plat::CloseHandle(thread);
    EXPECT_EQ(work.markSeen, TRUE);
    EXPECT_EQ(plat::TakeInPageError(), FALSE);
    EXPECT_EQ(plat::UnmapViewOfFile(view), TRUE);
}

TEST_F(Win32Views, VirtualQueryTellsHowFarAViewMayBeRead) {
    auto* view = static_cast<char*>(plat::MapViewOfFile(m_hMapping, FILE_MAP_READ, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    plat::MEMORY_BASIC_INFORMATION info{};
    ASSERT_EQ(plat::VirtualQuery(view + 4096, &info, sizeof(info)), sizeof(info));
    EXPECT_EQ(info.BaseAddress, view + 4096);
    EXPECT_EQ(info.AllocationBase, view);
    EXPECT_EQ(info.RegionSize, 2 * kViewBytes - 4096);
    EXPECT_EQ(plat::UnmapViewOfFile(view), TRUE);
    EXPECT_EQ(plat::UnmapViewOfFile(view), FALSE);
}

}  // namespace
