// Parameter checks of scrypt shared by both implementations, so that both refuse the same inputs.
#pragma once

#include <cstdint>

namespace velqcrypto {

// RFC 7914: n a power of two greater than 1, r and p at least 1, r * p below 2^30; and the work buffers
// (128 * r * (n + p)) within 64-bit arithmetic.
inline bool scryptParamsValid(std::uint64_t n, std::uint32_t r, std::uint32_t p) {
    if (n < 2 || (n & (n - 1)) != 0 || r == 0 || p == 0) {
        return false;
    }
    if (std::uint64_t{r} * p >= (std::uint64_t{1} << 30)) {
        return false;
    }
    // The work buffers' size below must fit in 64 bits (and so it does in far less than any memory).
    return n < (std::uint64_t{1} << 40) && std::uint64_t{r} * (n + p + 2) < (std::uint64_t{1} << 56);
}

// Bytes of the work buffers: V (128 * r * n), the p blocks B (128 * r * p) and one block of scratch.
inline std::uint64_t scryptMemoryBytes(std::uint64_t n, std::uint32_t r, std::uint32_t p) {
    return std::uint64_t{128} * r * (n + p + 2);
}

}  // namespace velqcrypto
