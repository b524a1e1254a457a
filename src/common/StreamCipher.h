// The authenticated cipher run behind VELQCrypt: AES-256-GCM over one file, enciphered in place by a
// series of calls whose lengths follow the file format's call pattern.
//
// A run is opened by the 1088-byte header call and closed by the final call:
//   - header call (length 1088, final 0): bytes 0..1063 are the header and are enciphered; a fresh random
//     12-byte nonce is generated for every encrypt run and kept, in clear, in the header's fill bytes
//     1064..1075; fill bytes 1076..1087 stay zero. A decrypt run takes its nonce from the same place and
//     gives the fill back as zeros.
//   - block calls (final 0): a multiple of 32 bytes, at least 32.
//   - final call (final 1): a multiple of 32 plus 16 bytes, at least 48. The last 16 bytes carry the GCM
//     tag: written by an encrypt run (the caller leaves them zero), checked by a decrypt run and zeroed
//     again after the check. A decrypt run also accepts a final multiple of 32 (the legacy layout): it
//     has no tag and so nothing is authenticated.
// Any call that breaks the pattern is refused with E_INVALIDARG and ends the open run; so does a run
// longer than kMaxRunBytes. The same plain bytes come out whatever the split of a run into calls, since
// GCM is a stream mode.
#pragma once

#include <cstdint>

#include "common/crypto/Crypto.h"
#include "plat/types.h"

class VELQStreamCipher {
public:
    static constexpr std::size_t kKeyBytes = 32;
    static constexpr std::size_t kNonceBytes = 12;
    static constexpr std::size_t kTagBytes = 16;
    static constexpr plat::ULONG kHeaderBytes = 1088;
    static constexpr plat::ULONG kHeaderFieldsBytes = 1064;  // the header proper; the rest is fill
    // GCM with a 96-bit nonce enciphers at most 2^39 - 256 bits under one nonce; a run stays below it,
    // header included. Files beyond 64 GiB are refused rather than enciphered unsafely.
    static constexpr std::uint64_t kMaxRunBytes = (std::uint64_t{1} << 36) - 32;

    // Result of a final decrypt call whose tag does not match: the data or the key is not the one the
    // file was written with.
    static constexpr plat::HRESULT E_AUTHENTICATION = static_cast<plat::HRESULT>(0x80090005);  // bad data

    explicit VELQStreamCipher(const unsigned char (&key)[kKeyBytes]);
    ~VELQStreamCipher();
    VELQStreamCipher(const VELQStreamCipher&) = delete;
    VELQStreamCipher& operator=(const VELQStreamCipher&) = delete;

    // False when the cipher context could not be made; every call then fails with E_FAIL.
    bool isReady() const { return m_gcm.isReady(); }

    plat::HRESULT encrypt(unsigned char* data, plat::ULONG length, int final);
    plat::HRESULT decrypt(unsigned char* data, plat::ULONG length, int final);

    // A block call of the open run that reads `source` and writes `data` (the same bytes, or bytes that do
    // not overlap): a caller whose block lies in one buffer and belongs in another saves the copy. Header
    // and final calls are in place only.
    plat::HRESULT encrypt(const unsigned char* source, unsigned char* data, plat::ULONG length);
    plat::HRESULT decrypt(const unsigned char* source, unsigned char* data, plat::ULONG length);

    // Ends an open run, of either direction; harmless without one.
    void endRun();

private:
    enum class Run { None, Encrypt, Decrypt };

    plat::HRESULT _transform(Run direction, unsigned char* data, plat::ULONG length, int final);
    plat::HRESULT _openRun(Run direction, unsigned char* header);
    plat::HRESULT _block(Run direction, const unsigned char* source, unsigned char* data, plat::ULONG length);
    plat::HRESULT _update(const unsigned char* source, unsigned char* data, plat::ULONG length);
    plat::HRESULT _finish(Run direction, unsigned char* data, plat::ULONG length);
    plat::HRESULT _fail(plat::HRESULT result);

    unsigned char m_key[kKeyBytes];
    velqcrypto::AesGcm m_gcm;
    Run m_run;
    std::uint64_t m_nRunBytes;
};
