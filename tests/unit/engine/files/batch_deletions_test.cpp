// A whole batch over real files, whose deletions run beside the next file's work: every file and every
// row must be what they would be with each deletion done at once, whatever paths lead to the same file.
#include <filesystem>
#include <string>
#include <vector>

#include "engine_access.h"
#include "files_fixture.h"
#include "plat/errors.h"
#include "plat/strings.h"
#include "silent_stand_ins.h"

namespace files_test {
namespace {

using Names = std::set<std::string>;
using Rows = std::vector<std::u16string>;

// Each case runs with the deletions done as soon as the remover's thread can, and as late as the batch
// allows, so that every wait of the worker happens.
class BatchDeletions : public FilesTest, public ::testing::WithParamInterface<FileRemover::Schedule> {
protected:
    // The batch's loop over `names` of the test's folder; its rows are in silentRows().
    void runBatch(const std::vector<std::string>& names, int mode) {
        silentRows().clear();
        std::vector<std::u16string> paths;
        paths.reserve(names.size());
        for (const std::string& name : names) {
            paths.push_back(plat::fromUtf8(path(name)));
        }
        VELQCryptFile engine(paths, plat::TRUE);
        VELQCryptFileTestAccess::fileRemover(engine).setSchedule(GetParam());
        ASSERT_EQ(VELQCryptFileTestAccess::initCryptScene(engine), 0);
        VELQCryptFileTestAccess::initData(engine, mode);
        VELQCryptFileTestAccess::processAllFiles(engine, mode);
    }
    // The row of `name` failing with `nResult`.
    std::u16string row(int nResult, const std::string& name) {
        VELQCryptFile engine({}, plat::FALSE);
        return VELQCryptFileTestAccess::buildResultMessage(engine, nResult, plat::fromUtf8(path(name)));
    }
};

TEST_P(BatchDeletions, ThePathOfADeletedFileGivenTwiceIsNotFoundTheSecondTime) {
    const Bytes plain = patternBytes(5000);
    writeAll(path("a"), plain);
    runBatch({"a", "a"}, CRYPT_MODE_ENCRYPT);
    EXPECT_EQ(silentRows(), Rows{row(plat::ERROR_FILE_NOT_FOUND, "a")});
    EXPECT_EQ(files(), Names{"a.lqvz"});
    EXPECT_TRUE(tempFiles().empty());

    runBatch({"a.lqvz", "a.lqvz"}, CRYPT_MODE_DECRYPT);
    EXPECT_EQ(silentRows(), Rows{row(plat::ERROR_FILE_NOT_FOUND, "a.lqvz")});
    EXPECT_TRUE(doubles().boxes.empty()) << "a replace question for a file of the same batch";
    EXPECT_EQ(files(), Names{"a"});
    EXPECT_TRUE(readAll(path("a")) == plain);
}

// Both proofs make a plain copy of the same name in the temporary folder, one after the other.
TEST_P(BatchDeletions, FilesOfOneNameFromTwoFoldersAreBothProved) {
    std::filesystem::create_directories(path("one"));
    std::filesystem::create_directories(path("two"));
    writeAll(path("one/x"), patternBytes(3000, 1));
    writeAll(path("two/x"), patternBytes(3000, 2));
    runBatch({"one/x", "two/x"}, CRYPT_MODE_ENCRYPT);
    EXPECT_TRUE(silentRows().empty()) << plat::toUtf8(silentRows().front());
    EXPECT_EQ(namesIn(path("one")), Names{"x.lqvz"});
    EXPECT_EQ(namesIn(path("two")), Names{"x.lqvz"});
    EXPECT_TRUE(tempFiles().empty());

    runBatch({"one/x.lqvz", "two/x.lqvz"}, CRYPT_MODE_DECRYPT);
    EXPECT_TRUE(silentRows().empty());
    EXPECT_TRUE(readAll(path("one/x")) == patternBytes(3000, 1));
    EXPECT_TRUE(readAll(path("two/x")) == patternBytes(3000, 2));
}

// The second file's stored name is the first file's: the first one's deletion comes before the second is
// made, so nothing asks whether to replace it.
TEST_P(BatchDeletions, ADecryptionTakesTheNameOfAnEncryptedFileDecryptedBeforeIt) {
    writeAll(path("k"), patternBytes(700, 1));
    runBatch({"k"}, CRYPT_MODE_ENCRYPT);
    // A file whose stored name ends in .lqvz: no batch encrypts one, a record made by hand does.
    std::filesystem::create_directories(path("elsewhere"));
    writeAll(path("elsewhere/k.lqvz"), patternBytes(900, 2));
    {
        VELQCryptFile engine({}, plat::TRUE);
        ASSERT_EQ(VELQCryptFileTestAccess::initCryptScene(engine), 0);
        FileInfo info;
        info.m_szFilePath = plat::fromUtf8(path("elsewhere/k.lqvz"));
        info.m_sDestFileInfo.m_szDestFilePath = info.m_szFilePath;
        info.m_nCryptMode = CRYPT_MODE_ENCRYPT;
        ASSERT_EQ(VELQCryptFileTestAccess::encryptFile(engine, &info), 0);
        VELQCryptFileTestAccess::closeFileHandles(engine, &info);
    }
    std::filesystem::rename(path("elsewhere/k.lqvz.lqvz"), path("z.lqvz"));

    runBatch({"k.lqvz", "z.lqvz"}, CRYPT_MODE_DECRYPT);
    EXPECT_TRUE(silentRows().empty());
    EXPECT_TRUE(doubles().boxes.empty()) << doubles().boxes.front();
    EXPECT_EQ(files(), (Names{"elsewhere", "k", "k.lqvz"}));
    EXPECT_TRUE(readAll(path("k")) == patternBytes(700, 1));
    EXPECT_TRUE(readAll(path("k.lqvz")) == patternBytes(900, 2));
}

// A second name of a file outlives the deletion of the first: it is encrypted too.
TEST_P(BatchDeletions, ASecondNameOfTheFileIsStillThereAfterTheFirstIsDeleted) {
    writeAll(path("a"), patternBytes(2000));
    std::filesystem::create_hard_link(path("a"), path("b"));
    runBatch({"a", "b"}, CRYPT_MODE_ENCRYPT);
    EXPECT_TRUE(silentRows().empty());
    EXPECT_EQ(files(), (Names{"a.lqvz", "b.lqvz"}));
}

TEST_P(BatchDeletions, ABatchOfManyFilesLeavesOnlyWhatItMade) {
    constexpr int kFiles = 300;
    std::vector<std::string> names;
    for (int i = 0; i < kFiles; ++i) {
        names.push_back("f" + std::to_string(i));
        writeAll(path(names.back()),
                 patternBytes(100 + static_cast<std::size_t>(i), static_cast<unsigned>(i)));
        if (i % 4 == 0) {
            std::filesystem::permissions(path(names.back()), std::filesystem::perms::owner_write,
                                         std::filesystem::perm_options::remove);
        }
    }
    runBatch(names, CRYPT_MODE_ENCRYPT);
    EXPECT_TRUE(silentRows().empty());
    EXPECT_EQ(files().size(), static_cast<std::size_t>(kFiles));
    EXPECT_EQ(files().count("f0"), 0u) << "a read-only source stayed";
    EXPECT_TRUE(tempFiles().empty());

    std::vector<std::string> encrypted;
    encrypted.reserve(names.size());
    for (const std::string& name : names) {
        encrypted.push_back(name + ".lqvz");
    }
    runBatch(encrypted, CRYPT_MODE_DECRYPT);
    EXPECT_TRUE(silentRows().empty());
    EXPECT_EQ(files(), Names(names.begin(), names.end()));
    for (int i = 0; i < kFiles; i += 37) {
        EXPECT_TRUE(readAll(path(names[static_cast<std::size_t>(i)])) ==
                    patternBytes(100 + static_cast<std::size_t>(i), static_cast<unsigned>(i)))
            << names[static_cast<std::size_t>(i)];
    }
}

#ifndef _WIN32
// The same file reached through a linked folder is the deleted file.
TEST_P(BatchDeletions, ThePathThroughALinkedFolderFindsTheFileDeleted) {
    std::filesystem::create_directories(path("folder"));
    std::filesystem::create_directory_symlink(path("folder"), path("link"));
    writeAll(path("folder/a"), patternBytes(1000));
    runBatch({"folder/a", "link/a"}, CRYPT_MODE_ENCRYPT);
    EXPECT_EQ(silentRows(), Rows{row(plat::ERROR_FILE_NOT_FOUND, "link/a")});
    EXPECT_EQ(namesIn(path("folder")), Names{"a.lqvz"});
}
#endif

INSTANTIATE_TEST_SUITE_P(BothSchedules, BatchDeletions,
                         ::testing::Values(FileRemover::Schedule::kAtOnce, FileRemover::Schedule::kLatest),
                         [](const ::testing::TestParamInfo<FileRemover::Schedule>& param) {
                             return param.param == FileRemover::Schedule::kAtOnce ? "AtOnce" : "Latest";
                         });

}  // namespace
}  // namespace files_test
