// Small files that hold secrets (keys, user records): created exclusively and owner-only, published whole,
// read whole. On POSIX the files get mode 0600 and their folders 0700; on Windows a file takes the access
// list of its folder, and the folders live in the user's profile, which is private to the user already.
#pragma once

#include <cstddef>
#include <vector>

#include "plat/types.h"

namespace plat {

// Creates `temp` exclusively (an existing name or a link there fails with 80), writes the `size` bytes,
// flushes them to disk and moves the file to `target`: over an existing target when `replace`, else
// failing with 80 (ERROR_FILE_EXISTS) when `target` exists, so that concurrent creators agree on one
// content. The temp file is gone afterwards whatever happened. FALSE with the failing call's last error;
// `target` is then untouched.
BOOL writeSecretFile(LPCWSTR temp, LPCWSTR target, const void* data, std::size_t size, BOOL replace);

// Reads the whole regular file `path`. A file larger than `maxBytes`, or one that is not a regular file,
// gives FALSE with 13 (ERROR_INVALID_DATA); a missing one 2 (3 when a folder of its path is missing).
// `content` is empty after a failure.
BOOL readSmallFile(LPCWSTR path, std::size_t maxBytes, std::vector<unsigned char>& content);

// Makes the folder `path` and any missing parents, private to the user: on POSIX the folders it creates
// get mode 0700, and `path` itself, when it exists already and belongs to the user, is brought to 0700.
// A non-folder in the way fails with 3 (ERROR_PATH_NOT_FOUND). FALSE with the last error.
BOOL createPrivateFolder(LPCWSTR path);

}  // namespace plat
