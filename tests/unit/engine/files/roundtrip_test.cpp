// Files of every size class round-trip byte for byte through encryption (with its proof and the
// deletion of the source) and decryption, by the small and the big paths.
#include "files_fixture.h"

namespace files_test {
namespace {

constexpr std::uint64_t kGranularity = 65536;

// The data area of `n` plain bytes: whole 32-byte units plus the tag; an empty file has one final call
// of 48 bytes.
std::uint64_t dataArea(std::uint64_t n) {
    return n == 0 ? 48 : ((n + 31) / 32) * 32 + 16;
}

class RoundTrip : public FilesTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(RoundTrip, EncryptsProvesDeletesAndDecryptsBack) {
    const std::size_t size = GetParam();
    const Bytes plain = patternBytes(size, static_cast<unsigned>(size));
    writeAll(path("plain.bin"), plain);

    ASSERT_EQ(encrypt(path("plain.bin")), 0);
    EXPECT_EQ(files(), (std::set<std::string>{"plain.bin.lqvz"})) << "the source must go after the proof";
    EXPECT_TRUE(tempFiles().empty()) << "the proof's plain copy must not stay";
    const bool bBig = size >= 10485760;
    const std::uint64_t offset = bBig ? kGranularity : 1120;
    EXPECT_EQ(std::filesystem::file_size(path("plain.bin.lqvz")), offset + dataArea(size));
    // The proof's percent reaches the batch's own record, whose share the progress shows.
    ASSERT_FALSE(doubles().percents.empty());
    EXPECT_FLOAT_EQ(doubles().percents.back(), 100.0F);
    doubles().percents.clear();

    ASSERT_EQ(decrypt(path("plain.bin.lqvz")), 0);
    EXPECT_EQ(files(), (std::set<std::string>{"plain.bin"}));
    EXPECT_TRUE(readAll(path("plain.bin")) == plain) << "decrypted bytes differ";
    ASSERT_FALSE(doubles().percents.empty());
    EXPECT_FLOAT_EQ(doubles().percents.back(), 100.0F);
}

INSTANTIATE_TEST_SUITE_P(SizesAroundEveryBoundary, RoundTrip,
                         ::testing::Values(0u, 1u, 32u, 33u, 65536u, 65537u, 10485759u, 10485760u,
                                           10485760u + 1048576u + 100u));

TEST_F(FilesTest, BigDestinationHasZeroGapAndExactLength) {
    writeAll(path("big"), patternBytes(10485760 + 5));
    ASSERT_EQ(encrypt(path("big")), 0);
    const Bytes encrypted = readAll(path("big.lqvz"));
    ASSERT_EQ(encrypted.size(), kGranularity + dataArea(10485760 + 5));
    for (std::size_t i = 1120; i < kGranularity; ++i) {
        ASSERT_EQ(encrypted[i], 0) << "gap byte " << i;
    }
}

TEST_F(FilesTest, StoredNameWinsOverTheFilesName) {
    writeAll(path("a.txt"), patternBytes(100));
    ASSERT_EQ(encrypt(path("a.txt")), 0);
    std::filesystem::rename(path("a.txt.lqvz"), path("x.lqvz"));
    ASSERT_EQ(decrypt(path("x.lqvz")), 0);
    EXPECT_EQ(files(), (std::set<std::string>{"a.txt"}));
    EXPECT_TRUE(readAll(path("a.txt")) == patternBytes(100));
}

TEST_F(FilesTest, ModeComesBackAndEncryptedFileIsReadOnly) {
    for (const unsigned mode : {0640u, 0444u, 0755u}) {
        writeAll(path("m"), patternBytes(70000));
        std::filesystem::permissions(path("m"), static_cast<std::filesystem::perms>(mode));
        ASSERT_EQ(encrypt(path("m")), 0) << std::oct << mode;
        EXPECT_EQ(std::filesystem::status(path("m.lqvz")).permissions() & std::filesystem::perms::owner_write,
                  std::filesystem::perms::none);
        ASSERT_EQ(decrypt(path("m.lqvz")), 0);
        const auto perms = static_cast<unsigned>(std::filesystem::status(path("m")).permissions());
        EXPECT_EQ(perms, mode) << std::oct << mode;
        std::filesystem::permissions(path("m"), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add);
        std::filesystem::remove(path("m"));
    }
}

// Windows keeps no modes: the read-only attribute is what travels, both ways.
TEST_F(FilesTest, ReadOnlyAttributeComesBack) {
    for (const bool bReadOnly : {true, false}) {
        writeAll(path("r"), patternBytes(70000));
        if (bReadOnly) {
            ASSERT_TRUE(
                plat::SetFileAttributesW(plat::fromUtf8(path("r")).c_str(), plat::FILE_ATTRIBUTE_READONLY));
        }
        ASSERT_EQ(encrypt(path("r")), 0) << bReadOnly;
        EXPECT_NE(
            plat::GetFileAttributesW(plat::fromUtf8(path("r.lqvz")).c_str()) & plat::FILE_ATTRIBUTE_READONLY,
            0u);
        ASSERT_EQ(decrypt(path("r.lqvz")), 0) << bReadOnly;
        EXPECT_EQ((plat::GetFileAttributesW(plat::fromUtf8(path("r")).c_str()) &
                   plat::FILE_ATTRIBUTE_READONLY) != 0,
                  bReadOnly);
        EXPECT_TRUE(readAll(path("r")) == patternBytes(70000));
        plat::SetFileAttributesW(plat::fromUtf8(path("r")).c_str(), plat::FILE_ATTRIBUTE_NORMAL);
        std::filesystem::remove(path("r"));
    }
}

}  // namespace
}  // namespace files_test
