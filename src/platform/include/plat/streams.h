// Streams of the C library on files named by UTF-16 paths, never inherited by programs we start.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace plat {

enum class StreamMode {
    kRead,     // an existing file, from its start (on POSIX never becoming the controlling terminal)
    kAppend,   // created when missing, written at its end
    kReplace,  // created when missing, emptied when present
};

// Opens `path` in binary mode (the bytes written are the bytes stored on every system). A file that
// kAppend or kReplace creates is the owner's alone: mode 0600 on POSIX; on Windows it takes the access
// list of its folder, which in the user's profile is private already. Null on failure, with errno set
// (ENOENT for a missing file or folder).
std::FILE* openStream(const std::u16string& path, StreamMode mode);

// Appends `bytes` to `path` in one write, so that lines of several processes never mix; the file is
// created when missing, as kAppend creates it. A short write is a failure, never continued (a retry could
// let another writer's line in between). false with the reason in `failure`.
bool appendWhole(const std::u16string& path, std::string_view bytes, std::string& failure);

// Every byte of the file `path` appended to `bytes`; false when it cannot be opened or read whole.
bool readWhole(const std::u16string& path, std::string& bytes);

}  // namespace plat
