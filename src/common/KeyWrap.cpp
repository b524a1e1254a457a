#include "common/KeyWrap.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>

#include <cstring>
#include <string>

namespace velqkeywrap {
namespace {

constexpr std::string_view kKeyIdLabel = "VELQ key file v1: key id";
constexpr std::string_view kMacLabel = "VELQ key file v1: file MAC";

// Room for scrypt's own buffers beyond 128 * r * N.
constexpr std::uint64_t kScryptMemoryHeadroom = std::uint64_t{16} << 20;

class CipherContext {
public:
    CipherContext() : m_pCtx(EVP_CIPHER_CTX_new()) {}
    ~CipherContext() { EVP_CIPHER_CTX_free(m_pCtx); }
    CipherContext(const CipherContext&) = delete;
    CipherContext& operator=(const CipherContext&) = delete;
    EVP_CIPHER_CTX* get() const { return m_pCtx; }

private:
    EVP_CIPHER_CTX* m_pCtx;
};

}  // namespace

bool derivePasswordKek(std::string_view password, const velqkeyfile::ScryptParams& params,
                       const unsigned char* salt, unsigned char (&kek)[kKeyBytes]) {
    if (!velqkeyfile::isAcceptable(params)) {
        return false;
    }
    const std::uint64_t n = std::uint64_t{1} << params.log2N;
    const std::uint64_t maxMemory = 128 * n * params.r + kScryptMemoryHeadroom;
    return EVP_PBE_scrypt(password.data(), password.size(), salt, velqkeyfile::kSaltBytes, n, params.r,
                          params.p, maxMemory, kek, kKeyBytes) == 1;
}

bool hkdf(const unsigned char* secret, std::size_t secretSize, const unsigned char* salt,
          std::size_t saltSize, std::string_view info, unsigned char* out, std::size_t size) {
    EVP_KDF* kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    EVP_KDF_CTX* ctx = kdf == nullptr ? nullptr : EVP_KDF_CTX_new(kdf);
    EVP_KDF_free(kdf);
    if (ctx == nullptr) {
        return false;
    }
    char digest[] = "SHA256";
    std::string infoCopy(info);
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
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, infoCopy.data(), infoCopy.size());
    params[count] = OSSL_PARAM_construct_end();
    const bool ok = EVP_KDF_derive(ctx, out, size, params) == 1;
    EVP_KDF_CTX_free(ctx);
    return ok;
}

bool sealKey(const unsigned char (&kek)[kKeyBytes], const std::vector<unsigned char>& aad,
             const unsigned char (&key)[kKeyBytes], velqkeyfile::Slot& slot) {
    CipherContext ctx;
    int produced = 0;
    return ctx.get() != nullptr && RAND_bytes(slot.nonce.data(), static_cast<int>(slot.nonce.size())) == 1 &&
           EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, kek, slot.nonce.data()) == 1 &&
           EVP_EncryptUpdate(ctx.get(), nullptr, &produced, aad.data(), static_cast<int>(aad.size())) == 1 &&
           EVP_EncryptUpdate(ctx.get(), slot.wrapped.data(), &produced, key, kKeyBytes) == 1 &&
           EVP_EncryptFinal_ex(ctx.get(), slot.wrapped.data() + produced, &produced) == 1 &&
           EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(slot.tag.size()),
                               slot.tag.data()) == 1;
}

bool openKey(const unsigned char (&kek)[kKeyBytes], const std::vector<unsigned char>& aad,
             const velqkeyfile::Slot& slot, unsigned char (&key)[kKeyBytes]) {
    CipherContext ctx;
    velqkeyfile::Slot copy = slot;  // the tag call takes a non-const buffer
    int produced = 0;
    const bool ok =
        ctx.get() != nullptr &&
        EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, kek, copy.nonce.data()) == 1 &&
        EVP_DecryptUpdate(ctx.get(), nullptr, &produced, aad.data(), static_cast<int>(aad.size())) == 1 &&
        EVP_DecryptUpdate(ctx.get(), key, &produced, copy.wrapped.data(), kKeyBytes) == 1 &&
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(copy.tag.size()),
                            copy.tag.data()) == 1 &&
        EVP_DecryptFinal_ex(ctx.get(), key + produced, &produced) == 1;
    if (!ok) {
        OPENSSL_cleanse(key, kKeyBytes);
    }
    return ok;
}

bool keyId(const unsigned char (&key)[kKeyBytes], std::array<unsigned char, velqkeyfile::kKeyIdBytes>& id) {
    return hkdf(key, kKeyBytes, nullptr, 0, kKeyIdLabel, id.data(), id.size());
}

bool fileMac(const unsigned char (&key)[kKeyBytes], const std::vector<unsigned char>& body,
             std::array<unsigned char, velqkeyfile::kMacBytes>& mac) {
    unsigned char macKey[kKeyBytes] = {};
    unsigned int macSize = 0;
    const bool ok = hkdf(key, kKeyBytes, nullptr, 0, kMacLabel, macKey, sizeof(macKey)) &&
                    HMAC(EVP_sha256(), macKey, sizeof(macKey), body.data(), body.size(), mac.data(),
                         &macSize) != nullptr &&
                    macSize == mac.size();
    OPENSSL_cleanse(macKey, sizeof(macKey));
    return ok;
}

}  // namespace velqkeywrap
