// The generator, the wipe and the constant-time comparison.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "common/crypto/Crypto.h"

namespace {

using Fill = bool (*)(unsigned char*, std::size_t);

struct Level {
    const char* name;
    Fill fill;
    std::size_t longSize;  // libgcrypt's level for keys costs about 0.25 ms a byte under Wine
};

class CryptoRandom : public ::testing::TestWithParam<Level> {};

TEST_P(CryptoRandom, GivesFreshBytesEveryCall) {
    // 32 random bytes repeat, or come out all zero, with odds of 2^-256: a failure here is a fault.
    std::set<std::vector<unsigned char>> seen;
    for (int i = 0; i < 8; ++i) {
        std::vector<unsigned char> bytes(32, 0);
        ASSERT_TRUE(GetParam().fill(bytes.data(), bytes.size()));
        EXPECT_NE(bytes, std::vector<unsigned char>(32, 0));
        EXPECT_TRUE(seen.insert(bytes).second) << "call " << i << " repeated an earlier one";
    }
}

TEST_P(CryptoRandom, FillsLongBuffersToTheEnd) {
    std::vector<unsigned char> bytes(GetParam().longSize, 0);
    ASSERT_TRUE(GetParam().fill(bytes.data(), bytes.size()));
    // No stretch of 256 zeros at the end (odds 2^-2048): the whole length was written.
    EXPECT_FALSE(std::all_of(bytes.end() - 256, bytes.end(), [](unsigned char b) { return b == 0; }));
    EXPECT_TRUE(GetParam().fill(bytes.data(), 0));
}

INSTANTIATE_TEST_SUITE_P(BothLevels, CryptoRandom,
                         ::testing::Values(Level{"clear", &velqcrypto::randomBytes, 256 * 1024},
                                           Level{"secret", &velqcrypto::secretRandomBytes, 4096}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(CryptoWipe, ZeroesEveryByte) {
    unsigned char secret[40];
    std::fill(std::begin(secret), std::end(secret), 0xa5);
    velqcrypto::wipe(secret + 1, 38);
    EXPECT_EQ(secret[0], 0xa5);
    EXPECT_TRUE(std::all_of(secret + 1, secret + 39, [](unsigned char b) { return b == 0; }));
    EXPECT_EQ(secret[39], 0xa5) << "nothing past the range";
}

TEST(CryptoEqualConstantTime, TellsEqualFromDifferentAtAnyPosition) {
    const std::vector<unsigned char> a(64, 7);
    EXPECT_TRUE(velqcrypto::equalConstantTime(a.data(), a.data(), a.size()));
    for (std::size_t at : {std::size_t{0}, std::size_t{31}, std::size_t{63}}) {
        auto b = a;
        b[at] ^= 0x80;
        EXPECT_FALSE(velqcrypto::equalConstantTime(a.data(), b.data(), b.size())) << at;
    }
    EXPECT_TRUE(velqcrypto::equalConstantTime(a.data(), nullptr, 0));
}

}  // namespace
