// The cryptography of key files, over the crypto seam (common/crypto/Crypto.h): key derivation (scrypt for a
// password, HKDF for the machine secret and for values taken from the key), wrapping of the key in a slot
// (AES-256-GCM), and the file MAC (HMAC-SHA-256). Each call wipes its own intermediate secrets.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "common/KeyFileFormat.h"

namespace velqkeywrap {

inline constexpr std::size_t kKeyBytes = 32;

// The key-encryption key of a password slot: scrypt of the password's UTF-8 bytes. False when scrypt
// fails (for instance for want of memory).
bool derivePasswordKek(std::string_view password, const velqkeyfile::ScryptParams& params,
                       const unsigned char* salt, unsigned char (&kek)[kKeyBytes]);

// HKDF-SHA-256 of `secret` with `salt` and `info`, `size` bytes into `out`. False on failure.
bool hkdf(const unsigned char* secret, std::size_t secretSize, const unsigned char* salt,
          std::size_t saltSize, std::string_view info, unsigned char* out, std::size_t size);

// Fills slot.nonce with fresh random bytes and seals `key` into slot.wrapped and slot.tag under `kek`,
// with `aad` authenticated. False on failure.
bool sealKey(const unsigned char (&kek)[kKeyBytes], const std::vector<unsigned char>& aad,
             const unsigned char (&key)[kKeyBytes], velqkeyfile::Slot& slot);

// Opens a slot: true and the key in `key` when tag, `kek` and `aad` agree; false otherwise, `key` zero.
bool openKey(const unsigned char (&kek)[kKeyBytes], const std::vector<unsigned char>& aad,
             const velqkeyfile::Slot& slot, unsigned char (&key)[kKeyBytes]);

// The key's public id (what getCRC32Value is taken from) and the file MAC, both derived from the key by
// HKDF with labels of their own, so that neither reveals the key nor one the other.
bool keyId(const unsigned char (&key)[kKeyBytes], std::array<unsigned char, velqkeyfile::kKeyIdBytes>& id);
bool fileMac(const unsigned char (&key)[kKeyBytes], const std::vector<unsigned char>& body,
             std::array<unsigned char, velqkeyfile::kMacBytes>& mac);

}  // namespace velqkeywrap
