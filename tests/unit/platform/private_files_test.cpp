// The calls whose bodies differ by system under the common component, the debug log, the scripted UI and
// the velq tool: secret files, private streams, the process's account and folders, started programs.
// Written against the layer's promises only, so that the same cases run on POSIX and under Windows.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "plat/child_process.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/secret_files.h"
#include "plat/security.h"
#include "plat/streams.h"
#include "plat/strings.h"
#include "plat/sync.h"
#include "plat/system.h"
#include "plat/user_account.h"

namespace {

namespace fs = std::filesystem;

constexpr plat::DWORD kFileExists = 80;
constexpr plat::DWORD kInvalidData = 13;

// A scratch folder of the test's own under the system's temporary folder, removed with its content.
class PrivateFiles : public ::testing::Test {
protected:
    void SetUp() override {
        std::random_device random;
        m_root = fs::temp_directory_path() / ("velq-private-" + std::to_string(random()));
        ASSERT_TRUE(fs::create_directory(m_root));
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(m_root, ignored);
    }

    std::u16string path(const std::string& name) const { return (m_root / name).u16string(); }

    std::string contentOf(const std::string& name) const {
        std::vector<unsigned char> bytes;
        if (!plat::readSmallFile(path(name).c_str(), 1 << 16, bytes)) {
            return "<unreadable " + std::to_string(plat::GetLastError()) + ">";
        }
        return std::string(bytes.begin(), bytes.end());
    }

    bool write(const std::string& temp, const std::string& target, const std::string& text, bool replace) {
        return plat::writeSecretFile(path(temp).c_str(), path(target).c_str(), text.data(), text.size(),
                                     replace ? plat::TRUE : plat::FALSE) != plat::FALSE;
    }

    fs::path m_root;
};

TEST_F(PrivateFiles, SecretFileReplacesTheTargetWholeAndLeavesNoTemp) {
    ASSERT_TRUE(write("a.tmp", "a", "first", true));
    ASSERT_TRUE(write("b.tmp", "a", "second content", true));
    EXPECT_EQ(contentOf("a"), "second content");
    EXPECT_FALSE(fs::exists(m_root / "a.tmp"));
    EXPECT_FALSE(fs::exists(m_root / "b.tmp"));
}

TEST_F(PrivateFiles, ExclusiveSecretFileKeepsTheFirstContent) {
    ASSERT_TRUE(write("a.tmp", "key", "first", false));
    EXPECT_FALSE(write("b.tmp", "key", "second", false));
    EXPECT_EQ(plat::GetLastError(), kFileExists);
    EXPECT_EQ(contentOf("key"), "first");
    EXPECT_FALSE(fs::exists(m_root / "b.tmp")) << "the temp goes whatever happened";
}

TEST_F(PrivateFiles, SecretFileNeverWritesThroughAnExistingTempName) {
    ASSERT_TRUE(write("x", "planted", "planted", true));
    EXPECT_FALSE(write("planted", "target", "secret", true));
    EXPECT_EQ(plat::GetLastError(), kFileExists);
    EXPECT_EQ(contentOf("planted"), "planted");
    EXPECT_FALSE(fs::exists(m_root / "target"));
}

TEST_F(PrivateFiles, SmallFilesAreReadWholeAndRefusedWhenTooLongOrNotFiles) {
    ASSERT_TRUE(write("t", "five", "12345", true));
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(plat::readSmallFile(path("five").c_str(), 5, bytes));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "12345");

    EXPECT_FALSE(plat::readSmallFile(path("five").c_str(), 4, bytes));
    EXPECT_EQ(plat::GetLastError(), kInvalidData);
    EXPECT_TRUE(bytes.empty());

    fs::create_directory(m_root / "folder");
    EXPECT_FALSE(plat::readSmallFile(path("folder").c_str(), 100, bytes));
    EXPECT_EQ(plat::GetLastError(), kInvalidData);

    EXPECT_FALSE(plat::readSmallFile(path("missing").c_str(), 100, bytes));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_FILE_NOT_FOUND);
}

TEST_F(PrivateFiles, PrivateFolderMakesItsParentsAndRefusesAFileInTheWay) {
    const std::u16string nested = path("a") + u"/b/c";
    ASSERT_TRUE(plat::createPrivateFolder(nested.c_str()));
    EXPECT_TRUE(fs::is_directory(m_root / "a" / "b" / "c"));
    EXPECT_TRUE(plat::createPrivateFolder(nested.c_str())) << "an existing folder is fine";

    ASSERT_TRUE(write("t", "file", "x", true));
    const std::u16string below = path("file") + u"/d";
    EXPECT_FALSE(plat::createPrivateFolder(below.c_str()));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(plat::createPrivateFolder(path("file").c_str()));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_PATH_NOT_FOUND);
}

TEST_F(PrivateFiles, StreamsAppendReplaceAndReadTheSameBytes) {
    const std::u16string log = path("log.txt");
    for (const char* line : {"one\n", "two\r\n"}) {
        std::FILE* out = plat::openStream(log, plat::StreamMode::kAppend);
        ASSERT_NE(out, nullptr);
        std::fputs(line, out);
        std::fclose(out);
    }
    EXPECT_EQ(contentOf("log.txt"), "one\ntwo\r\n") << "binary on every system";

    std::FILE* replaced = plat::openStream(log, plat::StreamMode::kReplace);
    ASSERT_NE(replaced, nullptr);
    std::fputs("new\n", replaced);
    std::fclose(replaced);

    std::FILE* in = plat::openStream(log, plat::StreamMode::kRead);
    ASSERT_NE(in, nullptr);
    char buffer[16] = {};
    EXPECT_NE(std::fgets(buffer, sizeof buffer, in), nullptr);
    std::fclose(in);
    EXPECT_STREQ(buffer, "new\n");
}

