// AES-256-GCM with 96-bit nonces: the GCM paper's AES-256 test cases (13 to 16, as NIST's validation
// vectors give them), runs split into calls of any length, and tags that must refuse changed inputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "common/crypto/Crypto.h"
#include "crypto/hex.h"

using velqcrypto::AesGcm;
using velqcryptotest::fromHex;
using velqcryptotest::toHex;

namespace {

struct Vector {
    const char* key;
    const char* nonce;
    const char* plain;
    const char* aad;
    const char* cipher;
    const char* tag;
};

constexpr const char* kKey15 = "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308";
constexpr const char* kPlain15 =
    "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf5"
    "aa0"
    "de657ba637b391aafd255";
constexpr const char* kCipher15 =
    "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838c5f61e63"
    "93b"
    "a7a0abcc9f662898015ad";

const Vector kVectors[] = {
    {"0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000", "", "",
     "", "530f8afbc74536b9a963b4f1c4cb738b"},
    {"0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000",
     "00000000000000000000000000000000", "", "cea7403d4d606b6e074ec5d3baf39d18",
     "d0d1c8a799996bf0265b98b5d48ab919"},
    {kKey15, "cafebabefacedbaddecaf888", kPlain15, "", kCipher15, "b094dac5d93471bdec1a502270e3cc6c"},
    {kKey15, "cafebabefacedbaddecaf888",
     "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf"
     "5aa0"
     "de657ba637b39",
     "feedfacedeadbeeffeedfacedeadbeefabaddad2",
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838c5f61e6"
     "393b"
     "a7a0abcc9f662",
     "76fc6ece0f4e1768cddf8853bb2d551b"},
};

struct Sealed {
    std::vector<unsigned char> data;
    unsigned char tag[velqcrypto::kGcmTagBytes] = {};
};

// One run over `input` in calls of the given lengths, the last call taking what is left.
bool run(AesGcm& gcm, AesGcm::Direction direction, const Vector& v, std::vector<unsigned char> data,
         const std::vector<std::size_t>& pieces, Sealed& out) {
    const auto key = fromHex(v.key);
    const auto nonce = fromHex(v.nonce);
    const auto aad = fromHex(v.aad);
    if (!gcm.start(direction, key.data(), nonce.data()) ||
        (!aad.empty() && !gcm.authenticate(aad.data(), aad.size()))) {
        return false;
    }
    std::size_t at = 0;
    for (std::size_t piece : pieces) {
        piece = std::min(piece, data.size() - at);
        if (!gcm.update(data.data() + at, data.data() + at, piece)) {
            return false;
        }
        at += piece;
    }
    if (!gcm.update(data.data() + at, data.data() + at, data.size() - at)) {
        return false;
    }
    out.data = data;
    return direction == AesGcm::Direction::Decrypt || gcm.finishEncrypt(out.tag);
}

TEST(CryptoAesGcm, MatchesTheStandardVectors) {
    AesGcm gcm;
    ASSERT_TRUE(gcm.isReady());
    for (const Vector& v : kVectors) {
        Sealed sealed;
        ASSERT_TRUE(run(gcm, AesGcm::Direction::Encrypt, v, fromHex(v.plain), {}, sealed)) << v.tag;
        EXPECT_EQ(toHex(sealed.data.data(), sealed.data.size()), v.cipher);
        EXPECT_EQ(toHex(sealed.tag, sizeof(sealed.tag)), v.tag);

        Sealed opened;
        ASSERT_TRUE(run(gcm, AesGcm::Direction::Decrypt, v, fromHex(v.cipher), {}, opened)) << v.tag;
        EXPECT_EQ(toHex(opened.data.data(), opened.data.size()), v.plain);
        EXPECT_TRUE(gcm.finishDecrypt(sealed.tag)) << v.tag;
    }
}

TEST(CryptoAesGcm, GivesTheSameBytesWhateverTheSplitOfARun) {
    // The cipher of a file is driven in calls of 1064 bytes (a header), then multiples of 32; runs split
    // at lengths that are not multiples of the AES block are where a faulty library shows.
    const Vector& v = kVectors[3];
    AesGcm gcm;
    for (const std::vector<std::size_t>& pieces : std::vector<std::vector<std::size_t>>{
             {1}, {15, 1}, {17, 16, 1}, {7, 7, 7, 7, 7, 7, 7, 7}, {0, 32}, {59}}) {
        Sealed sealed;
        ASSERT_TRUE(run(gcm, AesGcm::Direction::Encrypt, v, fromHex(v.plain), pieces, sealed));
        EXPECT_EQ(toHex(sealed.data.data(), sealed.data.size()), v.cipher) << pieces.size();
        EXPECT_EQ(toHex(sealed.tag, sizeof(sealed.tag)), v.tag) << pieces.size();

        Sealed opened;
        ASSERT_TRUE(run(gcm, AesGcm::Direction::Decrypt, v, fromHex(v.cipher), pieces, opened));
        EXPECT_EQ(toHex(opened.data.data(), opened.data.size()), v.plain);
        EXPECT_TRUE(gcm.finishDecrypt(sealed.tag));
    }
}

// A file's run is megabytes long, where a library takes its widest paths (many blocks at a time), while the
// standard vectors are a few blocks long. The SHA-256 of this run's cipher bytes and tag was computed with
// another implementation of AES-256-GCM; the run is split at lengths that are not multiples of the AES
// block, in place and into another buffer, and its additional data comes in two pieces. The test is built
// over each GCM the build has.
TEST(CryptoAesGcm, ALongRunSplitAnyhowGivesTheStandardBytes) {
    constexpr std::size_t kLength = 3 * (std::size_t{1} << 20) + 5;
    std::vector<unsigned char> plain(kLength);
    for (std::size_t i = 0; i < kLength; ++i) {
        plain[i] = static_cast<unsigned char>(i * 7 + (i >> 16));
    }
    std::array<unsigned char, velqcrypto::kAesKeyBytes> key{};
    std::array<unsigned char, velqcrypto::kGcmNonceBytes> nonce{};
    for (std::size_t i = 0; i < key.size(); ++i) {
        key[i] = static_cast<unsigned char>(i);
        nonce[i % nonce.size()] = static_cast<unsigned char>(i % nonce.size());
    }
    const std::string aadFirst = "velq-header";
    const std::string aadSecond = "-part-two";
    AesGcm gcm;
    ASSERT_TRUE(gcm.start(AesGcm::Direction::Encrypt, key.data(), nonce.data()));
    ASSERT_TRUE(gcm.authenticate(reinterpret_cast<const unsigned char*>(aadFirst.data()), aadFirst.size()));
    ASSERT_TRUE(gcm.authenticate(reinterpret_cast<const unsigned char*>(aadSecond.data()), aadSecond.size()));
    std::vector<unsigned char> sealed(kLength + velqcrypto::kGcmTagBytes);
    std::size_t at = 0;
    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{1063}, std::size_t{1} << 20, std::size_t{4097}}) {
        ASSERT_TRUE(gcm.update(plain.data() + at, sealed.data() + at, piece));
        at += piece;
    }
    std::copy(plain.begin() + static_cast<std::ptrdiff_t>(at), plain.end(),
              sealed.begin() + static_cast<std::ptrdiff_t>(at));
    ASSERT_TRUE(gcm.update(sealed.data() + at, sealed.data() + at, kLength - at));
    unsigned char tag[velqcrypto::kGcmTagBytes] = {};
    ASSERT_TRUE(gcm.finishEncrypt(tag));
    std::copy(std::begin(tag), std::end(tag), sealed.begin() + static_cast<std::ptrdiff_t>(kLength));
    unsigned char digest[velqcrypto::kSha256Bytes] = {};
    ASSERT_TRUE(velqcrypto::sha256(sealed.data(), sealed.size(), digest));
    EXPECT_EQ(toHex(digest, sizeof(digest)),
              "9928970243b6a604d0ab1f0353996afecd4529ae7f0a65548fe50a32a1a052d3");

    ASSERT_TRUE(gcm.start(AesGcm::Direction::Decrypt, key.data(), nonce.data()));
    ASSERT_TRUE(gcm.authenticate(reinterpret_cast<const unsigned char*>((aadFirst + aadSecond).data()),
                                 aadFirst.size() + aadSecond.size()));
    ASSERT_TRUE(gcm.update(sealed.data(), sealed.data(), 100000));
    ASSERT_TRUE(gcm.update(sealed.data() + 100000, sealed.data() + 100000, kLength - 100000));
    EXPECT_TRUE(gcm.finishDecrypt(tag));
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), sealed.begin()));
}

