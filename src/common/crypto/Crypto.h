// The cryptographic primitives the core is built on, behind one small seam so that the same callers run
// over OpenSSL (Linux, CryptoOpenSSL.cpp) and over libgcrypt (Windows, CryptoGcrypt.cpp). The build picks
// one with VELQ_CRYPTO=openssl|gcrypt; with OpenSSL, AES-GCM is intel-ipsec-mb's where it is found
// (GcmIpsecMb.cpp, for speed), else OpenSSL's (GcmOpenSSL.cpp). All give the same bytes for the same
// inputs: every file format above this seam is the same whichever is built in.
//
// Every call is safe from any thread. Calls that can fail return false and leave no secret behind in
// their own buffers; what they wrote into the caller's outputs is then unspecified unless said otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velqcrypto {

inline constexpr std::size_t kSha256Bytes = 32;
inline constexpr std::size_t kAesKeyBytes = 32;
inline constexpr std::size_t kGcmNonceBytes = 12;
inline constexpr std::size_t kGcmTagBytes = 16;

// `size` bytes from the library's cryptographic generator, seeded by the system. randomBytes is for
// values that go out in clear (salts, nonces, name suffixes); secretRandomBytes for keys and secrets,
// from a generator instance of their own where the library has one. False when the generator fails.
bool randomBytes(unsigned char* out, std::size_t size);
bool secretRandomBytes(unsigned char* out, std::size_t size);

// Overwrites `size` bytes with zeros in a way the compiler may not drop as a dead store.
void wipe(void* data, std::size_t size);

// True when the two ranges hold the same bytes; the time taken depends on `size` only.
bool equalConstantTime(const void* a, const void* b, std::size_t size);

// SHA-256 of `size` bytes (FIPS 180-4).
bool sha256(const unsigned char* data, std::size_t size, unsigned char (&digest)[kSha256Bytes]);

// HMAC-SHA-256 of `size` bytes under a key of any length (RFC 2104).
bool hmacSha256(const unsigned char* key, std::size_t keySize, const unsigned char* data, std::size_t size,
                unsigned char (&mac)[kSha256Bytes]);

// HKDF-SHA-256 (RFC 5869), extract then expand: `size` bytes into `out`, at most 255 * 32. A salt of size
// 0 stands for the RFC's default, 32 zero bytes. False when `size` is out of range.
bool hkdfSha256(const unsigned char* secret, std::size_t secretSize, const unsigned char* salt,
                std::size_t saltSize, const unsigned char* info, std::size_t infoSize, unsigned char* out,
                std::size_t size);

// scrypt (RFC 7914) with cost `n` (a power of two, at least 2), block size `r` and parallelism `p`, into
// `size` bytes of `out`. Needs about 128 * r * n bytes of memory; false when they cannot be had or a
// parameter is out of range.
bool scrypt(const unsigned char* password, std::size_t passwordSize, const unsigned char* salt,
            std::size_t saltSize, std::uint64_t n, std::uint32_t r, std::uint32_t p, unsigned char* out,
            std::size_t size);

// AES-256-GCM with a 96-bit nonce and a 128-bit tag, in a series of calls. A run is:
// start, any number of authenticate calls, any number of update calls of any lengths (the output is
// the same whatever the split), then finishEncrypt or finishDecrypt. A failed call ends the run; start
// may be called again at any time and begins a new one. The key schedule is wiped on every start and
// by the destructor.
class AesGcm {
public:
    enum class Direction { Encrypt, Decrypt };

    AesGcm();
    ~AesGcm();
    AesGcm(const AesGcm&) = delete;
    AesGcm& operator=(const AesGcm&) = delete;

    // False when the library could not make a cipher context: every other call then fails.
    bool isReady() const { return m_pState != nullptr; }

    bool start(Direction direction, const unsigned char* key, const unsigned char* nonce);
    // Additional authenticated data; only before the first update of a run.
    bool authenticate(const unsigned char* data, std::size_t size);
    // Enciphers or deciphers `size` bytes from `in` to `out`; `in` and `out` may be the same buffer.
    bool update(const unsigned char* in, unsigned char* out, std::size_t size);
    // Ends an encrypt run and gives its tag.
    bool finishEncrypt(unsigned char (&tag)[kGcmTagBytes]);
    // Ends a decrypt run: true only when `tag` is the run's tag (data, aad, key and nonce unchanged).
    bool finishDecrypt(const unsigned char (&tag)[kGcmTagBytes]);

private:
    struct State;  // the library's context, defined by each implementation
    State* m_pState;
};

}  // namespace velqcrypto
