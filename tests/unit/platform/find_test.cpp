// Finding files as the core's folder walk uses it, on every system; the private temporary folder's rules
// (TMPDIR, modes, links) are POSIX's alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "plat/errors.h"
#include "plat/files.h"
#include "plat/paths.h"
#include "plat/strings.h"
#include "temp_folder.h"

#ifndef _WIN32
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

class Find : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(m_folder.path().empty()); }

    void touch(const std::string& name, std::size_t size = 0) const {
        std::ofstream(m_folder.path() / velq_test::pathOfUtf8(name), std::ios::binary)
            << std::string(size, '\0');
    }
    void makeFolder(const std::string& name) const {
        ASSERT_TRUE(std::filesystem::create_directory(m_folder.path() / name));
    }

    // Every entry the search gives, in order, with its data.
    std::vector<plat::WIN32_FIND_DATAW> list(const std::string& pattern) const {
        std::vector<plat::WIN32_FIND_DATAW> found;
        plat::WIN32_FIND_DATAW data{};
        plat::HANDLE h = plat::FindFirstFileW(plat::fromUtf8(m_prefix + pattern).c_str(), &data);
        if (h == plat::INVALID_HANDLE_VALUE) {
            return found;
        }
        do {
            found.push_back(data);
        } while (plat::FindNextFileW(h, &data));
        EXPECT_EQ(plat::GetLastError(), plat::ERROR_NO_MORE_FILES);
        EXPECT_TRUE(plat::FindClose(h));
        return found;
    }

    std::vector<std::string> names(const std::string& pattern) const {
        std::vector<std::string> result;
        for (const auto& data : list(pattern)) {
            result.push_back(plat::toUtf8(data.cFileName));
        }
        return result;
    }

    velq_test::TempFolder m_folder{"velq-find-"};
    // The folder and its separator, in UTF-8.
    std::string m_root = velq_test::utf8Of(m_folder.path());
    std::string m_prefix = m_root + static_cast<char>(plat::kPathSeparator);
};

TEST_F(Find, StarDotStarListsEverythingWithDotsFirst) {
    touch("a.txt");
    touch("noext");
    makeFolder("sub");
    for (const char* pattern : {"*.*", "*"}) {
        std::vector<std::string> found = names(pattern);
        ASSERT_EQ(found.size(), 5u) << pattern;
        EXPECT_EQ(found[0], ".");
        EXPECT_EQ(found[1], "..");
        std::sort(found.begin() + 2, found.end());
        EXPECT_EQ(found[2], "a.txt");
        EXPECT_EQ(found[3], "noext");
        EXPECT_EQ(found[4], "sub");
    }
}

TEST_F(Find, EntriesCarryAttributesAndSize) {
    touch("big.bin", 70000);
    makeFolder("sub");
#ifndef _WIN32
    // Links to folders are POSIX's everyday (on Windows they need a privilege): one is listed as a link.
    ASSERT_EQ(::symlink((m_root + "/sub").c_str(), (m_root + "/loop").c_str()), 0);
#endif
    for (const auto& data : list("*")) {
        const std::string name = plat::toUtf8(data.cFileName);
        EXPECT_EQ(data.cAlternateFileName[0], u'\0');
        if (name == "big.bin") {
            EXPECT_EQ(data.nFileSizeLow, 70000u);
            EXPECT_EQ(data.nFileSizeHigh, 0u);
            // A plain file: FILE_ATTRIBUTE_NORMAL here, FILE_ATTRIBUTE_ARCHIVE as Windows makes it.
            EXPECT_EQ(
                data.dwFileAttributes & (plat::FILE_ATTRIBUTE_DIRECTORY | plat::FILE_ATTRIBUTE_READONLY |
                                         plat::FILE_ATTRIBUTE_REPARSE_POINT),
                0u);
            EXPECT_GT(data.ftLastWriteTime.dwHighDateTime, 0u);
        } else if (name == "loop") {
            // A link to a folder must not be walked into.
            EXPECT_EQ(data.dwFileAttributes & plat::FILE_ATTRIBUTE_DIRECTORY, 0u);
            EXPECT_NE(data.dwFileAttributes & plat::FILE_ATTRIBUTE_REPARSE_POINT, 0u);
        } else {
            EXPECT_NE(data.dwFileAttributes & plat::FILE_ATTRIBUTE_DIRECTORY, 0u) << name;
        }
    }
}

TEST_F(Find, WildcardsMatchWithoutRegardToCase) {
    touch("one.lqvz");
    touch("TWO.LQVZ");
    touch("three.lqvz.txt");
    touch("Ωmega.lqvz");
    std::vector<std::string> found = names("*.LqVz");
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{"TWO.LQVZ", "one.lqvz", "Ωmega.lqvz"}));
    EXPECT_EQ(names("?wo.*"), std::vector<std::string>{"TWO.LQVZ"});
    EXPECT_EQ(names("ωMEGA.*"), std::vector<std::string>{"Ωmega.lqvz"});
}

