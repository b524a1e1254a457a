// The seam over OpenSSL 3 (Linux builds), AES-256-GCM aside: GcmOpenSSL.cpp or GcmIpsecMb.cpp.
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>

#include <climits>
#include <cstring>

#include "common/crypto/Crypto.h"
#include "common/crypto/ScryptBounds.h"

namespace velqcrypto {
namespace {

// EVP calls take int lengths: longer inputs go through in pieces of this size.
constexpr std::size_t kMaxPiece = std::size_t{1} << 30;

bool fill(int (*generator)(unsigned char*, int), unsigned char* out, std::size_t size) {
    while (size > 0) {
        const std::size_t piece = size < kMaxPiece ? size : kMaxPiece;
        if (generator(out, static_cast<int>(piece)) != 1) {
            return false;
        }
        out += piece;
        size -= piece;
    }
    return true;
}

}  // namespace

bool randomBytes(unsigned char* out, std::size_t size) {
    return fill(RAND_bytes, out, size);
}

bool secretRandomBytes(unsigned char* out, std::size_t size) {
    return fill(RAND_priv_bytes, out, size);
}

void wipe(void* data, std::size_t size) {
    OPENSSL_cleanse(data, size);
}

bool equalConstantTime(const void* a, const void* b, std::size_t size) {
    return CRYPTO_memcmp(a, b, size) == 0;
}

bool sha256(const unsigned char* data, std::size_t size, unsigned char (&digest)[kSha256Bytes]) {
    unsigned int produced = 0;
    return EVP_Digest(data, size, digest, &produced, EVP_sha256(), nullptr) == 1 && produced == kSha256Bytes;
}

bool hmacSha256(const unsigned char* key, std::size_t keySize, const unsigned char* data, std::size_t size,
                unsigned char (&mac)[kSha256Bytes]) {
    // HMAC() takes a null key as "keep the previous key" and fails without one: the empty key is given
    // as a real pointer.
    static const unsigned char kNoKey = 0;
    if (keySize == 0) {
        key = &kNoKey;
    }
    unsigned int produced = 0;
    return keySize <= INT_MAX &&
           HMAC(EVP_sha256(), key, static_cast<int>(keySize), data, size, mac, &produced) != nullptr &&
           produced == kSha256Bytes;
}

bool hkdfSha256(const unsigned char* secret, std::size_t secretSize, const unsigned char* salt,
                std::size_t saltSize, const unsigned char* info, std::size_t infoSize, unsigned char* out,
                std::size_t size) {
    if (size == 0 || size > 255 * kSha256Bytes) {
        return false;
    }
    EVP_KDF* kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    EVP_KDF_CTX* ctx = kdf == nullptr ? nullptr : EVP_KDF_CTX_new(kdf);
    EVP_KDF_free(kdf);
    if (ctx == nullptr) {
        return false;
    }
    char digest[] = "SHA256";
    // OpenSSL takes the parameters as non-const pointers but only reads them.
    OSSL_PARAM params[5] = {};
    std::size_t count = 0;
    params[count++] = OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0);
    params[count++] =
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, const_cast<unsigned char*>(secret), secretSize);
    if (saltSize > 0) {
        params[count++] = OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT,
                                                            const_cast<unsigned char*>(salt), saltSize);
    }
    params[count++] =
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, const_cast<unsigned char*>(info), infoSize);
    params[count] = OSSL_PARAM_construct_end();
    const bool ok = EVP_KDF_derive(ctx, out, size, params) == 1;
    EVP_KDF_CTX_free(ctx);
    return ok;
}

bool scrypt(const unsigned char* password, std::size_t passwordSize, const unsigned char* salt,
            std::size_t saltSize, std::uint64_t n, std::uint32_t r, std::uint32_t p, unsigned char* out,
            std::size_t size) {
    if (!scryptParamsValid(n, r, p)) {
        return false;
    }
    // OpenSSL refuses (rather than allocates) beyond maxmem: the work buffers, plus a little room.
    const std::uint64_t maxMemory = scryptMemoryBytes(n, r, p) + (std::uint64_t{1} << 20);
    return EVP_PBE_scrypt(reinterpret_cast<const char*>(password), passwordSize, salt, saltSize, n, r, p,
                          maxMemory, out, size) == 1;
}

}  // namespace velqcrypto