TEST(CryptoAesGcm, SeparateOutputMatchesInPlace) {
    const Vector& v = kVectors[2];
    const auto key = fromHex(v.key);
    const auto nonce = fromHex(v.nonce);
    const auto plain = fromHex(v.plain);
    std::vector<unsigned char> cipher(plain.size());
    AesGcm gcm;
    ASSERT_TRUE(gcm.start(AesGcm::Direction::Encrypt, key.data(), nonce.data()));
    ASSERT_TRUE(gcm.update(plain.data(), cipher.data(), 1064 % 64));  // a header-sized remainder first
    ASSERT_TRUE(gcm.update(plain.data() + 40, cipher.data() + 40, plain.size() - 40));
    unsigned char tag[velqcrypto::kGcmTagBytes] = {};
    ASSERT_TRUE(gcm.finishEncrypt(tag));
    EXPECT_EQ(toHex(cipher.data(), cipher.size()), v.cipher);
    EXPECT_EQ(toHex(tag, sizeof(tag)), v.tag);
    EXPECT_EQ(toHex(plain.data(), plain.size()), v.plain) << "the input is left as it was";
}

TEST(CryptoAesGcm, RefusesAChangedTagCipherOrAad) {
    // Fixed-size copies: GCC 12 at -O2 sees a possible null in a vector's element access here.
    const Vector& v = kVectors[3];
    using Cipher = std::array<unsigned char, 60>;
    using Aad = std::array<unsigned char, 20>;
    using Tag = std::array<unsigned char, velqcrypto::kGcmTagBytes>;
    const auto check = [&v](Cipher cipher, const Aad& aad, const Tag& tag) {
        const auto key = fromHex(v.key);
        const auto nonce = fromHex(v.nonce);
        unsigned char expected[velqcrypto::kGcmTagBytes];
        std::memcpy(expected, tag.data(), sizeof(expected));
        AesGcm gcm;
        return gcm.start(AesGcm::Direction::Decrypt, key.data(), nonce.data()) &&
               gcm.authenticate(aad.data(), aad.size()) &&
               gcm.update(cipher.data(), cipher.data(), cipher.size()) && gcm.finishDecrypt(expected);
    };
    Cipher cipher{};
    Aad aad{};
    Tag tag{};
    std::memcpy(cipher.data(), fromHex(v.cipher).data(), cipher.size());
    std::memcpy(aad.data(), fromHex(v.aad).data(), aad.size());
    std::memcpy(tag.data(), fromHex(v.tag).data(), tag.size());
    ASSERT_TRUE(check(cipher, aad, tag));

    Cipher changedCipher = cipher;
    changedCipher[59] ^= 1;
    EXPECT_FALSE(check(changedCipher, aad, tag));
    Aad changedAad = aad;
    changedAad[0] ^= 0x80;
    EXPECT_FALSE(check(cipher, changedAad, tag));
    Tag changedTag = tag;
    changedTag[7] ^= 4;
    EXPECT_FALSE(check(cipher, aad, changedTag));
}