TEST_F(Find, MissingFolderGivesThreeAndNoMatchGivesTwo) {
    plat::WIN32_FIND_DATAW data{};
    EXPECT_EQ(
        plat::FindFirstFileW(
            plat::fromUtf8(m_prefix + "missing" + static_cast<char>(plat::kPathSeparator) + "*.*").c_str(),
            &data),
        plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(plat::FindFirstFileW(plat::fromUtf8(m_prefix + "*.lqvz").c_str(), &data),
              plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_FILE_NOT_FOUND);
}

TEST_F(Find, HandlesOfOtherKindsAreRefused) {
    plat::WIN32_FIND_DATAW data{};
    EXPECT_FALSE(plat::FindNextFileW(plat::INVALID_HANDLE_VALUE, &data));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_INVALID_HANDLE);
    touch("f");
    plat::HANDLE file = plat::CreateFileW(plat::fromUtf8(m_prefix + "f").c_str(), plat::GENERIC_READ, 0,
                                          nullptr, plat::OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(file, plat::INVALID_HANDLE_VALUE);
    EXPECT_FALSE(plat::FindClose(file));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_INVALID_HANDLE);
    plat::CloseHandle(file);
}

#ifndef _WIN32
// The private temporary folder, under a TMPDIR of the test's own. On Windows the folder is the system's
// (the user's own profile), taken as it is.
class TempPath : public Find {
protected:
    void SetUp() override {
        Find::SetUp();
        const char* old = ::getenv("TMPDIR");
        m_hadTmpdir = old != nullptr;
        m_oldTmpdir = old != nullptr ? old : "";
        ::setenv("TMPDIR", m_root.c_str(), 1);
        m_private = m_root + "/velq-" + std::to_string(::geteuid());
    }
    void TearDown() override {
        if (m_hadTmpdir) {
            ::setenv("TMPDIR", m_oldTmpdir.c_str(), 1);
        } else {
            ::unsetenv("TMPDIR");
        }
        Find::TearDown();
    }

    bool m_hadTmpdir = false;
    std::string m_oldTmpdir;
    std::string m_private;
};

TEST_F(TempPath, CreatesAPrivateFolderAndFollowsTheReturnRules) {
    plat::WCHAR buffer[plat::MAX_PATH];
    const plat::DWORD length = plat::GetTempPathW(plat::MAX_PATH, buffer);
    const std::u16string expected = plat::fromUtf8(m_private + "/");
    ASSERT_EQ(length, expected.size());
    EXPECT_EQ(std::u16string(buffer), expected);
    struct stat st {};
    ASSERT_EQ(::lstat(m_private.c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0700u);

    plat::WCHAR small[4] = {u'k', u'e', u'e', u'p'};
    EXPECT_EQ(plat::GetTempPathW(4, small), expected.size() + 1);
    EXPECT_EQ(small[0], u'k');
    EXPECT_EQ(plat::GetTempPathW(length, buffer), expected.size() + 1);  // no room for the NUL
}

TEST_F(TempPath, RefusesAPlantedLinkAndAForeignMode) {
    makeFolder("elsewhere");
    ASSERT_EQ(::symlink((m_root + "/elsewhere").c_str(), m_private.c_str()), 0);
    plat::WCHAR buffer[plat::MAX_PATH];
    EXPECT_EQ(plat::GetTempPathW(plat::MAX_PATH, buffer), 0u);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_ACCESS_DENIED);

    ASSERT_EQ(::unlink(m_private.c_str()), 0);
    ASSERT_EQ(::mkdir(m_private.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(m_private.c_str(), 0777), 0);
    EXPECT_EQ(plat::GetTempPathW(plat::MAX_PATH, buffer), 0u);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_ACCESS_DENIED);
}

TEST_F(TempPath, FilesThereAreExclusiveAndOwnerReadOnly) {
    plat::WCHAR buffer[plat::MAX_PATH];
    ASSERT_GT(plat::GetTempPathW(plat::MAX_PATH, buffer), 0u);
    const std::string file = m_private + "/a.txt";
    plat::HANDLE h =
        plat::CreateFileW(plat::fromUtf8(file).c_str(), plat::GENERIC_READ | plat::GENERIC_WRITE, 0, nullptr,
                          plat::CREATE_ALWAYS, plat::FILE_ATTRIBUTE_READONLY, nullptr);
    ASSERT_NE(h, plat::INVALID_HANDLE_VALUE);
    plat::DWORD written = 0;
    EXPECT_TRUE(plat::WriteFile(h, "plain", 5, &written, nullptr));
    plat::CloseHandle(h);
    struct stat st {};
    ASSERT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0400u);

    // A link placed under the name is never written through.
    const std::string link = m_private + "/b.txt";
    ASSERT_EQ(::symlink((m_root + "/target").c_str(), link.c_str()), 0);
    EXPECT_EQ(plat::CreateFileW(plat::fromUtf8(link).c_str(), plat::GENERIC_WRITE, 0, nullptr,
                                plat::CREATE_ALWAYS, plat::FILE_ATTRIBUTE_READONLY, nullptr),
              plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_FILE_EXISTS);
    EXPECT_NE(::access((m_root + "/target").c_str(), F_OK), 0);
}
#endif

}  // namespace
