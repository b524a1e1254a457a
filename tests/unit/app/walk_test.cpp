// The walk of folders: every file below a folder lands in one of the two flat lists by its extension,
// the owner's application directory is never entered, and files named directly pass unsorted.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "app_test_support.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "plat/paths.h"
#include "plat/strings.h"

namespace {

using app_test::ScopedEnv;
using app_test::TempDir;
using app_test::u16;
using Paths = std::vector<std::u16string>;

Paths sorted(Paths paths) {
    std::sort(paths.begin(), paths.end());
    return paths;
}

class Walk : public testing::Test {
protected:
    // Walks `folders` in the given direction; returns findFiles' verdict.
    plat::LONG walk(const Paths& folders, plat::BOOL bEncrypt, const Paths& encrypt = {},
                    const Paths& decrypt = {}) {
        const plat::UINT uMenuType = 0;
        m_proc = std::make_unique<VELQShellExtProc>(encrypt, decrypt, folders, Paths{}, uMenuType);
        m_proc->setEncrypt(bEncrypt);
        return m_proc->findFiles();
    }
    std::u16string at(const std::string& relative) const {
        return (velq_test::pathOfUtf8(m_dir.path()) / velq_test::pathOfUtf8(relative))
            .make_preferred()
            .u16string();
    }
    static std::u16string appDirectory() {
        VELQUserInfo* pUser = VELQUserInfoManager::getCurrentProcessOwner();
        std::u16string folder;
        if (pUser != nullptr) {
            folder = getVELQAppUserDirectory(pUser->getUserName(), pUser->getDomain(), u"");
        }
        VELQUserInfoManager::releaseUsers();
        return folder;
    }

