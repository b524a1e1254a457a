#include <gtest/gtest.h>

#include <filesystem>

#include "common/VELQUserDirectory.h"
#include "data_home.h"
#include "plat/strings.h"
#include "plat/user_account.h"

namespace {

std::string utf8(const std::u16string& text) {
    return plat::toUtf8(text);
}

TEST(UserDirectory, DataHomeFollowsVelqThenXdgThenHome) {
    ScopedEnv velq("VELQ_DATA_HOME", "/v/home/");
    ScopedEnv xdg("XDG_DATA_HOME", "/x/data");
    ScopedEnv home("HOME", "/h");
    EXPECT_EQ(utf8(velqdir::dataHome()), "/v/home");
    setEnvironment("VELQ_DATA_HOME", nullptr);
    EXPECT_EQ(utf8(velqdir::dataHome()), "/x/data/velq");
    setEnvironment("XDG_DATA_HOME", "relative/ignored");
    EXPECT_EQ(utf8(velqdir::dataHome()), "/h/.local/share/velq");
    setEnvironment("XDG_DATA_HOME", nullptr);
    EXPECT_EQ(utf8(velqdir::dataHome()), "/h/.local/share/velq");
}

TEST(UserDirectory, DataHomeWithoutVelqIsTheUsersDataFolder) {
    ScopedEnv velq("VELQ_DATA_HOME", nullptr);
    const std::u16string base = plat::userDataFolder();
    ASSERT_FALSE(base.empty());
    EXPECT_EQ(velqdir::dataHome(), base + u"/velq");
}

// A data home under a profile named with letters outside ASCII ("Jürgen", a Greek "Σ"): the user's folder
// is made in the folder named, not in one named by the letters' ANSI code page bytes, or nowhere.
TEST(UserDirectory, ADataHomeWithLettersOutsideAsciiIsTheFolderNamed) {
    ScopedDataHome home;
    const std::string named = home.root() + "/J\xC3\xBCrgen \xCE\xA3/data";
    home.use(named);
    EXPECT_EQ(utf8(velqdir::dataHome()), named);
    ASSERT_EQ(createVELQAppUserDirectory(), 0);
    const std::u16string folder = plat::fromUtf8(named + "/users/") + velqdir::currentAccountName();
    EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::path(folder))) << utf8(folder);
}

TEST(UserDirectory, PathsLieUnderTheDataHomeForThisDomainOnly) {
    ScopedEnv velq("VELQ_DATA_HOME", "/d");
    const std::u16string domain = velqdir::hostDomain();
    ASSERT_FALSE(domain.empty());
    EXPECT_EQ(utf8(getVELQAppUserDirectory(u"alice", domain, u"")), "/d/users/alice");
    EXPECT_EQ(utf8(getVELQAppUserDirectory(u"alice", u"", u"sub")), "/d/users/alice/sub");
    EXPECT_EQ(utf8(getUserRootKeyFilePath(u"alice", domain, u"")), "/d/users/alice/root.key");
    EXPECT_EQ(utf8(getUserRootKeyFilePath(u"alice", domain, u"other.key")), "/d/users/alice/other.key");

    std::u16string upper = domain;
    for (char16_t& unit : upper) {
        unit = (unit >= u'a' && unit <= u'z') ? static_cast<char16_t>(unit - u'a' + u'A') : unit;
    }
    EXPECT_EQ(getVELQAppUserDirectory(u"alice", upper, u""), getVELQAppUserDirectory(u"alice", domain, u""));
    EXPECT_TRUE(getVELQAppUserDirectory(u"alice", domain + u"-elsewhere", u"").empty());
}

TEST(UserDirectory, NamesThatCouldLeaveTheFolderGiveEmptyResults) {
    ScopedEnv velq("VELQ_DATA_HOME", "/d");
    const std::vector<std::u16string> names = {u"", u".", u"..", u"a/b", u"a\\b", std::u16string(u"a\0b", 3)};
    for (const std::u16string& bad : names) {
        EXPECT_TRUE(getVELQAppUserDirectory(bad, u"", u"").empty()) << utf8(bad);
        EXPECT_TRUE(getUserRootKeyFilePath(bad, u"", u"").empty()) << utf8(bad);
        if (!bad.empty()) {
            EXPECT_TRUE(getVELQAppUserDirectory(u"alice", u"", bad).empty()) << utf8(bad);
            EXPECT_TRUE(getUserRootKeyFilePath(u"alice", u"", bad).empty()) << utf8(bad);
        }
    }
}

TEST(UserDirectory, CreateMakesOwnerOnlyFoldersAndTightensALooseOne) {
    ScopedDataHome home;
    const std::string folder = utf8(getVELQAppUserDirectory(velqdir::currentAccountName(), u"", u""));
    ASSERT_FALSE(folder.empty());
    ASSERT_EQ(createVELQAppUserDirectory(), 0);
    expectOwnerOnly(folder, 0700u);
    expectOwnerOnly(home.root() + "/data", 0700u);

#ifndef _WIN32  // modes are POSIX's; a Windows folder in the profile stays private through its access list
    ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
    ASSERT_EQ(createVELQAppUserDirectory(), 0);
    expectOwnerOnly(folder, 0700u);
#endif
}

TEST(UserDirectory, CreateFailsWhenAFileStandsInTheWay) {
    ScopedDataHome home;
    const std::string blocker = home.root() + "/file";
    std::FILE* file = std::fopen(blocker.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    home.use(blocker + "/data");
    EXPECT_LT(createVELQAppUserDirectory(), 0);
}

}  // namespace
