// SIDs of POSIX accounts, their text form, and the membership test.
#include <grp.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "plat/errors.h"
#include "plat/security.h"
#include "plat/strings.h"

namespace plat {
namespace {

std::string textOf(PSID sid) {
    LPWSTR text = nullptr;
    if (ConvertSidToStringSidW(sid, &text) == FALSE) {
        return "<failed>";
    }
    const std::string result = toUtf8(text);
    LocalFree(text);
    return result;
}

// The SID of a text, freed at the end of the scope.
class SidOf {
public:
    explicit SidOf(std::string_view text) : m_text(fromUtf8(text)) {
        m_ok = ConvertStringSidToSidW(m_text.c_str(), &m_sid) != FALSE;
    }
    ~SidOf() { LocalFree(m_sid); }
    SidOf(const SidOf&) = delete;
    SidOf& operator=(const SidOf&) = delete;
    bool ok() const { return m_ok; }
    PSID get() const { return m_sid; }

private:
    std::u16string m_text;
    PSID m_sid = nullptr;
    bool m_ok = false;
};

TEST(SidText, AdministratorsGroupBuiltFromItsPartsReadsAsWindowsWritesIt) {
    PSID sid = nullptr;
    ASSERT_TRUE(AllocateAndInitializeSid(&SECURITY_NT_AUTHORITY, 2, SECURITY_BUILTIN_DOMAIN_RID,
                                         DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0, &sid));
    EXPECT_EQ(textOf(sid), "S-1-5-32-544");
    EXPECT_EQ(GetLengthSid(sid), 16u);
    EXPECT_EQ(FreeSid(sid), nullptr);
}

TEST(SidText, RoundTripsExactly) {
    for (const char* text : {"S-1-22-1-1000", "S-1-22-2-0", "S-1-1-0", "S-1-5", "S-1-5-21-4294967295-1-2-3",
                             "S-1-0x123456789ABC-7"}) {
        SidOf sid(text);
        ASSERT_TRUE(sid.ok()) << text;
        EXPECT_EQ(textOf(sid.get()), text);
    }
}

TEST(SidText, ProcessOwnerIsTheUnixUserOfTheEffectiveUid) {
    EXPECT_EQ(toUtf8(processOwnerSidText()), "S-1-22-1-" + std::to_string(geteuid()));
}

TEST(SidText, RefusesTextsThatAreNotExactlyASid) {
    for (const char* text :
         {"", "S-1-", "S-2-5-32", "s-1-5-32", "S-1-5--1", "S-1-5-032", "S-1-5-4294967296", "S-1-5-0x20",
          "S-1-22-1-1000 ", "S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"}) {
        PSID sid = nullptr;
        SetLastError(0);
        EXPECT_FALSE(ConvertStringSidToSidW(fromUtf8(text).c_str(), &sid)) << text;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_SID) << text;
    }
}

TEST(SidText, NullArgumentsAndBrokenSidsFailWithTheirErrors) {
    LPWSTR text = nullptr;
    EXPECT_FALSE(ConvertSidToStringSidW(nullptr, &text));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    BYTE wrongRevision[8] = {2, 0, 0, 0, 0, 0, 0, 5};
    EXPECT_FALSE(ConvertSidToStringSidW(wrongRevision, &text));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_SID);
    EXPECT_FALSE(IsValidSid(wrongRevision));
    EXPECT_EQ(GetLengthSid(wrongRevision), 0u);
    PSID sid = nullptr;
    EXPECT_FALSE(AllocateAndInitializeSid(&SECURITY_NT_AUTHORITY, 9, 0, 0, 0, 0, 0, 0, 0, 0, &sid));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Administrators, AreRootAndMembersOfSudoOrWheel) {
    EXPECT_TRUE(isAdministratorAccount(0, {}));
    EXPECT_TRUE(isAdministratorAccount(1000, {"users", "sudo"}));
    EXPECT_TRUE(isAdministratorAccount(1000, {"wheel"}));
    EXPECT_FALSE(isAdministratorAccount(1000, {"users", "admin", "sudoers", "Wheel"}));
    EXPECT_FALSE(isAdministratorAccount(1000, {}));
}

bool inGroupNamed(const char* name) {
    const group* entry = getgrnam(name);
    if (entry == nullptr) {
        return false;
    }
    const gid_t gid = entry->gr_gid;
    std::vector<gid_t> groups(static_cast<std::size_t>(getgroups(0, nullptr)) + 1);
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    for (int i = 0; i < count; ++i) {
        if (groups[static_cast<std::size_t>(i)] == gid) {
            return true;
        }
    }
    return getegid() == gid;
}

TEST(TokenMembership, OwnUserAndEveryoneAreMembersOtherUsersAreNot) {
    BOOL member = FALSE;
    SidOf self("S-1-22-1-" + std::to_string(geteuid()));
    ASSERT_TRUE(CheckTokenMembership(nullptr, self.get(), &member));
    EXPECT_TRUE(member);
    SidOf other("S-1-22-1-" + std::to_string(geteuid() + 1));
    ASSERT_TRUE(CheckTokenMembership(nullptr, other.get(), &member));
    EXPECT_FALSE(member);
    SidOf everyone("S-1-1-0");
    ASSERT_TRUE(CheckTokenMembership(nullptr, everyone.get(), &member));
    EXPECT_TRUE(member);
    SidOf ownGroup("S-1-22-2-" + std::to_string(getegid()));
    ASSERT_TRUE(CheckTokenMembership(nullptr, ownGroup.get(), &member));
    EXPECT_TRUE(member);
}

TEST(TokenMembership, AdministratorsFollowTheAccountsRule) {
    const bool expected = geteuid() == 0 || inGroupNamed("sudo") || inGroupNamed("wheel");
    PSID admins = nullptr;
    ASSERT_TRUE(AllocateAndInitializeSid(&SECURITY_NT_AUTHORITY, 2, SECURITY_BUILTIN_DOMAIN_RID,
                                         DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0, &admins));
    BOOL member = !expected;
    EXPECT_TRUE(CheckTokenMembership(nullptr, admins, &member));
    EXPECT_EQ(member != FALSE, expected);
    FreeSid(admins);
}

TEST(TokenMembership, RefusesOtherTokensAndBadArguments) {
    SidOf everyone("S-1-1-0");
    BOOL member = FALSE;
    EXPECT_FALSE(CheckTokenMembership(INVALID_HANDLE_VALUE, everyone.get(), &member));
    EXPECT_EQ(GetLastError(), ERROR_NO_TOKEN);
    EXPECT_FALSE(CheckTokenMembership(nullptr, nullptr, &member));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    BYTE broken[8] = {1, 16, 0, 0, 0, 0, 0, 5};
    EXPECT_FALSE(CheckTokenMembership(nullptr, broken, &member));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_SID);
}

}  // namespace
}  // namespace plat
