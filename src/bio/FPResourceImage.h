// CFPResourceImage: one picture of the wait window, loaded from the program's PNG resources.
//
// The pictures are compiled into the program (resources/*.png, see src/bio/embed_pictures.cmake). A
// loaded picture is a bitmap record with the picture's id, its size and its PNG bytes: the UI backends
// draw it (or, at a terminal, stand for it with a line of text), so nothing here decodes pixels.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "plat/types.h"

// The bytes of PNG resource `id`; empty when the program has no such resource.
std::span<const std::uint8_t> findPngResource(plat::UINT id);

struct FPBitmap {
    plat::UINT id;
    int width;
    int height;
    std::vector<std::uint8_t> png;  // an own copy: it outlives nothing it was made from
};

class CFPResourceImage {
public:
    // Which resources load() reads.
    static constexpr int kKindPng = 0;
    static constexpr int kKindBitmap = 1;
    static constexpr int kKindIcon = 2;

    CFPResourceImage();
    // Releases the picture.
    ~CFPResourceImage();
    CFPResourceImage(const CFPResourceImage&) = delete;
    CFPResourceImage& operator=(const CFPResourceImage&) = delete;

    // Releases what is held, then loads resource `id` of `kind`. True when a picture is held afterwards.
    // Kind 0 (PNG) succeeds for a resource that is a well-formed PNG header with a non-zero size; kinds 1
    // and 2 (bitmap and icon resources) and any other kind load nothing, since the program has none.
    bool load(plat::UINT id, int kind);
    // Forgets the picture; harmless when none is held.
    void release();
    bool isLoaded() const { return m_loaded; }
    // The picture; null exactly when none is loaded.
    const FPBitmap* getBitmap() const { return m_loaded ? m_pBitmap : nullptr; }

private:
    bool m_loaded;
    FPBitmap* m_pBitmap;
};
