// The crypt scene over real key files in a private data home.
#include <filesystem>

#include "common/VELQUserInfo.h"
#include "format_fixture.h"

namespace {

using Access = VELQCryptFileTestAccess;

class CryptSceneTest : public format_test::KeyedTest {
protected:
    VELQCryptFile m_engine{std::vector<std::u16string>{}, plat::FALSE};
};

TEST_F(CryptSceneTest, BindsTheOwnersKeyAndNotesItsCrc) {
    ASSERT_EQ(Access::initCryptScene(m_engine), 0);
    EXPECT_NE(Access::crypt(m_engine), nullptr);
    EXPECT_EQ(Access::crc32Key(m_engine), m_nKeyCrc);
}

TEST_F(CryptSceneTest, SecondSceneAfterANewKeyReplacesCipherAndCrc) {
    ASSERT_EQ(Access::initCryptScene(m_engine), 0);
    const unsigned oldCrc = m_nKeyCrc;
    ASSERT_EQ(saveNewRootKey(), 0);
    ASSERT_NE(m_nKeyCrc, oldCrc);
    ASSERT_EQ(Access::initCryptScene(m_engine), 0);
    EXPECT_EQ(Access::crc32Key(m_engine), m_nKeyCrc);
}

TEST_F(CryptSceneTest, MissingKeyFileGivesInvalidKeyAndDropsTheOldCipher) {
    ASSERT_EQ(Access::initCryptScene(m_engine), 0);
    std::filesystem::remove(plat::toUtf8(m_rootKeyPath));
    EXPECT_EQ(Access::initCryptScene(m_engine), CRYPT_E_INVALID_KEY);
    EXPECT_EQ(Access::crypt(m_engine), nullptr);
    EXPECT_EQ(Access::crc32Key(m_engine), m_nKeyCrc) << "only a success changes the key CRC";
}

TEST_F(CryptSceneTest, KeyFileCopiedIntoAnotherUsersFolderLoadsButIsRefused) {
    VELQUserInfo*& user = Access::userInfo(m_engine);
    const VELQUserInfo owner = *user;
    const std::u16string otherName = u"velq-test-other";
    const std::u16string otherKeyPath = getUserRootKeyFilePath(otherName, owner.getDomain(), u"");
    const std::filesystem::path otherFolder = std::filesystem::path(plat::toUtf8(otherKeyPath)).parent_path();
    std::filesystem::create_directories(otherFolder);
    const std::filesystem::path ownFolder = std::filesystem::path(plat::toUtf8(m_rootKeyPath)).parent_path();
    for (const char16_t* item : {velqdir::kRootKeyFileName, velqdir::kMachineSecretFileName}) {
        std::filesystem::copy_file(ownFolder / plat::toUtf8(item), otherFolder / plat::toUtf8(item));
    }
    VELQKey* key = nullptr;
    ASSERT_EQ(VELQKey::loadVELQKey(&key, otherKeyPath, kVELQRootKeyPassPhrase), 0) << "the copy loads";
    VELQKey::freeVELQKey(&key);

    delete user;
    user = new VELQUserInfo(owner.getUid() + 1, otherName, owner.getDomain());
    EXPECT_EQ(Access::initCryptScene(m_engine), CRYPT_E_INVALID_KEY);
    EXPECT_EQ(Access::crypt(m_engine), nullptr);
}

TEST_F(CryptSceneTest, NoUserGivesGeneralFailure) {
    VELQUserInfo*& user = Access::userInfo(m_engine);
    delete user;
    user = nullptr;
    EXPECT_EQ(Access::initCryptScene(m_engine), CRYPT_E_GENERAL);
}

}  // namespace
