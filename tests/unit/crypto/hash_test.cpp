// SHA-256 (FIPS 180-4 examples) and HMAC-SHA-256 (RFC 4231), the same on every implementation.
#include <gtest/gtest.h>

#include "common/crypto/Crypto.h"
#include "crypto/hex.h"

using velqcryptotest::bytesOf;
using velqcryptotest::toHex;

namespace {

std::string sha256Hex(const std::vector<unsigned char>& data) {
    unsigned char digest[velqcrypto::kSha256Bytes] = {};
    EXPECT_TRUE(velqcrypto::sha256(data.data(), data.size(), digest));
    return toHex(digest, sizeof(digest));
}

std::string hmacHex(const std::vector<unsigned char>& key, const std::vector<unsigned char>& data) {
    unsigned char mac[velqcrypto::kSha256Bytes] = {};
    EXPECT_TRUE(velqcrypto::hmacSha256(key.data(), key.size(), data.data(), data.size(), mac));
    return toHex(mac, sizeof(mac));
}

TEST(CryptoSha256, MatchesTheStandardsExamples) {
    EXPECT_EQ(sha256Hex(bytesOf("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256Hex({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256Hex(bytesOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(sha256Hex(std::vector<unsigned char>(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(CryptoHmacSha256, MatchesRfc4231) {
    EXPECT_EQ(hmacHex(std::vector<unsigned char>(20, 0x0b), bytesOf("Hi There")),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(hmacHex(bytesOf("Jefe"), bytesOf("what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    // A key longer than SHA-256's 64-byte block is hashed first (RFC 4231 test case 6).
    EXPECT_EQ(hmacHex(std::vector<unsigned char>(131, 0xaa),
                      bytesOf("Test Using Larger Than Block-Size Key - Hash Key First")),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

TEST(CryptoHmacSha256, TakesAnEmptyKey) {
    // HKDF's extract step and PBKDF2 may key HMAC with nothing; the value is HMAC's, not an error.
    EXPECT_EQ(hmacHex({}, {}), "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
}

}  // namespace
