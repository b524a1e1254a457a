#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"
#include "data_home.h"
#include "plat/security.h"
#include "plat/strings.h"

namespace {

// The cheapest parameters a reader accepts: the tests' files open in milliseconds.
constexpr velqkeyfile::ScryptParams kCheap{10, 8, 1};
const std::u16string kPassword = u"correct horse \u00e9";

std::vector<unsigned char> readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeAll(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

class KeyTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(createVELQAppUserDirectory(), 0);
        m_rootPath = getUserRootKeyFilePath(velqdir::currentAccountName(), u"", u"");
        ASSERT_FALSE(m_rootPath.empty());
        ASSERT_EQ(VELQCrypt::createVELQKey(&m_pKey), 0);
        ASSERT_NE(m_pKey, nullptr);
    }
    void TearDown() override { VELQKey::freeVELQKey(&m_pKey); }

    std::string rootPath() const { return plat::toUtf8(m_rootPath); }
    // The SID the key is bound to: the process owner's (S-1-22-1-<uid> on POSIX, the token's on Windows).
    std::u16string ownerSid() const { return plat::processOwnerSidText(); }

    ScopedDataHome m_home;
    std::u16string m_rootPath;
    VELQKey* m_pKey = nullptr;
};

TEST_F(KeyTest, SavedFileOpensWithItsPasswordAndWithTheFixedPassPhrase) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    for (const std::u16string& pass : {kPassword, std::u16string(kVELQRootKeyPassPhrase)}) {
        VELQKey* loaded = nullptr;
        ASSERT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, pass), 0);
        ASSERT_NE(loaded, nullptr);
        EXPECT_EQ(loaded->getCRC32Value(), m_pKey->getCRC32Value());
        EXPECT_EQ(loaded->checkSID(ownerSid()), 0);
        VELQKey::freeVELQKey(&loaded);
        EXPECT_EQ(loaded, nullptr);
    }
}

TEST_F(KeyTest, WrongPasswordIsTheWrongPassPhraseCode) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    for (const std::u16string& wrong :
         {std::u16string(u"correct horse e"), std::u16string(), kPassword + u" "}) {
        VELQKey* loaded = nullptr;
        EXPECT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, wrong), VELQ_E_WRONG_PASSPHRASE);
        EXPECT_EQ(loaded, nullptr);
    }
}

TEST_F(KeyTest, CopyOnAnotherMachineOpensOnlyWithItsPasswordUntilImported) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    const std::string backup = m_home.root() + "/backup.key";
    std::filesystem::copy_file(rootPath(), backup);

    m_home.use(m_home.root() + "/other-machine");
    ASSERT_EQ(createVELQAppUserDirectory(), 0);
    const std::u16string otherRoot = getUserRootKeyFilePath(velqdir::currentAccountName(), u"", u"");
    VELQKey* loaded = nullptr;
    EXPECT_EQ(VELQKey::loadVELQKey(&loaded, plat::fromUtf8(backup), kVELQRootKeyPassPhrase),
              VELQ_E_WRONG_PASSPHRASE);
    ASSERT_EQ(VELQKey::loadVELQKey(&loaded, plat::fromUtf8(backup), kPassword), 0);
    ASSERT_EQ(loaded->import(otherRoot), 0);
    VELQKey::freeVELQKey(&loaded);

    // Imported: the fixed pass phrase opens it here, and the password still does.
    for (const std::u16string& pass : {std::u16string(kVELQRootKeyPassPhrase), kPassword}) {
        ASSERT_EQ(VELQKey::loadVELQKey(&loaded, otherRoot, pass), 0);
        EXPECT_EQ(loaded->getCRC32Value(), m_pKey->getCRC32Value());
        VELQKey::freeVELQKey(&loaded);
    }
    expectOwnerOnly(plat::toUtf8(otherRoot), 0600u);
}