    TempDir m_dir;
    ScopedEnv m_data{"VELQ_DATA_HOME", m_dir.path() + "/tree/data"};
    std::unique_ptr<VELQShellExtProc> m_proc;
};

TEST_F(Walk, EmptyAndMissingFoldersFindNothing) {
    m_dir.folder("empty");
    EXPECT_EQ(walk({at("empty"), at("missing"), u""}, plat::TRUE), 0);
    EXPECT_TRUE(m_proc->allEncryptFilePaths().empty());
    EXPECT_EQ(walk({at("empty"), at("missing")}, plat::FALSE), 0);
    EXPECT_TRUE(m_proc->allDecryptFilePaths().empty());
}

TEST_F(Walk, SortsByExtensionInAnyCase) {
    m_dir.file("tree/a.lqvz");
    m_dir.file("tree/B.LQVZ");
    m_dir.file("tree/c.LqVz");
    m_dir.file("tree/a.lqvz.txt");
    m_dir.file("tree/plain");
    m_dir.file("tree/lqvz");
    EXPECT_EQ(walk({at("tree")}, plat::FALSE), 1);
    EXPECT_EQ(sorted(m_proc->allDecryptFilePaths()),
              sorted({at("tree/a.lqvz"), at("tree/B.LQVZ"), at("tree/c.LqVz")}));
    EXPECT_EQ(sorted(m_proc->allEncryptFilePaths()),
              sorted({at("tree/a.lqvz.txt"), at("tree/plain"), at("tree/lqvz")}));
}

TEST_F(Walk, FolderOfOnlyOneKindGivesNothingForTheOtherDirection) {
    m_dir.file("enc/x.lqvz");
    EXPECT_EQ(walk({at("enc")}, plat::TRUE), 0);
    m_dir.file("plain/x.txt");
    EXPECT_EQ(walk({at("plain")}, plat::FALSE), 0);
}

TEST_F(Walk, HiddenEntriesAndDeepNestingAreWalked) {
    m_dir.file("tree/.hidden");
    m_dir.file("tree/.secret/inner.txt");
    std::string deep = "tree";
    for (int level = 0; level < 40; ++level) {
        deep += "/d" + std::to_string(level);
    }
    m_dir.file(deep + "/bottom.lqvz");
    EXPECT_EQ(walk({at("tree")}, plat::FALSE), 1);
    EXPECT_EQ(m_proc->allDecryptFilePaths(), Paths{at(deep + "/bottom.lqvz")});
    EXPECT_EQ(sorted(m_proc->allEncryptFilePaths()),
              sorted({at("tree/.hidden"), at("tree/.secret/inner.txt")}));
}

TEST_F(Walk, NamedFilesComeFirstAndAreNotLookedAt) {
    m_dir.file("tree/f.txt");
    // Neither existence nor extension of a file named directly is tested.
    EXPECT_EQ(walk({at("tree")}, plat::TRUE, {u"/nowhere/x.lqvz"}, {u"/nowhere/y.txt"}), 1);
    EXPECT_EQ(m_proc->allEncryptFilePaths(), (Paths{u"/nowhere/x.lqvz", at("tree/f.txt")}));
    EXPECT_EQ(m_proc->allDecryptFilePaths(), Paths{u"/nowhere/y.txt"});
}

// The fixture's data home is written with "/", so on Windows the application directory mixes "/" with the
// "\" of the temporary folder, while the walk joins names with "\": the folder is still recognised.
TEST_F(Walk, ApplicationDirectoryIsNotEntered) {
    const std::u16string appDir = appDirectory();
    ASSERT_FALSE(appDir.empty());
    const std::string appDirUtf8 = plat::toUtf8(appDir);
    ASSERT_EQ(appDirUtf8.rfind(m_dir.path() + "/tree/data/users/", 0), 0u);
    const std::string user = appDirUtf8.substr(appDirUtf8.rfind('/') + 1);
    m_dir.file("tree/data/users/" + user + "/root.key");
    m_dir.file("tree/data/users/" + user + "/old.lqvz");
    m_dir.file("tree/data/users/someone-else/kept.txt");
    m_dir.file("tree/top.txt");
    EXPECT_EQ(walk({at("tree")}, plat::TRUE), 1);
    EXPECT_EQ(sorted(m_proc->allEncryptFilePaths()),
              sorted({at("tree/top.txt"), at("tree/data/users/someone-else/kept.txt")}));
    EXPECT_TRUE(m_proc->allDecryptFilePaths().empty());
    // Named as the folder of a request, as the program spells it or with the system's separator alone, it is
    // not entered either.
    EXPECT_EQ(walk({appDir}, plat::TRUE), 0);
    std::u16string systemSpelling = appDir;
    std::replace(systemSpelling.begin(), systemSpelling.end(), u'/', plat::kPathSeparator);
    EXPECT_EQ(walk({systemSpelling}, plat::TRUE), 0);
}

// "DATA" is another folder where file names heed case (POSIX): it is walked, and the test stays exact. Where
// they do not (Windows), it is the application directory itself and is not entered.
TEST_F(Walk, SameDirectorySpelledInAnotherCaseIsEnteredOnlyWhereNamesHeedCase) {
    const std::u16string appDir = appDirectory();
    ASSERT_FALSE(appDir.empty());
    std::string upper = plat::toUtf8(appDir);
    upper.replace(upper.find("/tree/data/"), 11, "/tree/DATA/");
    const std::string relative = upper.substr(m_dir.path().size() + 1);
    m_dir.file(relative + "/inside.txt");
    const bool bSameFolder = plat::kFileNamesIgnoreCase;
    EXPECT_EQ(walk({u16(upper)}, plat::TRUE), bSameFolder ? 0 : 1);
    const Paths walked = bSameFolder ? Paths{} : Paths{u16(upper) + plat::kPathSeparator + u"inside.txt"};
    EXPECT_EQ(m_proc->allEncryptFilePaths(), walked);
    EXPECT_EQ(m_proc->_isExcludeFolder(appDir), 1);
    EXPECT_EQ(m_proc->_isExcludeFolder(u16(upper)), bSameFolder ? 1 : 0);
    EXPECT_EQ(m_proc->_isExcludeFolder(appDir + u"/"), 0);
}

TEST(IsEncryptedFile, ExtensionFromTheLastDotInAnyCase) {
    EXPECT_EQ(VELQShellExtProc::_isEncryptedFile(u"FILE.LQVZ"), 1);
    EXPECT_EQ(VELQShellExtProc::_isEncryptedFile(u"/a/b.lqVZ"), 1);
    EXPECT_EQ(VELQShellExtProc::_isEncryptedFile(u".lqvz"), 1);
    EXPECT_EQ(VELQShellExtProc::_isEncryptedFile(u"a.lqvz.txt"), 0);
    EXPECT_EQ(VELQShellExtProc::_isEncryptedFile(u"a.lqvzz"), 0);
    EXPECT_EQ(VELQShellExtProc::_isEncryptedFile(u"/d.lqvz/file"), 0);
    EXPECT_EQ(VELQShellExtProc::_isEncryptedFile(u""), 0);
}

}  // namespace
