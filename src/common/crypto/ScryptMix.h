// The memory-hard middle of scrypt (RFC 7914 sections 3 to 5: Salsa20/8, scryptBlockMix, scryptROMix),
// for a library that has PBKDF2 but no scrypt of every block size. libgcrypt 1.10 fixes r at 8 (and 1
// only through an undocumented algorithm number), while a key file stores its own r.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velqcrypto {

// Mixes the p blocks of 128 * r bytes in `blocks` in place, each by scryptROMix with cost n. False (and
// `blocks` unchanged) when the n * 128 * r bytes of work memory cannot be had. n must be a power of two
// (see scryptParamsValid).
bool scryptMixBlocks(unsigned char* blocks, std::uint64_t n, std::uint32_t r, std::uint32_t p);

}  // namespace velqcrypto
