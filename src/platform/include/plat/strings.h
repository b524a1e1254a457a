// UTF-16 is the core's string form; conversion to and from the system's UTF-8 happens only in the
// platform layer. Invalid sequences become U+FFFD in either direction, never a failure: a name that
// cannot be converted faithfully must still be shown and logged.
#pragma once

#include <string>
#include <string_view>

#include "plat/types.h"

namespace plat {

std::string toUtf8(std::u16string_view text);
std::u16string fromUtf8(std::string_view text);

// Length of a NUL-terminated UTF-16 text (0 for null).
std::size_t wcslen16(LPCWSTR text);

// Copies `text` into `buffer` of `capacity` units, cut at capacity - 1 and always NUL-terminated (if the
// capacity is not 0). Returns the number of units copied, without the NUL.
std::size_t copyTruncated(std::u16string_view text, LPWSTR buffer, std::size_t capacity);

}  // namespace plat