TEST_F(PrivateFiles, StreamsInAMissingFolderFailWithENOENT) {
    errno = 0;
    EXPECT_EQ(plat::openStream(path("no/such.txt"), plat::StreamMode::kAppend), nullptr);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(plat::openStream(path("missing.txt"), plat::StreamMode::kRead), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(PrivateFiles, WholeAppendsFollowEachOtherAndFailingOnesSayWhy) {
    std::string failure;
    ASSERT_TRUE(plat::appendWhole(path("t.jsonl"), "{\"a\":1}\n", failure)) << failure;
    ASSERT_TRUE(plat::appendWhole(path("t.jsonl"), "{\"b\":2}\n", failure)) << failure;
    EXPECT_EQ(contentOf("t.jsonl"), "{\"a\":1}\n{\"b\":2}\n");

    EXPECT_FALSE(plat::appendWhole(path("no/t.jsonl"), "x", failure));
    EXPECT_FALSE(failure.empty());
}

TEST(UserAccount, OwnerIsAmongTheMachinesAccountsWithTheTokensSid) {
    plat::UserAccount owner;
    ASSERT_TRUE(plat::processOwnerAccount(owner));
    EXPECT_FALSE(owner.name.empty());
    EXPECT_EQ(owner.sidText, plat::processOwnerSidText()) << "the key's binding and the user's SID agree";

    bool listed = false;
    for (const plat::UserAccount& account : plat::machineAccounts()) {
        listed = listed || (account.sidText == owner.sidText && account.id == owner.id);
    }
    EXPECT_TRUE(listed) << plat::toUtf8(owner.name) << " is not in the machine's list";
}

TEST(UserAccount, FoldersAreAbsoluteWithoutTrailingSeparators) {
    for (const std::u16string& folder : {plat::userDataFolder(), plat::userHomeFolder()}) {
        ASSERT_FALSE(folder.empty());
        EXPECT_TRUE(fs::path(folder).is_absolute()) << plat::toUtf8(folder);
        EXPECT_NE(folder.back(), u'/');
        EXPECT_NE(folder.back(), u'\\');
    }
    EXPECT_FALSE(plat::hostName().empty());
    EXPECT_TRUE(fs::path(plat::defaultLogFile()).is_absolute());
}

// The test program itself is the child: gtest's exit status says whether the tests it ran passed.
std::u16string thisProgram() {
    char16_t path[plat::MAX_PATH + 1] = {};
    const plat::DWORD length = plat::GetModuleFileNameW(nullptr, path, plat::MAX_PATH + 1);
    return length == 0 || length > plat::MAX_PATH ? std::u16string() : std::u16string(path, length);
}

constexpr char16_t kChildMarker[] = u"ChildProcessMarker.OnlyInTheChild";

TEST(ChildProcess, HelperThatFailsOnPurpose) {
    if (GTEST_FLAG_GET(filter).find(plat::toUtf8(kChildMarker)) == std::string::npos) {
        GTEST_SKIP() << "runs only as the child of ChildProcess.ExitStatusAndFailures";
    }
    ADD_FAILURE() << "failing on purpose for the parent";
}

TEST(ChildProcess, ExitStatusAndFailures) {
    const std::u16string program = thisProgram();
    ASSERT_FALSE(program.empty());
    EXPECT_EQ(plat::programFolder(), fs::path(program).parent_path().u16string());

    plat::ChildProcess passing;
    std::string failure;
    ASSERT_TRUE(passing.start(program, u"--gtest_filter=NoSuchSuite.NoSuchTest", failure)) << failure;
    int status = -1;
    ASSERT_TRUE(passing.ended(plat::INFINITE, status));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(passing.endingSignal(), 0);

    plat::ChildProcess failing;
    const std::u16string filter =
        u"--gtest_filter=ChildProcess.HelperThatFailsOnPurpose:" + std::u16string(kChildMarker);
    ASSERT_TRUE(failing.start(program, filter, failure)) << failure;
    ASSERT_TRUE(failing.ended(plat::INFINITE, status));
    EXPECT_EQ(status, 1) << "the argument arrived whole, blanks and all, and the helper failed";

    plat::ChildProcess missing;
    EXPECT_FALSE(missing.start(program + u".missing", u"x", failure));
    EXPECT_FALSE(failure.empty());
    EXPECT_FALSE(missing.ended(0, status)) << "a program never started never ends";
}

TEST(ChildProcess, ProgramNamesAndVolumeRoots) {
    EXPECT_EQ(fs::path(plat::programFileName(u"VELQFileEncrypt")).stem().u16string(), u"VELQFileEncrypt");
    const fs::path root = fs::temp_directory_path().root_path();
    EXPECT_TRUE(plat::isVolumeRoot(root.u16string())) << root.string();
    EXPECT_FALSE(plat::isVolumeRoot((root / "velq-surely-missing-folder").u16string()));
}

}  // namespace
