// Fuzzes the UTF-16 formatter with the input as the format string. Every conversion the input asks for
// has an argument: the input is cut before the ninth "%" or "*", and eight arguments are passed that are
// valid for every conversion left in (float conversions are turned into %d, since doubles travel apart
// from the others; the unit tests cover them): pointers to a text, read as text, pointer or integer.
// '*' also takes an argument; it is counted like a '%'.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "plat/format.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

constexpr int kArgumentSlots = 8;

// The input as UTF-16 (two bytes a unit), cut so that it names at most kArgumentSlots arguments; doubles
// become %d (see above).
std::u16string formatOf(const std::uint8_t* data, std::size_t size) {
    std::u16string format;
    int arguments = 0;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        const auto unit = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
        if (unit == u'\0') {
            break;
        }
        if (unit == u'%' || unit == u'*') {
            if (++arguments > kArgumentSlots) {
                break;
            }
        }
        switch (unit) {
            case u'f':
            case u'F':
            case u'e':
            case u'E':
            case u'g':
            case u'G':
            case u'a':
            case u'A':
            case u'L':
                format.push_back(u'd');  // floats are covered by the unit tests
                break;
            default:
                format.push_back(unit);
        }
    }
    return format;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::u16string format = formatOf(data, size);
    // A text pointer is a valid argument for %s, %p and (read as a number) every integer size.
    const char16_t* const text = u"text";
    const std::size_t capacity = size == 0 ? 1 : 1 + data[0] % 64;
    char16_t buffer[64 + 1];
    buffer[capacity] = u'\xFFFF';
    const int result =
        plat::format16(buffer, capacity, format.c_str(), text, text, text, text, text, text, text, text);
    check(buffer[capacity] == u'\xFFFF');  // nothing written past the capacity
    if (result >= 0) {
        check(static_cast<std::size_t>(result) < capacity);
        check(buffer[result] == u'\0');
    } else {
        std::size_t length = 0;
        while (length < capacity && buffer[length] != u'\0') {
            ++length;
        }
        check(length < capacity);  // always terminated
    }
    return 0;
}
