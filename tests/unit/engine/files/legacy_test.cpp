// Files of the legacy layout (no identity header, the enciphered header at offset 0, no data CRC) come
// back under their stored name; a final block whose length is a multiple of 32 carries no tag there.
#include <cstring>

#include "common/VELQUserInfo.h"
#include "files_fixture.h"

namespace files_test {
namespace {

constexpr std::uint64_t kLegacyHeaderLength = 1088;

class LegacyFile : public FilesTest {
protected:
    // Writes `file` as an old writer did: one cipher run over the header and then the data, whose final
    // call is `plain` rounded up to 32, plus 16 unless `plain` already is a multiple of 32.
    void writeLegacy(const std::string& file, const std::u16string& storedName, const Bytes& plain,
                     plat::DWORD dwAttributes = plat::FILE_ATTRIBUTE_NORMAL) {
        DestFileHeader header{};
        std::memcpy(header.m_encryptId, "VQE2", 4);
        const std::u16string owner = VELQUserInfoManager::getCurrentProcessOwner()->getDomainUserName();
        owner.copy(header.m_szOwner, owner.size());
        storedName.copy(header.m_szFileName, storedName.size());
        header.m_dwAttributes = dwAttributes;
        header.m_nDataOffset = kLegacyHeaderLength;
        header.m_nDataLength = plain.size();
        const std::uint64_t finalLength =
            plain.size() % 32 == 0 ? plain.size() : ((plain.size() + 31) / 32) * 32 + 16;

        Bytes bytes(kLegacyHeaderLength + finalLength, 0);
        std::memcpy(bytes.data(), &header, sizeof(header));
        std::memcpy(bytes.data() + kLegacyHeaderLength, plain.data(), plain.size());
        std::unique_ptr<VELQCryptFile> writer = keyedEngine();
        VELQCrypt* crypt = VELQCryptFileTestAccess::crypt(*writer);
        ASSERT_GE(crypt->encryptStream(bytes.data(), kLegacyHeaderLength, 0), 0);
        // Our cipher writes no untagged final call: a block call of the same bytes gives the same
        // stream, and the run is then closed without a tag.
        const int final = finalLength == plain.size() ? 0 : 1;
        ASSERT_GE(crypt->encryptStream(bytes.data() + kLegacyHeaderLength, finalLength, final), 0);
        crypt->endCryptProcess(true);
        writeAll(file, bytes);
    }
};

TEST_F(LegacyFile, ComesBackUnderItsStoredNameWithAndWithoutATag) {
    for (const std::size_t size : {std::size_t{64}, std::size_t{70}, std::size_t{65536 + 96}}) {
        const Bytes plain = patternBytes(size, 7);
        ASSERT_NO_FATAL_FAILURE(writeLegacy(path("old.lqvz"), u"old.doc", plain));
        ASSERT_EQ(decrypt(path("old.lqvz")), 0) << size;
        EXPECT_EQ(files(), (std::set<std::string>{"old.doc"})) << size;
        EXPECT_TRUE(readAll(path("old.doc")) == plain) << size;
        std::filesystem::remove(path("old.doc"));
    }
}

TEST_F(LegacyFile, ChangedByteWithoutATagDecryptsWithoutComplaint) {
    const Bytes plain = patternBytes(128, 3);
    ASSERT_NO_FATAL_FAILURE(writeLegacy(path("old.lqvz"), u"old.doc", plain));
    Bytes encrypted = readAll(path("old.lqvz"));
    ASSERT_EQ(encrypted.size(), kLegacyHeaderLength + 128);
    encrypted[kLegacyHeaderLength + 5] ^= 0x40;
    writeAll(path("old.lqvz"), encrypted);

    ASSERT_EQ(decrypt(path("old.lqvz")), 0) << "the legacy layout stores no CRC and no tag to compare";
    Bytes expected = plain;
    expected[5] ^= 0x40;  // a stream cipher: the change lands on the same plain byte
    EXPECT_TRUE(readAll(path("old.doc")) == expected);
}

// Stored attributes whose mode denies writing without the read-only bit among them: the destination of a
// failed pass is created that way and must still go.
TEST_F(LegacyFile, FailedDestinationGoesWhateverModeItWasGiven) {
    constexpr plat::DWORD kModeWithoutReadOnlyBit = 0x8000 | (0444U << 16) | plat::FILE_ATTRIBUTE_NORMAL;
    for (const plat::DWORD dwMode :
         {kModeWithoutReadOnlyBit, plat::DWORD{0x8000 | plat::FILE_ATTRIBUTE_NORMAL}}) {
        ASSERT_NO_FATAL_FAILURE(writeLegacy(path("old.lqvz"), u"old.doc", patternBytes(70), dwMode));
        Bytes encrypted = readAll(path("old.lqvz"));
        encrypted[kLegacyHeaderLength + 3] ^= 0x01;  // the tag of the final call no longer matches
        writeAll(path("old.lqvz"), encrypted);
        EXPECT_EQ(decrypt(path("old.lqvz")), CRYPT_E_DECRYPT) << std::hex << dwMode;
        EXPECT_EQ(files(), (std::set<std::string>{"old.lqvz"})) << std::hex << dwMode;
    }
}

}  // namespace
}  // namespace files_test
