// The request processor's decisions: which operation a menu type runs, when the key question is asked,
// what each answer leads to, and what reaches the crypt engine (a double here).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "app_test_support.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "crypt_batch_double.h"
#include "plat/files.h"
#include "plat/handle.h"
#include "ui/ResourceHelper.h"

namespace {

using app_test::ScopedEnv;
using app_test::ScopedRecordingBackend;
using app_test::TempDir;
using app_test::u16;
using Paths = std::vector<std::u16string>;

class ShellExtProc : public testing::Test {
protected:
    void SetUp() override { cryptBatchDouble() = CryptBatchDouble(); }

    // The owner's root key file with `content` (empty content: a file of 0 bytes).
    std::u16string writeKeyFile(const std::string& content) {
        VELQUserInfo* pUser = VELQUserInfoManager::getCurrentProcessOwner();
        std::u16string path;
        if (pUser != nullptr) {
            path = getUserRootKeyFilePath(pUser->getUserName(), pUser->getDomain(), u"");
        }
        VELQUserInfoManager::releaseUsers();
        const std::filesystem::path file(plat::toUtf8(path));
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return path;
    }
    std::vector<plat::UINT> shownTextIds() {
        std::vector<plat::UINT> ids;
        for (const auto& box : m_ui->boxes) {
            for (plat::UINT id : {1021u, 1023u}) {
                if (box.text == ResourceHelper::getStrFromRes(id, nullptr)) {
                    ids.push_back(id);
                }
            }
        }
        return ids;
    }
    plat::LONG runEncrypt(const Paths& files) {
        VELQShellExtProc proc(files, Paths{}, 1);
        return proc.run();
    }
    plat::LONG runDecrypt(const Paths& files) {
        VELQShellExtProc proc(files);
        return proc.run();
    }

