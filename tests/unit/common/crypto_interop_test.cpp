// Key backups cross between the two crypto implementations (crypto/key_backups.h): each opens through
// VELQKey, with its password, under whichever one this program is built with, and gives the same key.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "common/VELQKey.h"
#include "crypto/key_backups.h"
#include "data_home.h"
#include "plat/strings.h"

namespace {

using velqcryptotest::Backup;

const std::u16string kPassword = plat::fromUtf8(velqcryptotest::kBackupPassword);

class CryptoInterop : public ::testing::TestWithParam<Backup> {
protected:
    std::u16string writeBackup() {
        const std::string path = m_home.root() + "/backup.key";
        std::ofstream(path, std::ios::binary) << velqcryptotest::bytesOfBackup(GetParam());
        return plat::fromUtf8(path);
    }
    ScopedDataHome m_home;
};

TEST_P(CryptoInterop, BackupOpensWithItsPasswordAndGivesTheSameKey) {
    VELQKey* key = nullptr;
    ASSERT_EQ(VELQKey::loadVELQKey(&key, writeBackup(), kPassword), 0)
        << "written by " << GetParam().writtenBy;
    EXPECT_EQ(key->getCRC32Value(), GetParam().crc32);
    VELQKey::freeVELQKey(&key);
}

TEST_P(CryptoInterop, BackupRefusesAnotherPassword) {
    VELQKey* key = nullptr;
    EXPECT_EQ(VELQKey::loadVELQKey(&key, writeBackup(), u"correct horse battery stapler"),
              VELQ_E_WRONG_PASSPHRASE);
    EXPECT_EQ(key, nullptr);
}

INSTANTIATE_TEST_SUITE_P(WrittenByEach, CryptoInterop, ::testing::ValuesIn(velqcryptotest::kBackups),
                         [](const auto& test) { return std::string(test.param.writtenBy); });

}  // namespace
