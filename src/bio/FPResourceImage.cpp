#include "bio/FPResourceImage.h"

#include <cstring>

namespace {

constexpr std::uint8_t kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// Signature, then the IHDR chunk's length, type, width and height.
constexpr std::size_t kHeaderBytes = 8 + 4 + 4 + 4 + 4;

std::uint32_t bigEndian32(const std::uint8_t* p) {
    return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
           (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}

// The decoder's part of a load: a PNG that starts with its IHDR chunk and names a non-empty size.
FPBitmap* bitmapFromPng(plat::UINT id, std::span<const std::uint8_t> bytes) {
    if (bytes.size() < kHeaderBytes || std::memcmp(bytes.data(), kPngSignature, sizeof kPngSignature) != 0 ||
        std::memcmp(bytes.data() + 12, "IHDR", 4) != 0) {
        return nullptr;
    }
    const std::uint32_t width = bigEndian32(bytes.data() + 16);
    const std::uint32_t height = bigEndian32(bytes.data() + 20);
    if (width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF) {
        return nullptr;
    }
    return new FPBitmap{id, static_cast<int>(width), static_cast<int>(height),
                        std::vector<std::uint8_t>(bytes.begin(), bytes.end())};
}

}  // namespace

CFPResourceImage::CFPResourceImage() : m_loaded(false), m_pBitmap(nullptr) {}

CFPResourceImage::~CFPResourceImage() {
    release();
}

void CFPResourceImage::release() {
    delete m_pBitmap;
    m_pBitmap = nullptr;
    m_loaded = false;
}

bool CFPResourceImage::load(plat::UINT id, int kind) {
    release();
    if (kind != kKindPng) {
        return false;
    }
    const std::span<const std::uint8_t> bytes = findPngResource(id);
    if (bytes.empty()) {
        return false;
    }
    m_pBitmap = bitmapFromPng(id, bytes);
    m_loaded = m_pBitmap != nullptr;
    return m_loaded;
}
