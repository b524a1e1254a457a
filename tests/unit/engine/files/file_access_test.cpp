// The file access of one record: the small or big way, the destination's name, its creation and the
// deletion of read-only files.
#include "files_fixture.h"

namespace files_test {
namespace {

using Access = VELQCryptFileTestAccess;

class FileAccess : public FilesTest {
protected:
    // A record of a batch of `mode` for `file`, in an engine of its own that the fixture keeps.
    FileInfo* record(const std::string& file, int mode) {
        // One engine at a time: the batch's ready event is process-wide, and the records' handles are
        // closed by the batch loop, not by the engine's end.
        closeEngine();
        m_engine =
            std::make_unique<VELQCryptFile>(std::vector<std::u16string>{plat::fromUtf8(file)}, plat::TRUE);
        Access::initData(*m_engine, mode);
        return Access::fileInfos(*m_engine).at(0);
    }
    void TearDown() override {
        closeEngine();
        FilesTest::TearDown();
    }
    void closeEngine() {
        if (m_engine) {
            for (FileInfo* info : Access::fileInfos(*m_engine)) {
                Access::closeFileHandles(*m_engine, info);
            }
        }
        m_engine.reset();
    }
    void sized(const std::string& name, std::uintmax_t size) {
        writeAll(path(name), Bytes{});
        std::filesystem::resize_file(path(name), size);
    }

