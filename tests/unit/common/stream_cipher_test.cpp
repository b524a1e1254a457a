#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "common/StreamCipher.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr plat::ULONG kHeader = VELQStreamCipher::kHeaderBytes;

struct Key {
    unsigned char bytes[VELQStreamCipher::kKeyBytes];
    explicit Key(unsigned char seed) {
        for (std::size_t i = 0; i < sizeof(bytes); ++i) {
            bytes[i] = static_cast<unsigned char>(seed + i * 7);
        }
    }
};

// A run as the file format lays it out: a 1088-byte header (fill zero), then the data area of N plain
// bytes rounded up to 32 plus 16 (48 for an empty file).
struct CipherRun {
    Bytes header = Bytes(kHeader, 0);
    Bytes data;
    explicit CipherRun(std::size_t plainBytes) {
        for (std::size_t i = 0; i < VELQStreamCipher::kHeaderFieldsBytes; ++i) {
            header[i] = static_cast<unsigned char>(i);
        }
        data.assign(plainBytes == 0 ? 48 : (plainBytes + 31) / 32 * 32 + 16, 0);
        for (std::size_t i = 0; i < plainBytes; ++i) {
            data[i] = static_cast<unsigned char>(i * 13 + 5);
        }
    }
};

// Runs the data area through `step` as the engine does: blocks of `block` bytes, then the rest of the
// plain bytes with the 16 tag bytes as the final call.
template <typename Step>
plat::HRESULT passData(Bytes& data, plat::ULONG block, Step step) {
    std::size_t offset = 0;
    while (data.size() - offset - VELQStreamCipher::kTagBytes > block) {
        const plat::HRESULT hr = step(data.data() + offset, block, 0);
        if (hr < 0) {
            return hr;
        }
        offset += block;
    }
    return step(data.data() + offset, static_cast<plat::ULONG>(data.size() - offset), 1);
}

plat::HRESULT encryptRun(VELQStreamCipher& cipher, CipherRun& run, plat::ULONG block) {
    const plat::HRESULT hr = cipher.encrypt(run.header.data(), kHeader, 0);
    if (hr < 0) {
        return hr;
    }
    return passData(run.data, block,
                    [&](unsigned char* p, plat::ULONG n, int f) { return cipher.encrypt(p, n, f); });
}

plat::HRESULT decryptRun(VELQStreamCipher& cipher, CipherRun& run, plat::ULONG block) {
    const plat::HRESULT hr = cipher.decrypt(run.header.data(), kHeader, 0);
    if (hr < 0) {
        return hr;
    }
    return passData(run.data, block,
                    [&](unsigned char* p, plat::ULONG n, int f) { return cipher.decrypt(p, n, f); });
}

TEST(StreamCipher, MatchesOneShotGcmOverHeaderAndData) {
    const Key key(1);
    VELQStreamCipher cipher(key.bytes);
    CipherRun run(100);
    const CipherRun plain(100);
    ASSERT_EQ(encryptRun(cipher, run, 64), 0);

    // One-shot GCM with the nonce the run left in the header's fill, over header fields then plain data.
    const unsigned char* nonce = run.header.data() + VELQStreamCipher::kHeaderFieldsBytes;
    Bytes input(plain.header.begin(), plain.header.begin() + VELQStreamCipher::kHeaderFieldsBytes);
    input.insert(input.end(), plain.data.begin(), plain.data.end() - 16);
    Bytes expected(input.size());
    unsigned char tag[16];
    velqcrypto::AesGcm gcm;
    ASSERT_TRUE(gcm.start(velqcrypto::AesGcm::Direction::Encrypt, key.bytes, nonce));
    ASSERT_TRUE(gcm.update(input.data(), expected.data(), input.size()));
    ASSERT_TRUE(gcm.finishEncrypt(tag));

    Bytes actual(run.header.begin(), run.header.begin() + VELQStreamCipher::kHeaderFieldsBytes);
    actual.insert(actual.end(), run.data.begin(), run.data.end() - 16);
    EXPECT_EQ(actual, expected);
    EXPECT_TRUE(std::equal(tag, tag + 16, run.data.end() - 16));
    EXPECT_TRUE(
        std::all_of(run.header.begin() + 1076, run.header.end(), [](unsigned char c) { return c == 0; }));
}