TEST(CryptoAesGcm, ANewStartForgetsTheRunBefore) {
    // The stream cipher restarts its context for every file, after finished and after abandoned runs.
    const Vector& v = kVectors[2];
    const auto key = fromHex(v.key);
    const auto nonce = fromHex(v.nonce);
    AesGcm gcm;
    std::vector<unsigned char> scrap(100, 0x5a);
    ASSERT_TRUE(gcm.start(AesGcm::Direction::Decrypt, key.data(), nonce.data()));
    ASSERT_TRUE(gcm.update(scrap.data(), scrap.data(), 33));  // abandoned midway

    Sealed sealed;
    ASSERT_TRUE(run(gcm, AesGcm::Direction::Encrypt, v, fromHex(v.plain), {64}, sealed));
    EXPECT_EQ(toHex(sealed.data.data(), sealed.data.size()), v.cipher);
    EXPECT_EQ(toHex(sealed.tag, sizeof(sealed.tag)), v.tag);
}

TEST(CryptoAesGcm, FinishMustMatchTheRunsDirection) {
    const Vector& v = kVectors[1];
    const auto key = fromHex(v.key);
    const auto nonce = fromHex(v.nonce);
    AesGcm gcm;
    unsigned char tag[velqcrypto::kGcmTagBytes] = {};
    ASSERT_TRUE(gcm.start(AesGcm::Direction::Decrypt, key.data(), nonce.data()));
    EXPECT_FALSE(gcm.finishEncrypt(tag)) << "a decrypt run gives no tag to be written";
}

}  // namespace
