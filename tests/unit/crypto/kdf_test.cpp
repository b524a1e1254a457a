// HKDF-SHA-256 (RFC 5869) and scrypt (RFC 7914), the same on every implementation; the key files' key
// encryption keys depend on both giving exactly these bytes.
#include <gtest/gtest.h>

#include <numeric>

#include "common/crypto/Crypto.h"
#include "crypto/hex.h"

using velqcryptotest::bytesOf;
using velqcryptotest::toHex;

namespace {

std::vector<unsigned char> sequence(unsigned char first, std::size_t count) {
    std::vector<unsigned char> bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

std::string hkdfHex(const std::vector<unsigned char>& secret, const std::vector<unsigned char>& salt,
                    const std::vector<unsigned char>& info, std::size_t size) {
    std::vector<unsigned char> out(size);
    EXPECT_TRUE(velqcrypto::hkdfSha256(secret.data(), secret.size(), salt.data(), salt.size(), info.data(),
                                       info.size(), out.data(), out.size()));
    return toHex(out.data(), out.size());
}

std::string scryptHex(std::string_view password, std::string_view salt, std::uint64_t n, std::uint32_t r,
                      std::uint32_t p) {
    const auto passwordBytes = bytesOf(password);
    const auto saltBytes = bytesOf(salt);
    unsigned char out[64] = {};
    EXPECT_TRUE(velqcrypto::scrypt(passwordBytes.data(), passwordBytes.size(), saltBytes.data(),
                                   saltBytes.size(), n, r, p, out, sizeof(out)));
    return toHex(out, sizeof(out));
}

TEST(CryptoHkdf, MatchesRfc5869) {
    const std::vector<unsigned char> ikm(22, 0x0b);
    EXPECT_EQ(hkdfHex(ikm, sequence(0x00, 13), sequence(0xf0, 10), 42),
              "3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf34007208d5b887185865");
    // Long inputs and an output of several HMAC blocks, the last one cut short.
    EXPECT_EQ(
        hkdfHex(sequence(0x00, 80), sequence(0x60, 80), sequence(0xb0, 80), 82),
        "b11e398dc80327a1c8e7f78c596a49344f012eda2d4efad8a050cc4c19afa97c59045a99cac7827271cb41c65e590e09da"
        "3275600c2f09b8367793a9aca3db71cc30c58179ec3e87c14c01d5c1f3434f1d87");
    // No salt stands for 32 zero bytes; no info is allowed (how the key files use it for the key id).
    EXPECT_EQ(hkdfHex(ikm, {}, {}, 42),
              "8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d9d201395faa4b61a96c8");
}

TEST(CryptoHkdf, RefusesOutputsOutsideTheRfcsRange) {
    const std::vector<unsigned char> ikm(22, 0x0b);
    std::vector<unsigned char> out(255 * 32 + 1);
    EXPECT_FALSE(
        velqcrypto::hkdfSha256(ikm.data(), ikm.size(), nullptr, 0, nullptr, 0, out.data(), out.size()));
    EXPECT_FALSE(velqcrypto::hkdfSha256(ikm.data(), ikm.size(), nullptr, 0, nullptr, 0, out.data(), 0));
    EXPECT_TRUE(velqcrypto::hkdfSha256(ikm.data(), ikm.size(), nullptr, 0, nullptr, 0, out.data(), 255 * 32));
}

TEST(CryptoScrypt, MatchesRfc7914) {
    EXPECT_EQ(
        scryptHex("", "", 16, 1, 1),
        "77d6576238657b203b19ca42c18a0497f16b4844e3074ae8dfdffa3fede21442fcd0069ded0948f8326a753a0fc81f17"
        "e8d3e0fb2e0d3628cf35e20c38d18906");
    EXPECT_EQ(
        scryptHex("password", "NaCl", 1024, 8, 16),
        "fdbabe1c9d3472007856e7190d01e9fe7c6ad7cbc8237830e77376634b3731622eaf30d92e22a3886ff109279d9830da"
        "c727afb94a83ee6d8360cbdfa2cc0640");
    EXPECT_EQ(
        scryptHex("pleaseletmein", "SodiumChloride", 16384, 8, 1),
        "7023bdcb3afd7348461c06cd81fd38ebfda8fbba904f8e3ea9b543f6545da1f2d5432955613f0fcf62d49705242a9af9"
        "e61e85dc0d651e40dfcf017b45575887");
    // The RFC's fourth vector (n = 2^20) needs 1 GiB and is left out.
}

TEST(CryptoScrypt, TakesEveryBlockSizeAKeyFileMayStore) {
    // Key files store r; libgcrypt's own scrypt knows only r = 8. Values from Python's hashlib.scrypt.
    EXPECT_EQ(
        scryptHex("password", "NaCl", 1024, 3, 2),
        "a296e4cb9f361406295ed2c73a418765b83c3032a4320f6ac1a356ed0d13fa70e4cc971e7388a4264e6bf3169b1dddec"
        "c926c0c566eddd8256bcfd394b154081");
}

TEST(CryptoScrypt, RefusesParametersOutsideTheRfc) {
    unsigned char out[32] = {};
    const unsigned char password[] = {'p'};
    for (const auto& [n, r, p] : {std::tuple<std::uint64_t, std::uint32_t, std::uint32_t>{0, 8, 1},
                                  {1, 8, 1},
                                  {1000, 8, 1},  // not a power of two
                                  {1024, 0, 1},
                                  {1024, 8, 0},
                                  {1024, 1u << 15, 1u << 15}}) {  // r * p reaches 2^30
        EXPECT_FALSE(velqcrypto::scrypt(password, 1, password, 1, n, r, p, out, sizeof(out)))
            << n << " " << r << " " << p;
    }
}

}  // namespace