TEST(StreamCipher, RoundTripsWhateverTheSplitAndRestoresFillAndTagAsZeros) {
    const Key key(2);
    for (std::size_t size : {0u, 1u, 32u, 33u, 4096u, 100000u}) {
        VELQStreamCipher cipher(key.bytes);
        CipherRun run(size);
        const CipherRun plain(size);
        ASSERT_EQ(encryptRun(cipher, run, 65536), 0) << size;
        EXPECT_NE(run.data, plain.data);
        // Decrypt on the same object, in blocks of another size.
        ASSERT_EQ(decryptRun(cipher, run, 32), 0) << size;
        EXPECT_EQ(run.header, plain.header) << size;
        EXPECT_EQ(run.data, plain.data) << size;
    }
}

// A big file's blocks go from a source view into a destination view, as the engine runs them: blocks
// apart, the final call in place behind a copy of the rest.
template <typename Call>
plat::HRESULT runApart(Call call, const Bytes& source, Bytes& out, plat::ULONG block) {
    std::size_t offset = 0;
    for (; source.size() - offset - VELQStreamCipher::kTagBytes > block; offset += block) {
        const plat::HRESULT hr = call(source.data() + offset, out.data() + offset, block);
        if (hr < 0) {
            return hr;
        }
    }
    std::memcpy(out.data() + offset, source.data() + offset, source.size() - offset);
    return call(out.data() + offset, static_cast<plat::ULONG>(source.size() - offset), 1);
}

// The same bytes must come out as with every call in place, in both directions, and a call apart is
// refused wherever a block call in place would be.
TEST(StreamCipher, BlockCallsFromOneBufferIntoAnotherMatchTheCallsInPlace) {
    const Key key(4);
    VELQStreamCipher cipher(key.bytes);
    const CipherRun plain(3 * 4096 + 7);
    CipherRun run(3 * 4096 + 7);
    Bytes sealed(run.data.size(), 0xEE);
    ASSERT_EQ(cipher.encrypt(run.header.data(), kHeader, 0), 0);
    const auto encrypt = [&](auto... args) { return cipher.encrypt(args...); };
    const auto decrypt = [&](auto... args) { return cipher.decrypt(args...); };
    ASSERT_EQ(runApart(encrypt, run.data, sealed, 4096), 0);
    EXPECT_EQ(run.data, plain.data) << "the source stays as it was";

    CipherRun inPlace(0);
    inPlace.header = run.header;
    inPlace.data = sealed;
    ASSERT_EQ(decryptRun(cipher, inPlace, 4096), 0) << "what was enciphered apart reads back in place";
    EXPECT_EQ(inPlace.data, plain.data);

    Bytes opened(sealed.size(), 0xEE);
    ASSERT_EQ(cipher.decrypt(run.header.data(), kHeader, 0), 0);
    ASSERT_EQ(runApart(decrypt, sealed, opened, 1024), 0);
    EXPECT_EQ(opened, plain.data);

    Bytes buffer(64, 0);
    EXPECT_EQ(cipher.encrypt(plain.data.data(), buffer.data(), 64), plat::E_INVALIDARG) << "no run open";
    Bytes header(kHeader, 0);
    const auto inRun = [&](auto call) {
        EXPECT_EQ(cipher.encrypt(header.data(), kHeader, 0), 0);
        EXPECT_EQ(call(), plat::E_INVALIDARG);
    };
    inRun([&] { return cipher.decrypt(plain.data.data(), buffer.data(), 64); });  // the other direction
    inRun([&] { return cipher.encrypt(plain.data.data(), buffer.data(), 40); });  // not a multiple of 32
    inRun([&] { return cipher.encrypt(nullptr, buffer.data(), 64); });
}

TEST(StreamCipher, NoncesAreFreshForEveryRun) {
    const Key key(3);
    VELQStreamCipher cipher(key.bytes);
    std::set<std::string> nonces;
    for (int i = 0; i < 2000; ++i) {
        CipherRun run(0);
        ASSERT_EQ(encryptRun(cipher, run, 32), 0);
        const char* nonce =
            reinterpret_cast<const char*>(run.header.data()) + VELQStreamCipher::kHeaderFieldsBytes;
        nonces.insert(std::string(nonce, VELQStreamCipher::kNonceBytes));
    }
    EXPECT_EQ(nonces.size(), 2000u);
}