TEST_F(KeyTest, FlippedByteAnywhereIsRefusedAsDamaged) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    const std::vector<unsigned char> good = readAll(rootPath());
    ASSERT_EQ(good.size(), velqkeyfile::kFixedBytes + ownerSid().size());
    for (std::size_t offset = 0; offset < good.size(); ++offset) {
        std::vector<unsigned char> bad = good;
        bad[offset] ^= 0x01;
        writeAll(rootPath(), bad);
        VELQKey* loaded = nullptr;
        const long result = VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword);
        EXPECT_TRUE(result == VELQ_E_DAMAGED_KEY_FILE || (offset < 10 && result == VELQ_E_FOREIGN_KEY_FILE))
            << "offset " << offset << " result " << std::hex << result;
        EXPECT_EQ(loaded, nullptr);
    }
}

TEST_F(KeyTest, ForeignShortLongAndMissingFilesAreRefused) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    const std::vector<unsigned char> good = readAll(rootPath());
    const std::vector<std::pair<std::vector<unsigned char>, long>> cases = {
        {{}, VELQ_E_FOREIGN_KEY_FILE},
        {{'P', 'K', 3, 4, 0, 0, 0, 0, 0, 0, 0, 0}, VELQ_E_FOREIGN_KEY_FILE},
        {std::vector<unsigned char>(good.begin(), good.end() - 1), VELQ_E_DAMAGED_KEY_FILE},
        {std::vector<unsigned char>(good.begin(), good.begin() + 40), VELQ_E_DAMAGED_KEY_FILE},
        {std::vector<unsigned char>(4096, 'V'), VELQ_E_DAMAGED_KEY_FILE},
    };
    for (const auto& [bytes, expected] : cases) {
        writeAll(rootPath(), bytes);
        VELQKey* loaded = nullptr;
        EXPECT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword), expected) << bytes.size() << " bytes";
    }
    std::vector<unsigned char> longer = good;
    longer.push_back(0);
    writeAll(rootPath(), longer);
    VELQKey* loaded = nullptr;
    EXPECT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword), VELQ_E_DAMAGED_KEY_FILE);
    EXPECT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath + u".missing", kPassword),
              static_cast<long>(plat::HRESULT_FROM_WIN32(2)));
    EXPECT_EQ(VELQKey::loadVELQKey(nullptr, m_rootPath, kPassword), plat::E_POINTER);
}

TEST_F(KeyTest, LostMachineSecretLeavesOnlyThePassword) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    const std::string secret =
        plat::toUtf8(getVELQAppUserDirectory(velqdir::currentAccountName(), u"", u"machine.secret"));
    expectOwnerOnly(secret, 0600u);
    ASSERT_EQ(std::remove(secret.c_str()), 0);
    VELQKey* loaded = nullptr;
    EXPECT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kVELQRootKeyPassPhrase), VELQ_E_WRONG_PASSPHRASE);
    EXPECT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword), 0);
    VELQKey::freeVELQKey(&loaded);
}

TEST_F(KeyTest, FilesAreOwnerOnlyAndNoTempFileIsLeft) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0) << "overwrites in place";
    ASSERT_EQ(m_pKey->import(m_rootPath), 0);
    const std::filesystem::path folder = std::filesystem::path(rootPath()).parent_path();
    expectOwnerOnly(folder.string(), 0700u);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
        expectOwnerOnly(entry.path().string(), 0600u);
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"machine.secret", "root.key"}));
}

TEST_F(KeyTest, SaveIntoAMissingFolderFailsAndImportNeedsAPasswordSlot) {
    EXPECT_EQ(m_pKey->import(m_rootPath), VELQ_E_NO_PASSWORD_SLOT);
    EXPECT_LT(m_pKey->saveToFile(plat::fromUtf8(m_home.root() + "/no/such/folder/k.key"), kPassword, kCheap),
              0);
    EXPECT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, velqkeyfile::ScryptParams{30, 8, 1}),
              plat::E_INVALIDARG);
    EXPECT_FALSE(std::filesystem::exists(rootPath()));
}

TEST_F(KeyTest, CheckSidAcceptsOnlyTheOwner) {
    EXPECT_EQ(m_pKey->checkSID(ownerSid()), 0);
    EXPECT_EQ(m_pKey->checkSID(u"S-1-5-21-0-0-0-1"), VELQ_E_OTHER_USER);
    EXPECT_EQ(m_pKey->checkSID(u""), VELQ_E_OTHER_USER);
    EXPECT_EQ(m_pKey->checkSID(ownerSid() + u"0"), VELQ_E_OTHER_USER);
}

