#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "data_home.h"
#include "plat/security.h"
#include "plat/strings.h"
#include "plat/user_account.h"

namespace {

class UserInfoTest : public ::testing::Test {
protected:
    void TearDown() override { VELQUserInfoManager::releaseUsers(); }
    ScopedDataHome m_home;
};

TEST_F(UserInfoTest, OwnerIsTheEffectiveAccountOfThisHost) {
    plat::UserAccount account;
    if (!plat::processOwnerAccount(account)) {
        GTEST_SKIP() << "the effective user has no account entry here";
    }
    VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner();
    ASSERT_NE(owner, nullptr);
    EXPECT_EQ(owner->getUserName(), account.name);
    EXPECT_EQ(owner->getDomain(), velqdir::hostDomain());
    EXPECT_EQ(owner->getDomainUserName(), owner->getDomain() + u"\\" + owner->getUserName());
    EXPECT_EQ(owner->getVELQSID(), plat::processOwnerSidText()) << "the SID its keys are bound to";
    EXPECT_EQ(VELQUserInfoManager::getCurrentProcessOwner(), owner) << "the same object until releaseUsers";

    const VELQUserInfo copy(*owner);
    VELQUserInfoManager::releaseUsers();
    EXPECT_EQ(copy.getVELQSID(), plat::processOwnerSidText());
}

TEST_F(UserInfoTest, AllUsersAreTheAccountsInUidOrderAndStayPut) {
    EXPECT_TRUE(VELQUserInfoManager::getAllUsers()->empty());
    ASSERT_EQ(VELQUserInfoManager::initUsers(1), 0);
    std::vector<VELQUserInfo*>* users = VELQUserInfoManager::getAllUsers();
    ASSERT_FALSE(users->empty());
    EXPECT_EQ((*users)[0]->getUid(), 0u) << "root comes first";
    for (std::size_t i = 1; i < users->size(); ++i) {
        EXPECT_LE((*users)[i - 1]->getUid(), (*users)[i]->getUid());
    }
    const std::u16string ownerSid = plat::processOwnerSidText();
    const bool hasOwner = std::any_of(users->begin(), users->end(), [&](const VELQUserInfo* user) {
        return user->getVELQSID() == ownerSid;
    });
    plat::UserAccount account;
    if (plat::processOwnerAccount(account)) {
        EXPECT_TRUE(hasOwner);
    }

    const std::vector<VELQUserInfo*> before = *users;
    EXPECT_EQ(VELQUserInfoManager::initUsers(1), 1) << "a second init keeps the list";
    EXPECT_EQ(*VELQUserInfoManager::getAllUsers(), before);

    std::vector<std::u16string> names;
    for (const VELQUserInfo* user : before) {
        names.push_back(user->getUserName());
    }
    VELQUserInfoManager::releaseUsers();
    EXPECT_TRUE(VELQUserInfoManager::getAllUsers()->empty());
    ASSERT_EQ(VELQUserInfoManager::initUsers(1), 0);
    std::vector<std::u16string> again;
    for (const VELQUserInfo* user : *VELQUserInfoManager::getAllUsers()) {
        again.push_back(user->getUserName());
    }
    EXPECT_EQ(again, names);
}

TEST_F(UserInfoTest, RecordKeepsTheFingerprintCountWithOwnerOnlyModes) {
    VELQUserInfo user(4242, u"recorded", velqdir::hostDomain());
    EXPECT_EQ(user.load(0), 1) << "no record yet";
    EXPECT_EQ(user.getFingerprintCount(), 0u);

    user.setFingerprintCount(7);
    ASSERT_EQ(user.save(0), 0);
    VELQUserInfo reader(4242, u"recorded", velqdir::hostDomain());
    ASSERT_EQ(reader.load(0), 0);
    EXPECT_EQ(reader.getFingerprintCount(), 7u);

    const std::string folder = plat::toUtf8(getVELQAppUserDirectory(u"recorded", u"", u""));
    expectOwnerOnly(folder, 0700u);
    expectOwnerOnly(folder + "/user.rec", 0600u);
}

TEST_F(UserInfoTest, DamagedRecordIsRefusedAndLeavesTheCount) {
    VELQUserInfo user(4243, u"damaged", velqdir::hostDomain());
    ASSERT_EQ(user.save(0), 0);
    const std::string record = plat::toUtf8(getVELQAppUserDirectory(u"damaged", u"", u"user.rec"));
    for (const char* text :
         {"", "VELQ user record 1\nfingerprints \n", "VELQ user record 1\nfingerprints 3x\n",
          "VELQ user record 1\nfingerprints 99999999999\n", "fingerprints 3\n"}) {
        std::ofstream(record, std::ios::trunc) << text;
        user.setFingerprintCount(5);
        EXPECT_LT(user.load(0), 0) << text;
        EXPECT_EQ(user.getFingerprintCount(), 5u) << text;
    }
}

TEST_F(UserInfoTest, UserOfAnotherDomainHasNoRecord) {
    VELQUserInfo user(4244, u"remote", velqdir::hostDomain() + u"-elsewhere");
    EXPECT_LT(user.save(0), 0);
    EXPECT_LT(user.load(0), 0);
}

TEST_F(UserInfoTest, ConcurrentCallersShareOneOwnerAndOneList) {
    constexpr int kThreads = 4;
    std::vector<VELQUserInfo*> owners(kThreads, nullptr);
    std::vector<std::vector<VELQUserInfo*>*> lists(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            owners[i] = VELQUserInfoManager::getCurrentProcessOwner();
            VELQUserInfoManager::initUsers(1);
            lists[i] = VELQUserInfoManager::getAllUsers();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int i = 1; i < kThreads; ++i) {
        EXPECT_EQ(owners[i], owners[0]);
        EXPECT_EQ(lists[i], lists[0]);
    }
    const std::size_t count = lists[0]->size();
    VELQUserInfoManager::releaseUsers();
    ASSERT_EQ(VELQUserInfoManager::initUsers(1), 0);
    EXPECT_EQ(VELQUserInfoManager::getAllUsers()->size(), count) << "every account exactly once";
}

}  // namespace
