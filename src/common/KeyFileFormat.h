// The key file's bytes (docs/KEYFILE.md): layout, encoding and the structural checks of a reader. No
// cryptography happens here except the whole-file SHA-256 digest, so the reader's parsing can be fuzzed
// without a password.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "plat/types.h"

namespace velqkeyfile {

inline constexpr unsigned char kMagic[8] = {'V', 'E', 'L', 'Q', 'K', 'E', 'Y', 0};
inline constexpr std::uint16_t kVersion = 1;
inline constexpr std::size_t kMaxSidBytes = 184;
inline constexpr std::size_t kKeyIdBytes = 16;
inline constexpr std::size_t kSaltBytes = 16;
inline constexpr std::size_t kNonceBytes = 12;
inline constexpr std::size_t kWrappedBytes = 32;
inline constexpr std::size_t kTagBytes = 16;
inline constexpr std::size_t kMacBytes = 32;
inline constexpr std::size_t kDigestBytes = 32;
inline constexpr std::size_t kFixedBytes = 248;  // every byte but the SID's
inline constexpr std::size_t kMaxFileBytes = kFixedBytes + kMaxSidBytes;

// A file that is not a key file of ours at all (magic or version): HRESULT_FROM_WIN32(ERROR_BAD_FORMAT).
inline constexpr plat::HRESULT E_FOREIGN_FILE = static_cast<plat::HRESULT>(0x8007000B);
// A key file whose bytes are damaged (length, field values, digest, MAC, key id):
// HRESULT_FROM_WIN32(ERROR_INVALID_DATA).
inline constexpr plat::HRESULT E_DAMAGED_FILE = static_cast<plat::HRESULT>(0x8007000D);

// scrypt cost, stored as log2(N), r and p. A reader accepts only values inside the bounds below, so that
// a forged file cannot make it allocate or compute without limit.
struct ScryptParams {
    std::uint8_t log2N = 16;
    std::uint8_t r = 8;
    std::uint8_t p = 1;
};
inline constexpr std::uint8_t kMinLog2N = 10;
inline constexpr std::uint8_t kMaxLog2N = 20;
inline constexpr std::uint64_t kMaxScryptMemory = std::uint64_t{256} << 20;  // 128 * r * N
inline constexpr std::uint64_t kMaxScryptWork = std::uint64_t{1} << 23;      // N * r * p
bool isAcceptable(const ScryptParams& params);

// One wrapped copy of the key: AES-256-GCM under a key-encryption key derived with `salt`.
struct Slot {
    std::array<unsigned char, kSaltBytes> salt{};
    std::array<unsigned char, kNonceBytes> nonce{};
    std::array<unsigned char, kWrappedBytes> wrapped{};
    std::array<unsigned char, kTagBytes> tag{};
};

struct Fields {
    std::string sid;  // ASCII, 1..kMaxSidBytes printable characters
    std::array<unsigned char, kKeyIdBytes> keyId{};
    ScryptParams scrypt;
    Slot passwordSlot;
    Slot localSlot;
    std::array<unsigned char, kMacBytes> mac{};
};

// The bytes that both slots authenticate as additional data: magic, version, SID and key id, followed by
// the slot's own clear fields (for the password slot its scrypt parameters and salt, for the local slot
// its salt).
std::vector<unsigned char> passwordSlotAad(const Fields& fields);
std::vector<unsigned char> localSlotAad(const Fields& fields);

// Every byte before the MAC: what the MAC covers.
std::vector<unsigned char> encodeBody(const Fields& fields);

// The whole file: the body, `fields.mac`, and the SHA-256 digest of all that. Empty when the digest
// cannot be computed.
std::vector<unsigned char> encodeFile(const Fields& fields);

// Reads a whole file into `fields`. Checks magic and version (E_FOREIGN_FILE), then the length, the SID's
// characters, the reserved byte, the scrypt bounds and the digest (E_DAMAGED_FILE). Reads nothing beyond
// `size` bytes. The MAC cannot be checked without the key: the caller does that after opening a slot.
plat::HRESULT parseFile(const unsigned char* data, std::size_t size, Fields& fields);

}  // namespace velqkeyfile