TEST_F(KeyTest, Crc32IsTheSameInAnotherProcessAndDiffersBetweenKeys) {
#ifdef _WIN32
    GTEST_SKIP() << "the other process is a fork (POSIX)";
#else
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    int pipeFds[2] = {};
    ASSERT_EQ(::pipe(pipeFds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        VELQKey* loaded = nullptr;
        unsigned int crc = 0;
        if (VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword) == 0) {
            crc = loaded->getCRC32Value();
        }
        VELQKey::freeVELQKey(&loaded);
        const bool written = ::write(pipeFds[1], &crc, sizeof(crc)) == sizeof(crc);
        ::_exit(written ? 0 : 1);
    }
    ::close(pipeFds[1]);
    unsigned int childCrc = 0;
    EXPECT_EQ(::read(pipeFds[0], &childCrc, sizeof(childCrc)), static_cast<ssize_t>(sizeof(childCrc)));
    ::close(pipeFds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(childCrc, m_pKey->getCRC32Value());

    VELQKey* other = nullptr;
    ASSERT_EQ(VELQCrypt::createVELQKey(&other), 0);
    EXPECT_NE(other->getCRC32Value(), m_pKey->getCRC32Value());
    VELQKey::freeVELQKey(&other);
#endif
}

TEST_F(KeyTest, LoadingAgainIntoTheSamePointerFreesTheFirstKey) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    VELQKey* loaded = nullptr;
    ASSERT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword), 0);
    EXPECT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, u"wrong"), VELQ_E_WRONG_PASSPHRASE);
    EXPECT_EQ(loaded, nullptr);  // the leak checker sees whether the first one was freed
    ASSERT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword), 0);
    ASSERT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword), 0);
    VELQKey::freeVELQKey(&loaded);
    VELQKey::freeVELQKey(&loaded);
    EXPECT_EQ(VELQKey::freeVELQKey(nullptr), 0);
}

// One file with the production parameters: they are what the file says, and it opens.
TEST_F(KeyTest, DefaultParametersAreStoredAndUseAtLeast64MiB) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword), 0);
    const std::vector<unsigned char> bytes = readAll(rootPath());
    velqkeyfile::Fields fields;
    ASSERT_EQ(velqkeyfile::parseFile(bytes.data(), bytes.size(), fields), 0);
    EXPECT_GE((std::uint64_t{128} << fields.scrypt.log2N) * fields.scrypt.r, std::uint64_t{64} << 20);
    VELQKey* loaded = nullptr;
    ASSERT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kPassword), 0);
    EXPECT_EQ(loaded->getCRC32Value(), m_pKey->getCRC32Value());
    VELQKey::freeVELQKey(&loaded);
}

TEST_F(KeyTest, CipherOfALoadedKeyDecryptsWhatTheOriginalEncrypted) {
    ASSERT_EQ(m_pKey->saveToFile(m_rootPath, kPassword, kCheap), 0);
    std::vector<unsigned char> header(1088, 0x11), last(48, 0x22);
    std::fill(last.end() - 16, last.end(), 0);
    const std::vector<unsigned char> plainLast = last;
    long result = -1;
    VELQCrypt writer(*m_pKey, result);
    ASSERT_EQ(result, 0);
    ASSERT_EQ(writer.encryptStream(header.data(), header.size(), 0), 0);
    ASSERT_EQ(writer.encryptStream(last.data(), last.size(), 1), 0);

    VELQKey* loaded = nullptr;
    ASSERT_EQ(VELQKey::loadVELQKey(&loaded, m_rootPath, kVELQRootKeyPassPhrase), 0);
    VELQCrypt reader(*loaded, result);
    VELQKey::freeVELQKey(&loaded);
    ASSERT_EQ(result, 0);
    ASSERT_EQ(reader.decryptStream(header.data(), header.size(), 0), 0);
    ASSERT_EQ(reader.decryptStream(last.data(), last.size(), 1), 0);
    EXPECT_EQ(last, plainLast);
}

}  // namespace