    TempDir m_dir;
    ScopedEnv m_data{"VELQ_DATA_HOME", m_dir.path() + "/data"};
    ScopedRecordingBackend m_ui;
};

TEST_F(ShellExtProc, MenuTypesWithoutCryptTouchNothing) {
    for (plat::UINT uMenuType : {0u, 3u, 4u, 12u}) {
        VELQShellExtProc proc(Paths{u"/a.txt"}, Paths{u"/b.lqvz"}, uMenuType);
        EXPECT_EQ(proc.run(), 1) << uMenuType;
    }
    EXPECT_TRUE(cryptBatchDouble().calls.empty());
    EXPECT_TRUE(m_ui->boxes.empty());
}

TEST_F(ShellExtProc, NothingToProcessFailsBeforeAnyQuestion) {
    EXPECT_EQ(runEncrypt({}), 0);
    EXPECT_EQ(runDecrypt({}), 0);
    // A decrypt request's encrypt list does not count, and the reverse.
    VELQShellExtProc proc(Paths{}, Paths{u"/b.lqvz"}, 1);
    EXPECT_EQ(proc.run(), 0);
    EXPECT_TRUE(m_ui->boxes.empty());
    EXPECT_TRUE(cryptBatchDouble().calls.empty());
}

TEST_F(ShellExtProc, WithAKeyTheBatchRunsInTheRequestsDirection) {
    writeKeyFile("key bytes");
    EXPECT_EQ(runEncrypt({u"/x/a.txt", u"/x/b.lqvz"}), 1);
    EXPECT_EQ(runDecrypt({u"/x/c.lqvz"}), 1);
    ASSERT_EQ(cryptBatchDouble().calls.size(), 2u);
    EXPECT_EQ(cryptBatchDouble().calls[0].paths, (Paths{u"/x/a.txt", u"/x/b.lqvz"}));
    EXPECT_EQ(cryptBatchDouble().calls[0].mode, 0);
    EXPECT_EQ(cryptBatchDouble().calls[0].bDeleteSource, plat::TRUE);
    EXPECT_EQ(cryptBatchDouble().calls[1].paths, Paths{u"/x/c.lqvz"});
    EXPECT_EQ(cryptBatchDouble().calls[1].mode, 1);
    EXPECT_EQ(cryptBatchDouble().calls[1].bDeleteSource, plat::TRUE);
    EXPECT_TRUE(m_ui->boxes.empty());
}

TEST_F(ShellExtProc, BatchThatDidNotRunIsAFailure) {
    writeKeyFile("key bytes");
    cryptBatchDouble().result = -11;
    EXPECT_EQ(runEncrypt({u"/x/a.txt"}), 0);
    EXPECT_EQ(runDecrypt({u"/x/a.lqvz"}), 0);
    EXPECT_EQ(cryptBatchDouble().calls.size(), 2u);
}

TEST_F(ShellExtProc, EncryptWithoutKeyAnsweredNoTriesANewKeyAndReportsItsFailure) {
    m_ui->answers = {plat::IDNO};
    EXPECT_LT(runEncrypt({u"/x/a.txt"}), 0);  // this UI has no password dialogs
    EXPECT_EQ(shownTextIds(), (std::vector<plat::UINT>{1023, 1021}));
    // Between them the backup guide's own message (1020) came before its dialog failed.
    ASSERT_EQ(m_ui->boxes.size(), 3u);
    EXPECT_EQ(m_ui->boxes[0].flags, 36u);
    EXPECT_EQ(m_ui->boxes[0].caption, ResourceHelper::getStrFromRes(1017, nullptr));
    EXPECT_EQ(m_ui->boxes[2].flags, 16u);
    EXPECT_EQ(m_ui->boxes[2].caption, ResourceHelper::getStrFromRes(1018, nullptr));
    EXPECT_TRUE(cryptBatchDouble().calls.empty());
}

TEST_F(ShellExtProc, EncryptWithoutKeyAnsweredYesStopsWhenNothingIsRecovered) {
    m_ui->answers = {plat::IDYES};
    EXPECT_EQ(runEncrypt({u"/x/a.txt"}), 0);
    EXPECT_EQ(shownTextIds(), std::vector<plat::UINT>{1023});
    EXPECT_TRUE(cryptBatchDouble().calls.empty());
}

TEST_F(ShellExtProc, EncryptGoesOnWhenTheQuestionCannotBeShown) {
    m_ui->answers = {0};
    EXPECT_EQ(runEncrypt({u"/x/a.txt"}), 1);
    EXPECT_EQ(cryptBatchDouble().calls.size(), 1u);
}

TEST_F(ShellExtProc, DecryptWithoutKeyNeverMakesOne) {
    for (int answer : {plat::IDNO, plat::IDYES, 0}) {
        m_ui->boxes.clear();
        m_ui->answers = {answer};
        EXPECT_EQ(runDecrypt({u"/x/a.lqvz"}), 0) << answer;
        EXPECT_EQ(shownTextIds(), std::vector<plat::UINT>{1023}) << answer;
    }
    EXPECT_TRUE(cryptBatchDouble().calls.empty());
}

TEST_F(ShellExtProc, KeyFileOfNoBytesOrHeldElsewhereCountsAsMissing) {
    EXPECT_EQ(VELQShellExtProc::isExistKeyFile(), 0);
    const std::u16string keyPath = writeKeyFile("");
    EXPECT_EQ(VELQShellExtProc::isExistKeyFile(), 0);
    writeKeyFile("key bytes");
    EXPECT_EQ(VELQShellExtProc::isExistKeyFile(), 1);
    // The key file is opened for its attributes only (FILE_READ_EA): Windows checks no share mode for
    // that access, so a file held without sharing is still seen there; the POSIX layer refuses it.
#ifndef _WIN32
    plat::HANDLE hHeld = plat::CreateFileW(keyPath.c_str(), plat::GENERIC_READ, 0, nullptr,
                                           plat::OPEN_EXISTING, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(hHeld, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(VELQShellExtProc::isExistKeyFile(), 0);
    plat::CloseHandle(hHeld);
    EXPECT_EQ(VELQShellExtProc::isExistKeyFile(), 1);
#endif
}

TEST_F(ShellExtProc, GuidesWithoutPasswordDialogsNeverPretendSuccess) {
    VELQShellExtProc proc(Paths{});
    EXPECT_EQ(VELQShellExtProc::recoverKeyGuide(), 0);
    EXPECT_LT(proc._backupKeyGuide(), 0);
}

TEST_F(ShellExtProc, FolderRequestEncryptsWhatTheWalkFound) {
    writeKeyFile("key bytes");
    TempDir tree;
    const std::string plain = tree.file("docs/a.txt");
    tree.file("docs/b.lqvz");
    const plat::UINT uMenuType = 1;
    VELQShellExtProc proc(Paths{}, Paths{}, Paths{u16(tree.folder("docs"))}, Paths{}, uMenuType);
    EXPECT_EQ(proc.run(), 1);
    ASSERT_EQ(cryptBatchDouble().calls.size(), 1u);
    EXPECT_EQ(cryptBatchDouble().calls[0].paths, Paths{u16(plain)});
}

}  // namespace
