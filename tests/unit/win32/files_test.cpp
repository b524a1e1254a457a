// Files through the Win32 forwards: what the crypt engine stores and reads back must reach the API as
// Windows values. (The platform folder's files, find and paths tests run against the same forwards.)
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

TEST(Win32Paths, TheTemporaryFolderExistsAndEndsWithASeparator) {
    WCHAR temp[MAX_PATH + 1] = {};
    const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(temp[length - 1], u'\\');
    EXPECT_EQ(PathFileExistsW(temp), TRUE);
}

}  // namespace
}  // namespace plat
