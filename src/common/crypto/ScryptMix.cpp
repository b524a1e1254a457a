#include "common/crypto/ScryptMix.h"

#include <bit>
#include <cstring>
#include <memory>
#include <new>

namespace velqcrypto {
namespace {

constexpr std::size_t kSalsaWords = 16;

void salsa20_8(std::uint32_t* b) {
    std::uint32_t x[kSalsaWords];
    std::memcpy(x, b, sizeof(x));
    const auto quarter = [&x](int a, int bb, int c, int d) {
        x[bb] ^= std::rotl(x[a] + x[d], 7);
        x[c] ^= std::rotl(x[bb] + x[a], 9);
        x[d] ^= std::rotl(x[c] + x[bb], 13);
        x[a] ^= std::rotl(x[d] + x[c], 18);
    };
    for (int round = 0; round < 8; round += 2) {
        quarter(0, 4, 8, 12);  // columns
        quarter(5, 9, 13, 1);
        quarter(10, 14, 2, 6);
        quarter(15, 3, 7, 11);
        quarter(0, 1, 2, 3);  // rows
        quarter(5, 6, 7, 4);
        quarter(10, 11, 8, 9);
        quarter(15, 12, 13, 14);
    }
    for (std::size_t i = 0; i < kSalsaWords; ++i) {
        b[i] += x[i];
    }
}

// scryptBlockMix of the 2r Salsa blocks of `in` into `out` (no overlap).
void blockMix(const std::uint32_t* in, std::uint32_t* out, std::uint32_t r) {
    std::uint32_t x[kSalsaWords];
    std::memcpy(x, in + (2 * r - 1) * kSalsaWords, sizeof(x));
    for (std::size_t i = 0; i < 2 * std::size_t{r}; ++i) {
        for (std::size_t w = 0; w < kSalsaWords; ++w) {
            x[w] ^= in[i * kSalsaWords + w];
        }
        salsa20_8(x);
        // Even results to the first half of the output, odd ones to the second.
        const std::size_t to = (i / 2) + (i % 2) * r;
        std::memcpy(out + to * kSalsaWords, x, sizeof(x));
    }
}

std::uint64_t integerify(const std::uint32_t* x, std::uint32_t r) {
    const std::uint32_t* last = x + (2 * r - 1) * kSalsaWords;
    return (std::uint64_t{last[1]} << 32) | last[0];
}

void loadWords(const unsigned char* in, std::uint32_t* out, std::size_t words) {
    for (std::size_t i = 0; i < words; ++i, in += 4) {
        out[i] = std::uint32_t{in[0]} | std::uint32_t{in[1]} << 8 | std::uint32_t{in[2]} << 16 |
                 std::uint32_t{in[3]} << 24;
    }
}

void storeWords(const std::uint32_t* in, unsigned char* out, std::size_t words) {
    for (std::size_t i = 0; i < words; ++i, out += 4) {
        for (int b = 0; b < 4; ++b) {
            out[b] = static_cast<unsigned char>(in[i] >> (8 * b));
        }
    }
}

// scryptROMix of one block of 32r words, with v (n blocks) and y (one block) as work memory.
void roMix(std::uint32_t* x, std::uint64_t n, std::uint32_t r, std::uint32_t* v, std::uint32_t* y) {
    const std::size_t words = 32 * std::size_t{r};
    for (std::uint64_t i = 0; i < n; ++i) {
        std::memcpy(v + i * words, x, words * sizeof(std::uint32_t));
        blockMix(v + i * words, x, r);
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        const std::uint32_t* vj = v + (integerify(x, r) & (n - 1)) * words;
        for (std::size_t w = 0; w < words; ++w) {
            y[w] = x[w] ^ vj[w];
        }
        blockMix(y, x, r);
    }
}

// Zeroes through a volatile pointer, so that the store is not dropped as dead.
void wipeWords(std::uint32_t* words, std::size_t count) {
    volatile std::uint32_t* p = words;
    for (std::size_t i = 0; i < count; ++i) {
        p[i] = 0;
    }
}

}  // namespace

bool scryptMixBlocks(unsigned char* blocks, std::uint64_t n, std::uint32_t r, std::uint32_t p) {
    const std::size_t words = 32 * std::size_t{r};
    const std::size_t vWords = static_cast<std::size_t>(n) * words;
    std::unique_ptr<std::uint32_t[]> v(new (std::nothrow) std::uint32_t[vWords]);
    std::unique_ptr<std::uint32_t[]> x(new (std::nothrow) std::uint32_t[2 * words]);
    if (!v || !x) {
        return false;
    }
    for (std::uint32_t i = 0; i < p; ++i) {
        unsigned char* block = blocks + std::size_t{i} * words * 4;
        loadWords(block, x.get(), words);
        roMix(x.get(), n, r, v.get(), x.get() + words);
        storeWords(x.get(), block, words);
    }
    // V holds values derived from the password.
    wipeWords(v.get(), vWords);
    wipeWords(x.get(), 2 * words);
    return true;
}

}  // namespace velqcrypto
