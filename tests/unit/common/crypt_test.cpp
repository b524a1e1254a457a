#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "common/VELQCrypt.h"

namespace {

constexpr unsigned long kHeader = 1088;
constexpr long kAuthenticationFailed = static_cast<plat::HRESULT>(0x80090005);

struct File {
    std::vector<unsigned char> header = std::vector<unsigned char>(kHeader);
    std::vector<unsigned char> body = std::vector<unsigned char>(65536);
    std::vector<unsigned char> last = std::vector<unsigned char>(32 * 3 + 16);
    File() {
        for (std::size_t i = 0; i < 1064; ++i) {
            header[i] = static_cast<unsigned char>(i * 7);
        }
        for (std::size_t i = 0; i < body.size(); ++i) {
            body[i] = static_cast<unsigned char>(i * 13 + 1);
        }
        for (std::size_t i = 0; i + 16 < last.size(); ++i) {
            last[i] = static_cast<unsigned char>(i + 3);
        }
    }
};

long encryptFile(VELQCrypt& crypt, File& file) {
    long result = crypt.encryptStream(file.header.data(), kHeader, 0);
    if (result == 0) {
        result = crypt.encryptStream(file.body.data(), file.body.size(), 0);
    }
    return result == 0 ? crypt.encryptStream(file.last.data(), file.last.size(), 1) : result;
}

long decryptFile(VELQCrypt& crypt, File& file) {
    long result = crypt.decryptStream(file.header.data(), kHeader, 0);
    if (result == 0) {
        result = crypt.decryptStream(file.body.data(), file.body.size(), 0);
    }
    return result == 0 ? crypt.decryptStream(file.last.data(), file.last.size(), 1) : result;
}

class CryptTest : public ::testing::Test {
protected:
    void SetUp() override {
        VELQKey* key = nullptr;
        ASSERT_EQ(VELQCrypt::createVELQKey(&key), 0);
        long result = -1;
        m_pCrypt = std::make_unique<VELQCrypt>(*key, result);
        VELQKey::freeVELQKey(&key);  // the cipher keeps its own copy
        ASSERT_EQ(result, 0);
    }
    std::unique_ptr<VELQCrypt> m_pCrypt;
};

TEST_F(CryptTest, RoundTripsOnOneObjectAfterTheKeyIsFreed) {
    const File plain;
    File file;
    ASSERT_EQ(encryptFile(*m_pCrypt, file), 0);
    EXPECT_NE(file.body, plain.body);
    ASSERT_EQ(decryptFile(*m_pCrypt, file), 0);
    EXPECT_EQ(file.header, plain.header);
    EXPECT_EQ(file.body, plain.body);
    EXPECT_EQ(file.last, plain.last);
}

TEST_F(CryptTest, AnotherKeyFailsTheFinalCall) {
    File file;
    ASSERT_EQ(encryptFile(*m_pCrypt, file), 0);
    VELQKey* other = nullptr;
    ASSERT_EQ(VELQCrypt::createVELQKey(&other), 0);
    long result = -1;
    VELQCrypt otherCrypt(*other, result);
    VELQKey::freeVELQKey(&other);
    ASSERT_EQ(result, 0);
    EXPECT_EQ(decryptFile(otherCrypt, file), kAuthenticationFailed);
}

TEST_F(CryptTest, LengthsBeyondFourGiBAreRefusedAndEndTheRun) {
    if (sizeof(unsigned long) < 8) {
        GTEST_SKIP() << "an unsigned long holds no length beyond 4 GiB on this system (LLP64)";
    }
    const auto beyondFourGiB = static_cast<unsigned long>((std::uint64_t{1} << 32) + 32);
    File file;
    ASSERT_EQ(m_pCrypt->encryptStream(file.header.data(), kHeader, 0), 0);
    EXPECT_EQ(m_pCrypt->encryptStream(file.body.data(), beyondFourGiB, 0), plat::E_INVALIDARG);
    // The run is over: the next call must open a new one with a header.
    EXPECT_EQ(m_pCrypt->encryptStream(file.body.data(), file.body.size(), 0), plat::E_INVALIDARG);
    File fresh;
    EXPECT_EQ(encryptFile(*m_pCrypt, fresh), 0);
}

TEST_F(CryptTest, EndCryptProcessEndsAnOpenRunAndIsHarmlessWithout) {
    EXPECT_EQ(m_pCrypt->endCryptProcess(true), 0);
    File file;
    ASSERT_EQ(m_pCrypt->encryptStream(file.header.data(), kHeader, 0), 0);
    EXPECT_EQ(m_pCrypt->endCryptProcess(false), 0) << "ends a run whatever the flag";
    EXPECT_EQ(m_pCrypt->encryptStream(file.body.data(), file.body.size(), 0), plat::E_INVALIDARG);
    const File plain;
    File again;
    ASSERT_EQ(encryptFile(*m_pCrypt, again), 0);
    ASSERT_EQ(decryptFile(*m_pCrypt, again), 0);
    EXPECT_EQ(again.body, plain.body);
    EXPECT_EQ(m_pCrypt->endCryptProcess(true), 0);
}

TEST_F(CryptTest, NullDataIsRefused) {
    EXPECT_EQ(m_pCrypt->encryptStream(nullptr, kHeader, 0), plat::E_INVALIDARG);
    EXPECT_EQ(m_pCrypt->decryptStream(nullptr, kHeader, 0), plat::E_INVALIDARG);
}

}  // namespace