    std::unique_ptr<VELQCryptFile> m_engine;
};

TEST_F(FileAccess, PlainSourceIsBigFromTenMebibytes) {
    sized("small", 10485759);
    FileInfo* info = record(path("small"), CRYPT_MODE_ENCRYPT);
    ASSERT_EQ(Access::openFile(*m_engine, info), 0);
    EXPECT_FALSE(info->m_bBigFile);
    EXPECT_EQ(info->m_nFileSize, 10485759u);
    EXPECT_EQ(info->m_hMapFile, nullptr);

    sized("big", 10485760);
    info = record(path("big"), CRYPT_MODE_ENCRYPT);
    ASSERT_EQ(Access::openFile(*m_engine, info), 0);
    EXPECT_TRUE(info->m_bBigFile);
    EXPECT_NE(info->m_hMapFile, nullptr);
    EXPECT_TRUE(info->m_bOpened);
}

TEST_F(FileAccess, EncryptedFileLosesTheBigLayoutsLengthFirstWithoutUnderflow) {
    const struct {
        const char* name;
        std::uintmax_t size;
        bool bBig;
    } cases[] = {{"under.lqvz", 10485760 + 65536 + 15, false},
                 {"at.lqvz", 10485760 + 65536 + 16, true},
                 {"tiny.lqvz", 100, false}};
    for (const auto& c : cases) {
        sized(c.name, c.size);  // zero first bytes: the legacy layout, so no key is compared
        FileInfo* info = record(path(c.name), CRYPT_MODE_DECRYPT);
        ASSERT_EQ(Access::openFile(*m_engine, info), 0) << c.name;
        EXPECT_EQ(static_cast<bool>(info->m_bBigFile), c.bBig) << c.name;
    }
}

TEST_F(FileAccess, OpenFailuresGiveTheSystemsNumber) {
    FileInfo* info = record(path("missing"), CRYPT_MODE_ENCRYPT);
    EXPECT_EQ(Access::openFile(*m_engine, info), static_cast<int>(plat::ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(info->m_hFile, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(Access::openFile(*m_engine, nullptr), CRYPT_E_GENERAL);
}

TEST_F(FileAccess, DestinationPathAppendsOrTakesTheStoredName) {
    FileInfo* info = record("/x/y/a.txt", CRYPT_MODE_ENCRYPT);
    EXPECT_EQ(Access::getDestFilePath(*m_engine, info, plat::TRUE), 0);
    EXPECT_EQ(info->m_sDestFileInfo.m_szDestFilePath, u"/x/y/a.txt.lqvz");

    info = record("/x/y/renamed.lqvz", CRYPT_MODE_DECRYPT);
    std::u16string stored = u"b.doc";
    std::copy(stored.begin(), stored.end(), info->m_sDestFileInfo.m_DestFileHeader.m_szFileName);
    EXPECT_EQ(Access::getDestFilePath(*m_engine, info, plat::TRUE), 1)
        << "an encrypted file is never encrypted";
    EXPECT_EQ(info->m_sDestFileInfo.m_szDestFilePath, u"/x/y/renamed.lqvz");
    EXPECT_EQ(Access::getDestFilePath(*m_engine, info, plat::FALSE), 0);
    EXPECT_EQ(info->m_sDestFileInfo.m_szDestFilePath, u"/x/y/b.doc");

    info = record("bare.lqvz", CRYPT_MODE_DECRYPT);
    std::copy(stored.begin(), stored.end(), info->m_sDestFileInfo.m_DestFileHeader.m_szFileName);
    Access::getDestFilePath(*m_engine, info, plat::FALSE);
    EXPECT_EQ(info->m_sDestFileInfo.m_szDestFilePath, u"b.doc");

    // The folder is split off as the system splits paths: a Windows path at its backslashes (a decrypted
    // file once landed in the working folder there), a POSIX name keeps its backslash.
#ifdef _WIN32
    info = record("C:\\x\\y/z\\renamed.lqvz", CRYPT_MODE_DECRYPT);
    const std::u16string folder = u"C:\\x\\y/z\\";
#else
    info = record("/x/y\\z/renamed.lqvz", CRYPT_MODE_DECRYPT);
    const std::u16string folder = u"/x/y\\z/";
#endif
    std::copy(stored.begin(), stored.end(), info->m_sDestFileInfo.m_DestFileHeader.m_szFileName);
    Access::getDestFilePath(*m_engine, info, plat::FALSE);
    EXPECT_EQ(info->m_sDestFileInfo.m_szDestFilePath, folder + u"b.doc");
    EXPECT_EQ(Access::getDestFilePath(*m_engine, nullptr, plat::FALSE), plat::E_INVALIDARG);
}

TEST_F(FileAccess, CreateRefusesExistingAndReportsMissingFolder) {
    writeAll(path("there"), Bytes{'k'});
    FileInfo* info = record(path("there"), CRYPT_MODE_ENCRYPT);
    EXPECT_EQ(Access::createFile(*m_engine, info, plat::TRUE), CRYPT_E_WRITE);
    EXPECT_FALSE(info->m_sDestFileInfo.m_bDestOpened);
    EXPECT_TRUE(readAll(path("there")) == Bytes{'k'});
#ifndef _WIN32  // links need a privilege on Windows
    // A link to nothing is something of that name too: it is neither followed nor replaced.
    std::filesystem::create_symlink(path("nowhere"), path("link"));
    info = record(path("link"), CRYPT_MODE_VERIFY);
    EXPECT_EQ(Access::createFile(*m_engine, info, plat::TRUE), CRYPT_E_WRITE);
    EXPECT_FALSE(std::filesystem::exists(path("nowhere")));
#endif

    info = record(path("no/such/file"), CRYPT_MODE_ENCRYPT);
    EXPECT_EQ(Access::createFile(*m_engine, info, plat::TRUE), static_cast<int>(plat::ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(Access::createFile(*m_engine, nullptr, plat::TRUE), CRYPT_E_GENERAL);
}

TEST_F(FileAccess, UnattendedDestinationIsReadOnlyAndBigOneHasItsLength) {
    sized("big", 10485760);
    FileInfo* info = record(path("big"), CRYPT_MODE_ENCRYPT);
    ASSERT_EQ(Access::openFile(*m_engine, info), 0);
    Access::getDestFilePath(*m_engine, info, plat::TRUE);
    ASSERT_EQ(Access::createFile(*m_engine, info, plat::TRUE), 0);
    EXPECT_NE(info->m_sDestFileInfo.m_hDestMapFile, nullptr);
    EXPECT_EQ(info->m_sDestFileInfo.m_dwDestFileAttributes, plat::FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(std::filesystem::file_size(path("big.lqvz")), 65536u + 10485760u + 16u);

    // Deleting a read-only file clears its attribute first; the record's handles are closed.
    Access::deleteFiles(*m_engine, info, plat::FALSE);
    EXPECT_EQ(info->m_sDestFileInfo.m_hDestFile, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(info->m_hFile, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(files(), (std::set<std::string>{"big"}));
}

TEST_F(FileAccess, ReadOnlySourceIsDeletedAfterItsAttributeIsCleared) {
    writeAll(path("ro"), Bytes{'r'});
    std::filesystem::permissions(path("ro"), std::filesystem::perms::owner_read |
                                                 std::filesystem::perms::group_read |
                                                 std::filesystem::perms::others_read);
    FileInfo* info = record(path("ro"), CRYPT_MODE_ENCRYPT);
    ASSERT_EQ(Access::openFile(*m_engine, info), 0);
    EXPECT_NE(info->m_dwFileAttributes & plat::FILE_ATTRIBUTE_READONLY, 0u);
    Access::deleteFiles(*m_engine, info, plat::TRUE);
    EXPECT_TRUE(files().empty());
    Access::deleteFiles(*m_engine, nullptr, plat::TRUE);  // nothing to do, no crash
}

}  // namespace
}  // namespace files_test
