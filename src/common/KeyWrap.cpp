#include "common/KeyWrap.h"

#include <cstring>

#include "common/crypto/Crypto.h"

namespace velqkeywrap {
namespace {

constexpr std::string_view kKeyIdLabel = "VELQ key file v1: key id";
constexpr std::string_view kMacLabel = "VELQ key file v1: file MAC";

}  // namespace

bool derivePasswordKek(std::string_view password, const velqkeyfile::ScryptParams& params,
                       const unsigned char* salt, unsigned char (&kek)[kKeyBytes]) {
    if (!velqkeyfile::isAcceptable(params)) {
        return false;
    }
    return velqcrypto::scrypt(reinterpret_cast<const unsigned char*>(password.data()), password.size(), salt,
                              velqkeyfile::kSaltBytes, std::uint64_t{1} << params.log2N, params.r, params.p,
                              kek, kKeyBytes);
}

bool hkdf(const unsigned char* secret, std::size_t secretSize, const unsigned char* salt,
          std::size_t saltSize, std::string_view info, unsigned char* out, std::size_t size) {
    return velqcrypto::hkdfSha256(secret, secretSize, salt, saltSize,
                                  reinterpret_cast<const unsigned char*>(info.data()), info.size(), out,
                                  size);
}

bool sealKey(const unsigned char (&kek)[kKeyBytes], const std::vector<unsigned char>& aad,
             const unsigned char (&key)[kKeyBytes], velqkeyfile::Slot& slot) {
    velqcrypto::AesGcm gcm;
    unsigned char tag[velqcrypto::kGcmTagBytes] = {};
    const bool ok = velqcrypto::randomBytes(slot.nonce.data(), slot.nonce.size()) &&
                    gcm.start(velqcrypto::AesGcm::Direction::Encrypt, kek, slot.nonce.data()) &&
                    gcm.authenticate(aad.data(), aad.size()) &&
                    gcm.update(key, slot.wrapped.data(), kKeyBytes) && gcm.finishEncrypt(tag);
    std::memcpy(slot.tag.data(), tag, sizeof(tag));
    return ok;
}

bool openKey(const unsigned char (&kek)[kKeyBytes], const std::vector<unsigned char>& aad,
             const velqkeyfile::Slot& slot, unsigned char (&key)[kKeyBytes]) {
    velqcrypto::AesGcm gcm;
    unsigned char tag[velqcrypto::kGcmTagBytes] = {};
    std::memcpy(tag, slot.tag.data(), sizeof(tag));
    const bool ok = gcm.start(velqcrypto::AesGcm::Direction::Decrypt, kek, slot.nonce.data()) &&
                    gcm.authenticate(aad.data(), aad.size()) &&
                    gcm.update(slot.wrapped.data(), key, kKeyBytes) && gcm.finishDecrypt(tag);
    if (!ok) {
        velqcrypto::wipe(key, kKeyBytes);
    }
    return ok;
}

bool keyId(const unsigned char (&key)[kKeyBytes], std::array<unsigned char, velqkeyfile::kKeyIdBytes>& id) {
    return hkdf(key, kKeyBytes, nullptr, 0, kKeyIdLabel, id.data(), id.size());
}

bool fileMac(const unsigned char (&key)[kKeyBytes], const std::vector<unsigned char>& body,
             std::array<unsigned char, velqkeyfile::kMacBytes>& mac) {
    static_assert(velqkeyfile::kMacBytes == velqcrypto::kSha256Bytes);
    unsigned char macKey[kKeyBytes] = {};
    unsigned char macBytes[velqcrypto::kSha256Bytes] = {};
    const bool ok = hkdf(key, kKeyBytes, nullptr, 0, kMacLabel, macKey, sizeof(macKey)) &&
                    velqcrypto::hmacSha256(macKey, sizeof(macKey), body.data(), body.size(), macBytes);
    std::memcpy(mac.data(), macBytes, mac.size());
    velqcrypto::wipe(macKey, sizeof(macKey));
    return ok;
}

}  // namespace velqkeywrap
