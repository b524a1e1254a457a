// printf-style formatting on UTF-16 text, as _vsnwprintf_s with truncation does it.
//
// Conversions: %s (const char16_t*, "(null)" for null), %c (a char16_t passed as int), %d %i %u %x %X %o
// with the size flags h, hh, l, ll, z, j, t (and I64 as ll), %p (0x-prefixed hex), %f %F %e %E %g %G %a %A
// (double), %%. Flags '-', '0', '+', ' ', '#'; width and precision as numbers or '*'. %n is refused.
// A conversion that is not known (or a format that ends inside one) stops the formatting: the text so far
// is kept and the call returns -1. Never reads past the format's NUL or takes more arguments than the
// format's conversions name.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace plat {

// Formats into `buffer` of `capacity` units. Returns the units written without the NUL. When the result
// does not fit, the buffer holds its first capacity - 1 units and a NUL, and the call returns -1; the
// same for a bad format (see above). capacity 0 or a null buffer or format: -1, nothing written.
int vformat16(char16_t* buffer, std::size_t capacity, const char16_t* format, va_list args);
int format16(char16_t* buffer, std::size_t capacity, const char16_t* format, ...);

}  // namespace plat
