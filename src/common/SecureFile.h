// Small private files of the common component: read whole, written atomically, the user's alone (see
// plat/secret_files.h for how each system keeps them private). Paths are UTF-8 here; the public calls
// convert at their edge.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "plat/types.h"

namespace velqfile {

// Writes `size` bytes as the whole new content of `path`: a temp file created exclusively (never through
// a link; owner-only) in the same folder, written, flushed to disk, then moved over `path`, so a reader
// sees the old or the new content, never a mix. On failure `path` is untouched and no temp file is left;
// the result is the failing call's error as an HRESULT (HRESULT_FROM_WIN32).
plat::HRESULT writeFileAtomically(const std::string& path, const void* data, std::size_t size);

// Like writeFileAtomically, but never replaces an existing `path`: publishing the complete temp file fails
// with HRESULT_FROM_WIN32(ERROR_FILE_EXISTS) (0x80070050) when it is there already, so concurrent creators
// agree on one content.
plat::HRESULT createFileExclusively(const std::string& path, const void* data, std::size_t size);

// Reads the whole regular file `path` into `content`. A file larger than `maxBytes` gives
// HRESULT_FROM_WIN32(ERROR_INVALID_DATA) without reading it; a missing file 0x80070002.
plat::HRESULT readSmallFile(const std::string& path, std::size_t maxBytes,
                            std::vector<unsigned char>& content);

// Makes `path` and any missing parents, private to the user (on POSIX: the folders it creates get mode
// 0700, and `path` itself, when it already exists and belongs to this user, is brought to 0700). A non-folder
// in the way fails with 0x80070003.
plat::HRESULT makePrivateFolder(const std::string& path);

}  // namespace velqfile