TEST(StreamCipher, FinalDecryptFailsOnChangedByteWrongKeyOrTruncation) {
    const Key key(4);
    const Key otherKey(5);
    CipherRun written(300);
    {
        VELQStreamCipher cipher(key.bytes);
        ASSERT_EQ(encryptRun(cipher, written, 64), 0);
    }
    const auto expectRejected = [&](CipherRun run, const Key& k) {
        VELQStreamCipher cipher(k.bytes);
        EXPECT_EQ(decryptRun(cipher, run, 64), VELQStreamCipher::E_AUTHENTICATION);
        // The object opens a fresh run afterwards.
        CipherRun good = written;
        VELQStreamCipher fresh(key.bytes);
        EXPECT_EQ(decryptRun(fresh, good, 64), 0);
    };
    for (std::size_t at : {std::size_t{0}, std::size_t{150}, std::size_t{319}, std::size_t{330}}) {
        CipherRun changed = written;
        changed.data[at] ^= 0x01;
        expectRejected(changed, key);
    }
    CipherRun headerChanged = written;
    headerChanged.header[10] ^= 0x80;
    expectRejected(headerChanged, key);
    CipherRun nonceChanged = written;
    nonceChanged.header[VELQStreamCipher::kHeaderFieldsBytes] ^= 0x01;
    expectRejected(nonceChanged, key);
    expectRejected(written, otherKey);
    CipherRun truncated = written;
    truncated.data.resize(truncated.data.size() - 32);
    expectRejected(truncated, key);
}

TEST(StreamCipher, LegacyFinalWithoutTagDecryptsUnauthenticated) {
    const Key key(6);
    // A legacy run: header, then a final call whose length is a multiple of 32, no tag.
    CipherRun plain(64);
    plain.data.resize(64);
    Bytes header = plain.header;
    Bytes data = plain.data;
    const unsigned char nonce[12] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 1, 2};
    std::memcpy(header.data() + VELQStreamCipher::kHeaderFieldsBytes, nonce, 12);
    velqcrypto::AesGcm gcm;
    ASSERT_TRUE(gcm.start(velqcrypto::AesGcm::Direction::Encrypt, key.bytes, nonce));
    ASSERT_TRUE(gcm.update(header.data(), header.data(), 1064));
    ASSERT_TRUE(gcm.update(data.data(), data.data(), 64));

    VELQStreamCipher cipher(key.bytes);
    ASSERT_EQ(cipher.decrypt(header.data(), kHeader, 0), 0);
    ASSERT_EQ(cipher.decrypt(data.data(), 64, 1), 0);
    EXPECT_EQ(header, plain.header);
    EXPECT_EQ(data, plain.data);
}

TEST(StreamCipher, RefusesEveryLengthTheCallPatternForbids) {
    const Key key(7);
    VELQStreamCipher cipher(key.bytes);
    Bytes buffer(kHeader * 2, 0);
    unsigned char* p = buffer.data();
    // A run opens only with the 1088-byte, non-final header call.
    EXPECT_EQ(cipher.encrypt(p, 1056, 0), plat::E_INVALIDARG);
    EXPECT_EQ(cipher.encrypt(p, kHeader, 1), plat::E_INVALIDARG);
    EXPECT_EQ(cipher.encrypt(p, 48, 1), plat::E_INVALIDARG);
    EXPECT_EQ(cipher.encrypt(nullptr, kHeader, 0), plat::E_INVALIDARG);
    const auto inRun = [&](auto call) {
        EXPECT_EQ(cipher.encrypt(p, kHeader, 0), 0);
        EXPECT_EQ(call(), plat::E_INVALIDARG);
    };
    inRun([&] { return cipher.encrypt(p, 0, 0); });
    inRun([&] { return cipher.encrypt(p, 48, 0); });  // a block must be a multiple of 32
    inRun([&] { return cipher.encrypt(p, 16, 1); });  // a final call has at least 48 bytes
    inRun([&] { return cipher.encrypt(p, 64, 1); });  // an encrypt run always ends with a tag
    inRun([&] { return cipher.encrypt(p, 40, 1); });
    inRun([&] { return cipher.decrypt(p, 64, 0); });  // no change of direction within a run
    // After a refusal the run is over: the next call must be a header again.
    EXPECT_EQ(cipher.encrypt(p, 64, 0), plat::E_INVALIDARG);
    cipher.endRun();
    cipher.endRun();
}

}  // namespace
