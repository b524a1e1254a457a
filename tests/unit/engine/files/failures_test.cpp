// What a failed file leaves: the source (or the encrypted file) as it was, and nothing else.
#ifndef _WIN32
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sched.h>
#endif

#include "common/VELQUserInfo.h"
#include "files_fixture.h"
#include "plat/file_mapping.h"
#include "plat/ui.h"

namespace files_test {
namespace {

constexpr int kEFail = static_cast<int>(0x80004005);

using Names = std::set<std::string>;

// Decryption.

TEST_F(FilesTest, ExistingDestinationIsReplacedOnOkAndKeptOnCancel) {
    const Bytes plain = patternBytes(5000);
    writeAll(path("a.txt"), plain);
    ASSERT_EQ(encrypt(path("a.txt")), 0);
    writeAll(path("a.txt"), Bytes{'o', 't', 'h', 'e', 'r'});

    doubles().boxAnswers = {plat::IDCANCEL};
    EXPECT_EQ(decrypt(path("a.txt.lqvz")), CRYPT_E_CANCELED);
    EXPECT_TRUE(readAll(path("a.txt")) == (Bytes{'o', 't', 'h', 'e', 'r'})) << "a refused file was touched";
    EXPECT_EQ(files(), (Names{"a.txt", "a.txt.lqvz"}));
    ASSERT_EQ(doubles().boxes.size(), 1u);
    EXPECT_EQ(doubles().boxes[0], path("a.txt") +
                                      "\nThe file already exists. Would you like to replace the existing "
                                      "file? | Information | 262177");

    doubles().boxAnswers = {plat::IDOK};
    EXPECT_EQ(decrypt(path("a.txt.lqvz")), 0);
    EXPECT_TRUE(readAll(path("a.txt")) == plain);
    EXPECT_EQ(files(), (Names{"a.txt"}));
}

TEST_F(FilesTest, CancelWhileTheReplaceQuestionStandsKeepsTheFile) {
    writeAll(path("a.txt"), patternBytes(10));
    ASSERT_EQ(encrypt(path("a.txt")), 0);
    writeAll(path("a.txt"), Bytes{'x'});
    doubles().boxAnswers = {plat::IDOK};
    doubles().bCancelAtBox = true;
    EXPECT_EQ(decrypt(path("a.txt.lqvz")), CRYPT_E_CANCELED);
    EXPECT_TRUE(readAll(path("a.txt")) == Bytes{'x'});
    EXPECT_EQ(files(), (Names{"a.txt", "a.txt.lqvz"}));
}

TEST_F(FilesTest, AnotherUsersFileAndAnotherKeyCreateNothing) {
    writeAll(path("a.txt"), patternBytes(300));
    ASSERT_EQ(encrypt(path("a.txt")), 0);
    const Bytes encrypted = readAll(path("a.txt.lqvz"));

    EXPECT_EQ(decrypt(path("a.txt.lqvz"), new VELQUserInfo(4242, u"someone", u"elsewhere")),
              CRYPT_E_INVALID_FILE);
    EXPECT_EQ(files(), (Names{"a.txt.lqvz"}));

    ASSERT_EQ(saveNewRootKey(), 0);
    EXPECT_EQ(decrypt(path("a.txt.lqvz")), CRYPT_E_INVALID_KEY);
    EXPECT_EQ(files(), (Names{"a.txt.lqvz"}));
    EXPECT_TRUE(readAll(path("a.txt.lqvz")) == encrypted);
}

TEST_F(FilesTest, ChangedByteFailsWithoutDestinationOnBothPaths) {
    for (const std::size_t size : {std::size_t{70000}, std::size_t{10485760 + 3}}) {
        writeAll(path("a.txt"), patternBytes(size));
        ASSERT_EQ(encrypt(path("a.txt")), 0);
        Bytes encrypted = readAll(path("a.txt.lqvz"));
        encrypted[encrypted.size() - 40] ^= 0x01;
        std::filesystem::permissions(path("a.txt.lqvz"), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add);
        writeAll(path("a.txt.lqvz"), encrypted);
        const int nResult = decrypt(path("a.txt.lqvz"));
        EXPECT_TRUE(nResult == CRYPT_E_DECRYPT || nResult == CRYPT_E_CRC) << nResult;
        EXPECT_EQ(files(), (Names{"a.txt.lqvz"})) << size;
        EXPECT_TRUE(readAll(path("a.txt.lqvz")) == encrypted);
        std::filesystem::remove(path("a.txt.lqvz"));
    }
}

TEST_F(FilesTest, PlainFileInADecryptBatchIsInvalid) {
    writeAll(path("plain.txt"), patternBytes(2000));
    EXPECT_EQ(decrypt(path("plain.txt")), CRYPT_E_INVALID_FILE);
    EXPECT_EQ(files(), (Names{"plain.txt"}));
}

// Encryption.

TEST_F(FilesTest, StaleTemporaryFileFailsTheProofAndKeepsTheSource) {
    writeAll(path("a.txt"), patternBytes(100));
    plat::WCHAR temp[plat::MAX_PATH] = {};
    ASSERT_GT(plat::GetTempPathW(plat::MAX_PATH, temp), 0u);
    writeAll(privateTemp() + "/a.txt", Bytes{'s'});
    EXPECT_EQ(encrypt(path("a.txt")), CRYPT_E_WRITE);
    EXPECT_EQ(files(), (Names{"a.txt"}));
    EXPECT_EQ(tempFiles(), (Names{"a.txt"}));
    EXPECT_TRUE(readAll(privateTemp() + "/a.txt") == Bytes{'s'});
}

TEST_F(FilesTest, EncryptedFileBesideTheSourceStopsWithNeitherChanged) {
    writeAll(path("a.txt"), patternBytes(100));
    writeAll(path("a.txt.lqvz"), Bytes{'j', 'u', 'n', 'k'});
    EXPECT_EQ(encrypt(path("a.txt")), CRYPT_E_WRITE);
    EXPECT_TRUE(readAll(path("a.txt")) == patternBytes(100));
    EXPECT_TRUE(readAll(path("a.txt.lqvz")) == (Bytes{'j', 'u', 'n', 'k'}));
}

// Cancel after `nUpdates` blocks have been reported: the pass sees it at its next block.
void cancelAfterUpdates(int nUpdates) {
    doubles().onProgress = [nUpdates](int nSoFar) {
        if (nSoFar == nUpdates) {
            doubles().nCancelAfterPolls = 0;
        }
    };
}

TEST_F(FilesTest, CancelInEitherPassLeavesOnlyTheSource) {
    // 200000 bytes: four blocks in each pass; 10 MiB + 1: eleven blocks of the big paths.
    for (const std::size_t size : {std::size_t{200000}, std::size_t{10485761}}) {
        const int nBlocks = size < 10485760 ? 4 : 11;
        for (const int nCancelAt : {1, nBlocks + 1}) {
            resetDoubles();
            writeAll(path("a.txt"), patternBytes(size));
            cancelAfterUpdates(nCancelAt);
            EXPECT_EQ(encrypt(path("a.txt")), CRYPT_E_CANCELED) << size << " at " << nCancelAt;
            EXPECT_EQ(files(), (Names{"a.txt"}));
            EXPECT_TRUE(tempFiles().empty());
            EXPECT_TRUE(readAll(path("a.txt")) == patternBytes(size));
        }
    }
}

TEST_F(FilesTest, SourceCutDuringThePassFailsAndLosesNothing) {
    for (const std::size_t size : {std::size_t{200000}, std::size_t{3 * 1048576 + 10485760}}) {
        resetDoubles();
        writeAll(path("a.txt"), patternBytes(size));
        const std::string source = path("a.txt");
        doubles().onProgress = [source](int nSoFar) {
            if (nSoFar == 1) {
                std::error_code error;
                std::filesystem::resize_file(source, 1000, error);
                ASSERT_FALSE(error) << error.message();
            }
        };
        EXPECT_EQ(encrypt(source), kEFail) << size;
        EXPECT_EQ(files(), (Names{"a.txt"}));
        EXPECT_TRUE(tempFiles().empty());
    }
}

#ifdef _WIN32
// Windows keeps share modes per handle: a handle of this process opened with share mode 0 keeps the
// engine's own handle off the file exactly as another VELQ process's handle would.
TEST_F(FilesTest, SourceHeldByAnotherHandleGivesThirtyTwo) {
    writeAll(path("a.txt"), patternBytes(100));
    const format_test::ScopedHandle holder(format_test::openForReading(path("a.txt")));
    ASSERT_NE(holder.get(), plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(encrypt(path("a.txt")), static_cast<int>(plat::ERROR_SHARING_VIOLATION));
    EXPECT_EQ(files(), (Names{"a.txt"}));
}
#else
// On POSIX the share modes hold between processes: the holder is a child.
TEST_F(FilesTest, SourceHeldByAnotherProcessGivesThirtyTwo) {
    writeAll(path("a.txt"), patternBytes(100));
    int ready[2];
    int release[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(release), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        plat::HANDLE h =
            plat::CreateFileW(plat::fromUtf8(path("a.txt")).c_str(), plat::GENERIC_READ, 0, nullptr,
                              plat::OPEN_EXISTING, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
        char c = h != plat::INVALID_HANDLE_VALUE ? 'y' : 'n';
        (void)!::write(ready[1], &c, 1);
        (void)!::read(release[0], &c, 1);
        ::_exit(0);
    }
    char c = 0;
    ASSERT_EQ(::read(ready[0], &c, 1), 1);
    ASSERT_EQ(c, 'y');
    EXPECT_EQ(encrypt(path("a.txt")), static_cast<int>(plat::ERROR_SHARING_VIOLATION));
    (void)!::write(release[1], "x", 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    for (int fd : {ready[0], ready[1], release[0], release[1]}) {
        ::close(fd);
    }
    EXPECT_EQ(files(), (Names{"a.txt"}));
}

#endif

#ifndef _WIN32
// A full disk needs a small file system of our own: a child process in a mount namespace of its own
// mounts a small tmpfs, over the files' folder or over the temporary folder's parent.
class FullDisk : public FilesTest {
protected:
    // Runs `work` in a child whose `mountPoint` is a tmpfs of `options`; gives what `work` gave, 200 when
    // the child may not mount, 201 when its report did not arrive.
    template <typename Work>
    int onSmallDisk(const std::string& mountPoint, const char* options, Work work) {
        int report[2];
        if (::pipe(report) != 0) {
            return 201;
        }
        const pid_t child = ::fork();
        if (child == 0) {
            int nResult = 200;
            if (::unshare(CLONE_NEWNS) == 0 &&
                ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                ::mount("velq-full", mountPoint.c_str(), "tmpfs", 0, options) == 0) {
                nResult = work();
            }
            (void)!::write(report[1], &nResult, sizeof nResult);
            ::_exit(0);
        }
        int nResult = 201;
        if (child > 0 && ::read(report[0], &nResult, sizeof nResult) != sizeof nResult) {
            nResult = 201;
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        ::close(report[0]);
        ::close(report[1]);
        return nResult;
    }

    // The encryption of a big source of 10 MiB on a small disk at `mountPoint`: its result, or 202 when
    // the source changed or other files stayed.
    int encryptOnSmallDisk(const std::string& mountPoint, const char* options) {
        return onSmallDisk(mountPoint, options, [this] {
            writeAll(path("big"), patternBytes(10485760));
            const int nResult = encrypt(path("big"));
            const bool bSourceKept = readAll(path("big")) == patternBytes(10485760);
            const bool bNothingElse = files() == Names{"big"} && tempFiles().empty();
            return bSourceKept && bNothingElse ? nResult : 202;
        });
    }
};

TEST_F(FullDisk, BesideTheSourceGivesOneHundredTwelveAndLeavesNothing) {
    const int nResult = encryptOnSmallDisk(m_folder, "size=12m");
    if (nResult == 200) {
        GTEST_SKIP() << "no permission to mount a tmpfs in a mount namespace of our own";
    }
    EXPECT_EQ(nResult, static_cast<int>(plat::ERROR_DISK_FULL)) << "202: the source or other files changed";
}

TEST_F(FullDisk, InTheTemporaryFolderFailsTheProofAndKeepsTheSource) {
    const int nResult = encryptOnSmallDisk(m_tmpParent, "size=8m");
    if (nResult == 200) {
        GTEST_SKIP() << "no permission to mount a tmpfs in a mount namespace of our own";
    }
    EXPECT_EQ(nResult, static_cast<int>(plat::ERROR_DISK_FULL)) << "202: the source or other files changed";
}

TEST_F(FullDisk, DecryptionOfABigFileGivesOneHundredTwelveAndKeepsTheEncryptedFile) {
    writeAll(path("big"), patternBytes(10485760));
    ASSERT_EQ(encrypt(path("big")), CRYPT_S_OK);
    const Bytes encrypted = readAll(path("big.lqvz"));
    std::filesystem::remove(path("big.lqvz"));
    // Room for the encrypted file, not for its plain copy beside it.
    const int nResult = onSmallDisk(m_folder, "size=12m", [&] {
        writeAll(path("big.lqvz"), encrypted);
        const int nDecrypted = decrypt(path("big.lqvz"));
        const bool bKept = readAll(path("big.lqvz")) == encrypted;
        const bool bNothingElse = files() == Names{"big.lqvz"} && tempFiles().empty();
        return bKept && bNothingElse ? nDecrypted : 202;
    });
    if (nResult == 200) {
        GTEST_SKIP() << "no permission to mount a tmpfs in a mount namespace of our own";
    }
    EXPECT_EQ(nResult, static_cast<int>(plat::ERROR_DISK_FULL))
        << "202: the encrypted file changed or a file stayed";
}

#endif  // the small file systems are mount namespaces of POSIX

}  // namespace
}  // namespace files_test
