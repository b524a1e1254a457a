// The key guides: a first key with its backup, and the recovery of a key from a backup, over a UI that
// answers the password dialogs from a queue and records every box and every dialog shown.
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "app_test_support.h"
#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "crypt_batch_double.h"
#include "plat/errors.h"
#include "plat/handle.h"
#include "plat/named.h"
#include "ui/ResourceHelper.h"

namespace {

// The whole content of a file; empty when it cannot be read.
std::string readBytes(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    std::string bytes(error ? 0 : static_cast<std::size_t>(size), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

using app_test::ScopedEnv;
using app_test::TempDir;
using app_test::u16;
using Paths = std::vector<std::u16string>;

// A dialog answer: a path and password (confirmed), nothing (cancelled), or a dialog that cannot show.
struct DialogStep {
    enum Kind { kConfirm, kCancel, kFail } kind;
    std::u16string path;
    std::u16string password;
};

class GuideBackend : public app_test::RecordingBackend, plat::ui::KeyFileDialogUi {
public:
    plat::ui::KeyFileDialogUi& keyFileDialog() override { return *this; }

    int ask(plat::HWND, const plat::ui::KeyFileRequest& request, plat::ui::KeyFileAnswer& answer) override {
        requests.push_back(request);
        boxesBeforeDialog.push_back(boxes.size());
        if (steps.empty()) {
            return plat::IDCANCEL;
        }
        const DialogStep step = steps.front();
        steps.pop_front();
        if (step.kind == DialogStep::kFail) {
            plat::SetLastError(plat::ERROR_NOT_SUPPORTED);
            return 0;
        }
        if (step.kind == DialogStep::kCancel) {
            return plat::IDCANCEL;
        }
        answer.path = step.path;
        answer.password = step.password;
        return plat::IDOK;
    }

    std::deque<DialogStep> steps;
    std::vector<plat::ui::KeyFileRequest> requests;
    std::vector<std::size_t> boxesBeforeDialog;  // how many boxes had been shown when each dialog came
};

class KeyGuides : public testing::Test {
protected:
    void SetUp() override {
        cryptBatchDouble() = CryptBatchDouble();
        auto backend = std::make_unique<GuideBackend>();
        m_pUi = backend.get();
        m_previous = plat::ui::installBackend(std::move(backend));
    }
    void TearDown() override { plat::ui::installBackend(std::move(m_previous)); }

    std::u16string rootKeyPath() {
        VELQUserInfo* pUser = VELQUserInfoManager::getCurrentProcessOwner();
        std::u16string path;
        if (pUser != nullptr) {
            path = getUserRootKeyFilePath(pUser->getUserName(), pUser->getDomain(), u"");
        }
        VELQUserInfoManager::releaseUsers();
        return path;
    }
    bool rootKeyExists() { return std::filesystem::exists(plat::toUtf8(rootKeyPath())); }
    // Writes a backup of a new key under `password`, as a first backup guide would have left it.
    std::string writeBackup(const std::u16string& password) {
        EXPECT_GE(createVELQAppUserDirectory(), 0);
        VELQKey* pKey = nullptr;
        EXPECT_GE(VELQCrypt::createVELQKey(&pKey), 0);
        const std::string path = m_dir.path() + "/backup.key";
        EXPECT_GE(pKey->saveToFile(u16(path), password), 0);
        VELQKey::freeVELQKey(&pKey);
        return path;
    }
    // Ids among the guides' texts of the boxes shown, in order.
    std::vector<plat::UINT> shownTextIds() const {
        std::vector<plat::UINT> ids;
        for (const auto& box : m_pUi->boxes) {
            for (plat::UINT id : {1020u, 1021u, 1022u, 1023u, 1051u, 1066u}) {
                if (box.text == ResourceHelper::getStrFromRes(id, nullptr)) {
                    ids.push_back(id);
                }
            }
        }
        return ids;
    }

    TempDir m_dir;
    ScopedEnv m_data{"VELQ_DATA_HOME", m_dir.path() + "/data"};
    ScopedEnv m_runtime{"VELQ_RUNTIME_DIR", m_dir.path() + "/run"};
    GuideBackend* m_pUi = nullptr;
    std::unique_ptr<plat::ui::Backend> m_previous;
};

// ---- The backup guide ----

TEST_F(KeyGuides, BackupWritesTheRootKeyAndAnIdenticalBackupUnderThePassword) {
    const std::string backup = m_dir.path() + "/media/my-key";
    std::filesystem::create_directories(m_dir.path() + "/media");
    m_pUi->steps = {{DialogStep::kConfirm, u16(backup), u"secret pass"}};
    VELQShellExtProc proc(Paths{});
    EXPECT_EQ(proc._backupKeyGuide(), 0);

    // The message comes before the dialog; the dialog asks with the key file's extension and limits.
    EXPECT_EQ(shownTextIds(), std::vector<plat::UINT>{1020});
    EXPECT_EQ(m_pUi->boxes[0].flags, 64u);
    ASSERT_EQ(m_pUi->requests.size(), 1u);
    EXPECT_EQ(m_pUi->boxesBeforeDialog[0], 1u);
    EXPECT_TRUE(m_pUi->requests[0].bExport);
    EXPECT_EQ(m_pUi->requests[0].defaultExtension, u"key");
    EXPECT_EQ(m_pUi->requests[0].nMinPassword, 1u);
    EXPECT_EQ(m_pUi->requests[0].nMaxPassword, 50u);

    const std::string rootBytes = readBytes(plat::toUtf8(rootKeyPath()));
    const std::string copyBytes = readBytes(backup);
    EXPECT_FALSE(rootBytes.empty());
    EXPECT_EQ(rootBytes, copyBytes);
    VELQKey* pKey = nullptr;
    EXPECT_EQ(VELQKey::loadVELQKey(&pKey, u16(backup), u"wrong"), VELQ_E_WRONG_PASSPHRASE);
    EXPECT_GE(VELQKey::loadVELQKey(&pKey, u16(backup), u"secret pass"), 0);
    VELQKey::freeVELQKey(&pKey);
    EXPECT_EQ(VELQShellExtProc::isExistKeyFile(), 1);
}

// The backup is offered in the user's home folder as the system knows it, with HOME unset too: Windows
// sets none, and a path read from it there was none or a POSIX one.
TEST_F(KeyGuides, TheBackupIsOfferedInTheUsersHomeFolder) {
    const ::ScopedEnv noHome("HOME", nullptr);
    m_pUi->steps = {{DialogStep::kCancel, u"", u""}};
    VELQShellExtProc proc(Paths{});
    EXPECT_EQ(proc._backupKeyGuide(), 1);
    ASSERT_EQ(m_pUi->requests.size(), 1u);
    const std::filesystem::path offered(m_pUi->requests[0].startPath);
    EXPECT_TRUE(offered.is_absolute()) << offered;
    EXPECT_EQ(offered.filename(), "velq-key-backup.key");
    EXPECT_TRUE(std::filesystem::is_directory(offered.parent_path())) << offered;
}

TEST_F(KeyGuides, CancelledBackupLeavesNoKeyAndTheEncryptEndsWithSuccess) {
    m_pUi->answers = {plat::IDNO};  // no recovery: make a new key
    m_pUi->steps = {{DialogStep::kCancel, u"", u""}};
    VELQShellExtProc proc(Paths{u"/x/a.txt"}, Paths{}, 1);
    EXPECT_EQ(proc.run(), 1);
    EXPECT_EQ(shownTextIds(), (std::vector<plat::UINT>{1023, 1020}));
    EXPECT_FALSE(rootKeyExists());
    EXPECT_TRUE(cryptBatchDouble().calls.empty());
}

TEST_F(KeyGuides, FailedCopyRemovesTheRootKeyAndTheNextAttemptStartsAgain) {
    m_pUi->answers = {plat::IDNO};
    m_pUi->steps = {{DialogStep::kConfirm, u16(m_dir.path() + "/missing/folder/backup.key"), u"pw"}};
    VELQShellExtProc proc(Paths{u"/x/a.txt"}, Paths{}, 1);
    EXPECT_EQ(proc.run(), plat::E_FAIL);
    EXPECT_EQ(shownTextIds(), (std::vector<plat::UINT>{1023, 1020, 1021}));
    EXPECT_EQ(m_pUi->boxes.back().flags, 16u);
    EXPECT_FALSE(rootKeyExists());
    EXPECT_TRUE(cryptBatchDouble().calls.empty());

    // A writable place the next time: a new key, and the encrypt goes on.
    m_pUi->answers = {plat::IDNO};
    m_pUi->steps = {{DialogStep::kConfirm, u16(m_dir.path() + "/backup.key"), u"pw"}};
    EXPECT_EQ(proc.run(), 1);
    EXPECT_TRUE(rootKeyExists());
    EXPECT_EQ(cryptBatchDouble().calls.size(), 1u);
}

TEST_F(KeyGuides, ASecondBackupGuideFailsAtOnceWithoutAnyDialog) {
    plat::HANDLE hOther = plat::CreateMutexW(nullptr, plat::FALSE, u"Backup_Key_Mutex");
    ASSERT_NE(hOther, nullptr);
    VELQShellExtProc proc(Paths{});
    EXPECT_EQ(proc._backupKeyGuide(), plat::E_FAIL);
    EXPECT_TRUE(m_pUi->boxes.empty());
    EXPECT_TRUE(m_pUi->requests.empty());
    plat::CloseHandle(hOther);
    // The guide closed its own handle: once the other holder is gone, the name is free again.
    m_pUi->steps = {{DialogStep::kCancel, u"", u""}};
    EXPECT_EQ(proc._backupKeyGuide(), 1);
}

TEST_F(KeyGuides, ADialogThatCannotShowIsTheGuidesFailure) {
    m_pUi->steps = {{DialogStep::kFail, u"", u""}};
    VELQShellExtProc proc(Paths{});
    EXPECT_EQ(proc._backupKeyGuide(), plat::HRESULT_FROM_WIN32(plat::ERROR_NOT_SUPPORTED));
    m_pUi->steps = {{DialogStep::kFail, u"", u""}};
    EXPECT_EQ(VELQShellExtProc::recoverKeyGuide(), 0);
    EXPECT_FALSE(rootKeyExists());
}

// ---- The recovery guide ----

TEST_F(KeyGuides, RecoveryGoesOnThroughWrongPasswordsAndUnreadableFilesUntilTheKeyIsBack) {
    const std::string backup = writeBackup(u"right");
    const std::u16string missing = u16(m_dir.path() + "/no-such.key");
    m_pUi->steps = {{DialogStep::kConfirm, u16(backup), u"wrong"},
                    {DialogStep::kConfirm, missing, u"right"},
                    {DialogStep::kConfirm, u16(backup), u"right"}};
    EXPECT_EQ(VELQShellExtProc::recoverKeyGuide(), 1);
    EXPECT_EQ(shownTextIds(), (std::vector<plat::UINT>{1066, 1051}));
    for (const auto& box : m_pUi->boxes) {
        EXPECT_EQ(box.flags, 16u);
        EXPECT_EQ(box.caption, ResourceHelper::getStrFromRes(1018, nullptr));
    }
    // Each showing offers the path of the attempt before; the first offers none.
    ASSERT_EQ(m_pUi->requests.size(), 3u);
    EXPECT_EQ(m_pUi->requests[0].startPath, u"");
    EXPECT_EQ(m_pUi->requests[1].startPath, u16(backup));
    EXPECT_EQ(m_pUi->requests[2].startPath, missing);
    EXPECT_FALSE(m_pUi->requests[0].bExport);

    // The root key file is the backup's key, opened the crypt scene's way.
    VELQKey* pRoot = nullptr;
    VELQKey* pBackup = nullptr;
    ASSERT_GE(VELQKey::loadVELQKey(&pRoot, rootKeyPath(), kVELQRootKeyPassPhrase), 0);
    ASSERT_GE(VELQKey::loadVELQKey(&pBackup, u16(backup), u"right"), 0);
    EXPECT_EQ(pRoot->getCRC32Value(), pBackup->getCRC32Value());
    VELQKey::freeVELQKey(&pRoot);
    VELQKey::freeVELQKey(&pBackup);
}

TEST_F(KeyGuides, AKeyThatCannotBeInstalledShowsItsMessageWithoutOwnerAndAsksAgain) {
    const std::string backup = writeBackup(u"right");
    // A folder where the root key file belongs: the loaded key cannot be stored there.
    std::filesystem::create_directories(plat::toUtf8(rootKeyPath()) + "/in-the-way");
    m_pUi->steps = {{DialogStep::kConfirm, u16(backup), u"right"},
                    {DialogStep::kConfirm, u16(backup), u"right"}};
    // Two loads whose install fails, then a cancel: under ASan a leaked or twice-freed key would show.
    EXPECT_EQ(VELQShellExtProc::recoverKeyGuide(), 0);
    EXPECT_EQ(shownTextIds(), (std::vector<plat::UINT>{1022, 1022}));
    EXPECT_FALSE(m_pUi->boxes[0].bOwned);
    EXPECT_EQ(m_pUi->requests.size(), 3u);
}

TEST_F(KeyGuides, ASecondRecoveryFailsAtOnceAndACancelGivesUp) {
    plat::HANDLE hOther = plat::CreateMutexW(nullptr, plat::FALSE, u"Recover_Key_Mutex");
    ASSERT_NE(hOther, nullptr);
    EXPECT_EQ(VELQShellExtProc::recoverKeyGuide(), 0);
    EXPECT_TRUE(m_pUi->requests.empty());
    plat::CloseHandle(hOther);

    m_pUi->steps = {{DialogStep::kCancel, u"", u""}};
    EXPECT_EQ(VELQShellExtProc::recoverKeyGuide(), 0);
    EXPECT_EQ(m_pUi->requests.size(), 1u);
    EXPECT_TRUE(m_pUi->boxes.empty());
    EXPECT_FALSE(rootKeyExists());
}

TEST_F(KeyGuides, DecryptWithoutKeyRecoversItAndTheBatchGoesOn) {
    const std::string backup = writeBackup(u"right");
    m_pUi->answers = {plat::IDYES};
    m_pUi->steps = {{DialogStep::kConfirm, u16(backup), u"right"}};
    VELQShellExtProc proc(Paths{u"/x/a.lqvz"});
    EXPECT_EQ(proc.run(), 1);
    EXPECT_EQ(shownTextIds(), std::vector<plat::UINT>{1023});
    ASSERT_EQ(cryptBatchDouble().calls.size(), 1u);
    EXPECT_EQ(cryptBatchDouble().calls[0].paths, Paths{u"/x/a.lqvz"});
}

}  // namespace
