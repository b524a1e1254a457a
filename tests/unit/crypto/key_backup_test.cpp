// The key backups of both implementations (key_backups.h) opened at the level below VELQKey, which needs
// no platform layer: parse, scrypt of the password, the password slot's AES-GCM, then the key id and the
// file MAC the key must reproduce. The same steps as VELQKey's loading, here so that they run under Wine.
#include <gtest/gtest.h>

#include <algorithm>

#include "common/KeyFileFormat.h"
#include "common/KeyWrap.h"
#include "crypto/key_backups.h"

namespace {

using velqcryptotest::Backup;

class CryptoKeyBackup : public ::testing::TestWithParam<Backup> {
protected:
    void SetUp() override {
        const std::string bytes = velqcryptotest::bytesOfBackup(GetParam());
        ASSERT_EQ(velqkeyfile::parseFile(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                                         m_fields),
                  0);
    }
    // True and the key in `key` when `password` opens the password slot.
    bool openWith(std::string_view password, unsigned char (&key)[velqkeywrap::kKeyBytes]) const {
        unsigned char kek[velqkeywrap::kKeyBytes] = {};
        return velqkeywrap::derivePasswordKek(password, m_fields.scrypt, m_fields.passwordSlot.salt.data(),
                                              kek) &&
               velqkeywrap::openKey(kek, velqkeyfile::passwordSlotAad(m_fields), m_fields.passwordSlot, key);
    }
    velqkeyfile::Fields m_fields;
};

TEST_P(CryptoKeyBackup, PasswordSlotOpensAndTheKeyReproducesIdAndMac) {
    unsigned char key[velqkeywrap::kKeyBytes] = {};
    ASSERT_TRUE(openWith(velqcryptotest::kBackupPassword, key)) << "written by " << GetParam().writtenBy;
    std::array<unsigned char, velqkeyfile::kKeyIdBytes> id{};
    std::array<unsigned char, velqkeyfile::kMacBytes> mac{};
    ASSERT_TRUE(velqkeywrap::keyId(key, id));
    ASSERT_TRUE(velqkeywrap::fileMac(key, velqkeyfile::encodeBody(m_fields), mac));
    EXPECT_EQ(id, m_fields.keyId);
    EXPECT_EQ(mac, m_fields.mac);
}

TEST_P(CryptoKeyBackup, AnotherPasswordOpensNothing) {
    unsigned char key[velqkeywrap::kKeyBytes] = {};
    EXPECT_FALSE(openWith("correct horse battery stapler", key));
    EXPECT_EQ(std::count(std::begin(key), std::end(key), 0), std::ptrdiff_t{velqkeywrap::kKeyBytes})
        << "a refused slot leaves no key bytes behind";
}

TEST_P(CryptoKeyBackup, EncodesBackToTheSameBytes) {
    // The digest at the end is SHA-256 over all before it: the writer's library and this one agree.
    const std::string bytes = velqcryptotest::bytesOfBackup(GetParam());
    const std::vector<unsigned char> encoded = velqkeyfile::encodeFile(m_fields);
    EXPECT_EQ(std::string(encoded.begin(), encoded.end()), bytes);
}

INSTANTIATE_TEST_SUITE_P(WrittenByEach, CryptoKeyBackup, ::testing::ValuesIn(velqcryptotest::kBackups),
                         [](const auto& test) { return std::string(test.param.writtenBy); });

}  // namespace
