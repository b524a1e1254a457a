// Files through the Win32 forwards: what the crypt engine stores and reads back must reach the API as
// Windows values, and 64-bit positions and sizes must cross the DWORD/LONG halves intact.
#include <gtest/gtest.h>

#include <cstring>

#include "plat/errors.h"
#include "plat/files.h"
#include "plat/paths.h"
#include "win32/win32_test_support.h"

namespace plat {
namespace {

HANDLE createFile(const std::u16string& path, DWORD share, DWORD disposition, DWORD attributes) {
    return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, disposition, attributes,
                       nullptr);
}

TEST(Win32Files, AttributesOfAPosixBuildLoseTheirModeAndKeepReadOnly) {
    test::TempFolder folder;
    const std::u16string path = folder.path(u"from-linux.txt");
    // Mode 0100444 in the high half: as API flags those bits would ask for write-through, POSIX
    // semantics and more.
    const DWORD stored = (0100444u << 16) | FILE_ATTRIBUTE_UNIX_EXTENSION | FILE_ATTRIBUTE_READONLY;
    HANDLE file = createFile(path, 0, CREATE_NEW, stored);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << GetLastError();
    DWORD written = 0;
    EXPECT_EQ(WriteFile(file, "data", 4, &written, nullptr), TRUE);
    EXPECT_EQ(written, 4u);
    CloseHandle(file);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    EXPECT_NE(attributes & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_EQ(attributes & FILE_ATTRIBUTE_UNIX_EXTENSION, 0u);
    EXPECT_EQ(DeleteFileW(path.c_str()), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SetFileAttributesW(path.c_str(), (0100644u << 16) | FILE_ATTRIBUTE_UNIX_EXTENSION), TRUE);
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_EQ(DeleteFileW(path.c_str()), TRUE);
}

TEST(Win32Files, ExclusiveShareModeRefusesASecondOpenWithSharingViolation) {
    test::TempFolder folder;
    const std::u16string path = folder.path(u"held.bin");
    HANDLE first = createFile(path, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL);
    ASSERT_NE(first, INVALID_HANDLE_VALUE);
    EXPECT_EQ(createFile(path, FILE_SHARE_READ, OPEN_EXISTING, 0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    CloseHandle(first);
    EXPECT_EQ(createFile(path, 0, CREATE_NEW, 0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
}

TEST(Win32Files, PositionsAndSizesPastFourGiBKeepTheirHighHalf) {
    test::TempFolder folder;
    HANDLE file = createFile(folder.path(u"big.bin"), 0, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    LONG high = 1;
    EXPECT_EQ(SetFilePointer(file, 0x10, &high, FILE_BEGIN), 0x10u);
    EXPECT_EQ(high, 1);
    ASSERT_EQ(SetEndOfFile(file), TRUE) << GetLastError();
    DWORD sizeHigh = 0;
    EXPECT_EQ(GetFileSize(file, &sizeHigh), 0x10u);
    EXPECT_EQ(sizeHigh, 1u);
    LARGE_INTEGER size{};
    ASSERT_EQ(GetFileSizeEx(file, &size), TRUE);
    EXPECT_EQ(size.QuadPart, 0x100000010LL);
    LARGE_INTEGER position{};
    EXPECT_EQ(SetFilePointerEx(file, LARGE_INTEGER{-0x10}, &position, FILE_END), TRUE);
    EXPECT_EQ(position.QuadPart, 0x100000000LL);
    EXPECT_EQ(SetEndOfFile(file), TRUE);  // the sparse length goes again before the folder does
    CloseHandle(file);
}

TEST(Win32Files, FindFillsTheLayersRecordAndEndsWithNoMoreFiles) {
    test::TempFolder folder;
    HANDLE file = createFile(folder.path(u"a.lqvz"), 0, CREATE_NEW, FILE_ATTRIBUTE_NORMAL);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    WriteFile(file, "12345", 5, &written, nullptr);
    CloseHandle(file);
    WIN32_FIND_DATAW found{};
    HANDLE find = FindFirstFileW(folder.path(u"*.lqvz").c_str(), &found);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(std::u16string(found.cFileName), u"a.lqvz");
    EXPECT_EQ(found.nFileSizeLow, 5u);
    EXPECT_EQ(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_EQ(FindNextFileW(find, &found), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    EXPECT_EQ(FindClose(find), TRUE);
    EXPECT_EQ(FindFirstFileW(folder.path(u"*.none").c_str(), &found), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(Win32Paths, HelpersWorkOnBackslashesAndPassNullOn) {
    const std::u16string path = u"C:\\dir.v2\\name.tar.lqvz";
    EXPECT_EQ(std::u16string(PathFindExtensionW(path.c_str())), u".lqvz");
    EXPECT_EQ(std::u16string(PathFindFileNameW(path.c_str())), u"name.tar.lqvz");
    EXPECT_EQ(*PathFindExtensionW(u"C:\\dir.v2\\name"), u'\0');
    EXPECT_EQ(PathFindExtensionW(nullptr), nullptr);
    EXPECT_EQ(PathFindFileNameW(nullptr), nullptr);
    EXPECT_EQ(CharLowerW(nullptr), nullptr);
    std::u16string text = u"ÄBC.LQVZ";
    EXPECT_EQ(std::u16string(CharLowerW(text.data())), u"äbc.lqvz");
    WCHAR temp[MAX_PATH + 1] = {};
    const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(temp[length - 1], u'\\');
    EXPECT_EQ(PathFileExistsW(temp), TRUE);
}

}  // namespace
}  // namespace plat
