#include "plat/format.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

namespace plat {

namespace {

// Floats are delegated to snprintf; a precision beyond this gives no more meaningful digits and would
// only cost memory.
constexpr int kMaxFloatPrecision = 512;

// Appends to the caller's buffer, keeping room for the NUL; remembers whether anything was cut.
class Output {
public:
    Output(char16_t* buffer, std::size_t capacity) : m_pBuffer(buffer), m_nCapacity(capacity) {}

    void put(char16_t unit) {
        if (m_nLength + 1 < m_nCapacity) {
            m_pBuffer[m_nLength++] = unit;
        } else {
            m_bCut = true;
        }
    }
    // Stops early once the buffer is full, so that a huge width costs nothing.
    void repeat(char16_t unit, long count) {
        for (long i = 0; i < count && !m_bCut; ++i) {
            put(unit);
        }
    }
    void putAscii(const char* text, std::size_t count) {
        for (std::size_t i = 0; i < count && !m_bCut; ++i) {
            put(static_cast<char16_t>(static_cast<unsigned char>(text[i])));
        }
    }
    void terminate() { m_pBuffer[m_nLength] = u'\0'; }
    bool cut() const { return m_bCut; }
    std::size_t length() const { return m_nLength; }

private:
    char16_t* m_pBuffer;
    std::size_t m_nCapacity;
    std::size_t m_nLength = 0;
    bool m_bCut = false;
};

enum class Size { kDefault, kChar, kShort, kLong, kLongLong, kSizeT, kIntMax, kPtrDiff, kLongDouble };

struct Spec {
    bool left = false;
    bool zero = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    long width = 0;
    long precision = -1;  // -1: none given
    Size size = Size::kDefault;
    char16_t conversion = 0;
};

bool isDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// Reads digits into a number that saturates instead of overflowing.
long readNumber(const char16_t*& p) {
    long value = 0;
    while (isDigit(*p)) {
        value = std::min(value * 10 + (*p - u'0'), 0x7FFFFFFL);
        ++p;
    }
    return value;
}

// Parses the part of a conversion after '%'. False for a format that ends inside it.
bool parseSpec(const char16_t*& p, va_list* args, Spec& spec) {
    for (;; ++p) {
        if (*p == u'-') {
            spec.left = true;
        } else if (*p == u'0') {
            spec.zero = true;
        } else if (*p == u'+') {
            spec.plus = true;
        } else if (*p == u' ') {
            spec.space = true;
        } else if (*p == u'#') {
            spec.alternate = true;
        } else {
            break;
        }
    }
    if (*p == u'*') {
        ++p;
        const int width = va_arg(*args, int);
        spec.left = spec.left || width < 0;
        spec.width = width < 0 ? -static_cast<long>(width) : width;
    } else {
        spec.width = readNumber(p);
    }
    if (*p == u'.') {
        ++p;
        if (*p == u'*') {
            ++p;
            const int precision = va_arg(*args, int);
            spec.precision = precision < 0 ? -1 : precision;
        } else {
            spec.precision = readNumber(p);
        }
    }
    if (*p == u'h') {
        ++p;
        spec.size = *p == u'h' ? (++p, Size::kChar) : Size::kShort;
    } else if (*p == u'l') {
        ++p;
        spec.size = *p == u'l' ? (++p, Size::kLongLong) : Size::kLong;
    } else if (*p == u'I' && p[1] == u'6' && p[2] == u'4') {
        p += 3;
        spec.size = Size::kLongLong;
    } else if (*p == u'z' || *p == u'j' || *p == u't' || *p == u'L') {
        spec.size = *p == u'z'   ? Size::kSizeT
                    : *p == u'j' ? Size::kIntMax
                    : *p == u't' ? Size::kPtrDiff
                                 : Size::kLongDouble;
        ++p;
    }
    spec.conversion = *p;
    if (*p == u'\0') {
        return false;
    }
    ++p;
    return true;
}

long long takeSigned(va_list* args, Size size) {
    switch (size) {
        case Size::kChar:
            return static_cast<signed char>(va_arg(*args, int));
        case Size::kShort:
            return static_cast<short>(va_arg(*args, int));
        case Size::kLong:
            return va_arg(*args, long);
        case Size::kLongLong:
            return va_arg(*args, long long);
        case Size::kSizeT:
        case Size::kPtrDiff:
            return va_arg(*args, std::ptrdiff_t);
        case Size::kIntMax:
            return va_arg(*args, std::intmax_t);
        default:
            return va_arg(*args, int);
    }
}

unsigned long long takeUnsigned(va_list* args, Size size) {
    switch (size) {
        case Size::kChar:
            return static_cast<unsigned char>(va_arg(*args, unsigned));
        case Size::kShort:
            return static_cast<unsigned short>(va_arg(*args, unsigned));
        case Size::kLong:
            return va_arg(*args, unsigned long);
        case Size::kLongLong:
            return va_arg(*args, unsigned long long);
        case Size::kSizeT:
        case Size::kPtrDiff:
            return va_arg(*args, std::size_t);
        case Size::kIntMax:
            return va_arg(*args, std::uintmax_t);
        default:
            return va_arg(*args, unsigned);
    }
}

// Pads the body (prefix, zeros, digits) to the width, on the side the flags ask for.
void emitPadded(Output& out, const Spec& spec, const std::string& prefix, long zeros, const char* body,
                std::size_t bodyLength) {
    const long total = static_cast<long>(prefix.size() + bodyLength) + zeros;
    const long padding = spec.width > total ? spec.width - total : 0;
    if (!spec.left) {
        out.repeat(u' ', padding);
    }
    out.putAscii(prefix.data(), prefix.size());
    out.repeat(u'0', zeros);
    out.putAscii(body, bodyLength);
    if (spec.left) {
        out.repeat(u' ', padding);
    }
}

void emitInteger(Output& out, const Spec& spec, unsigned long long magnitude, bool negative) {
    const char16_t c = spec.conversion;
    const unsigned base = (c == u'x' || c == u'X' || c == u'p') ? 16 : c == u'o' ? 8 : 10;
    const char* digitSet = c == u'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    char digits[32];
    std::size_t count = 0;
    for (unsigned long long v = magnitude; v != 0; v /= base) {
        digits[sizeof(digits) - 1 - count++] = digitSet[v % base];
    }
    if (magnitude == 0 && spec.precision < 0) {
        digits[sizeof(digits) - 1 - count++] = '0';  // only an explicit precision 0 prints no digit
    }
    const char* body = digits + sizeof(digits) - count;

    std::string prefix;
    if (negative) {
        prefix = "-";
    } else if (spec.plus && (c == u'd' || c == u'i')) {
        prefix = "+";
    } else if (spec.space && (c == u'd' || c == u'i')) {
        prefix = " ";
    }
    if ((spec.alternate && magnitude != 0 && (c == u'x' || c == u'X')) || c == u'p') {
        prefix += c == u'X' ? "0X" : "0x";
    }
    long zeros = 0;
    if (spec.precision >= 0) {
        zeros = spec.precision > static_cast<long>(count) ? spec.precision - static_cast<long>(count) : 0;
    } else if (spec.zero && !spec.left) {
        const long used = static_cast<long>(prefix.size() + count);
        zeros = spec.width > used ? spec.width - used : 0;
    }
    if (c == u'o' && spec.alternate && zeros == 0 && (count == 0 || body[0] != '0')) {
        zeros = 1;  // '#' promises a leading 0 for octal
    }
    emitPadded(out, spec, prefix, zeros, body, count);
}

void emitText(Output& out, const Spec& spec, const char16_t* text) {
    if (text == nullptr) {
        text = u"(null)";
    }
    long length = 0;
    while (text[length] != u'\0' && (spec.precision < 0 || length < spec.precision)) {
        ++length;
    }
    const long padding = spec.width > length ? spec.width - length : 0;
    if (!spec.left) {
        out.repeat(u' ', padding);
    }
    for (long i = 0; i < length && !out.cut(); ++i) {
        out.put(text[i]);
    }
    if (spec.left) {
        out.repeat(u' ', padding);
    }
}

// The picture is built from checked flags and one known conversion letter, with '*' for the precision.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int printDouble(char* out, std::size_t size, const std::string& picture, int precision, double value) {
    return std::snprintf(out, size, picture.c_str(), precision, value);
}
#pragma GCC diagnostic pop

// Floats go through the C library, without the width (padded here, so that it costs no memory).
void emitFloat(Output& out, const Spec& spec, double value) {
    std::string picture = "%";
    picture += spec.plus ? "+" : "";
    picture += spec.space ? " " : "";
    picture += spec.alternate ? "#" : "";
    picture += ".*";
    picture += static_cast<char>(spec.conversion);
    const int precision = spec.precision < 0
                              ? (spec.conversion == u'a' || spec.conversion == u'A' ? -1 : 6)
                              : static_cast<int>(std::min<long>(spec.precision, kMaxFloatPrecision));
    char small[64];
    int needed = printDouble(small, sizeof(small), picture, precision, value);
    std::string text;
    if (needed >= static_cast<int>(sizeof(small))) {
        text.resize(static_cast<std::size_t>(needed) + 1);
        needed = printDouble(text.data(), text.size(), picture, precision, value);
    } else {
        text.assign(small, needed < 0 ? 0 : static_cast<std::size_t>(needed));
    }
    text.resize(needed < 0 ? 0 : static_cast<std::size_t>(needed));
    Spec padded = spec;
    std::string sign;
    if (!text.empty() && (text[0] == '-' || text[0] == '+' || text[0] == ' ')) {
        sign = text.substr(0, 1);
        text.erase(0, 1);
    }
    const bool finite = text.find_first_of("ni") == std::string::npos;  // not inf or nan
    long zeros = 0;
    if (spec.zero && !spec.left && finite) {
        const long used = static_cast<long>(sign.size() + text.size());
        zeros = spec.width > used ? spec.width - used : 0;
    }
    padded.precision = -1;
    emitPadded(out, padded, sign, zeros, text.data(), text.size());
}

// Formats one conversion. False for a conversion that is not known.
bool emitConversion(Output& out, const Spec& spec, va_list* args) {
    switch (spec.conversion) {
        case u'%':
            out.put(u'%');
            return true;
        case u'c': {
            const char16_t unit[2] = {static_cast<char16_t>(va_arg(*args, int)), u'\0'};
            Spec charSpec = spec;
            charSpec.precision = -1;
            emitText(out, charSpec, unit[0] == u'\0' ? u"" : unit);
            return true;
        }
        case u's':
            emitText(out, spec, va_arg(*args, const char16_t*));
            return true;
        case u'd':
        case u'i': {
            const long long value = takeSigned(args, spec.size);
            const unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                                           : static_cast<unsigned long long>(value);
            emitInteger(out, spec, magnitude, value < 0);
            return true;
        }
        case u'u':
        case u'x':
        case u'X':
        case u'o':
            emitInteger(out, spec, takeUnsigned(args, spec.size), false);
            return true;
        case u'p':
            emitInteger(out, spec, reinterpret_cast<std::uintptr_t>(va_arg(*args, void*)), false);
            return true;
        case u'f':
        case u'F':
        case u'e':
        case u'E':
        case u'g':
        case u'G':
        case u'a':
        case u'A':
            emitFloat(out, spec,
                      spec.size == Size::kLongDouble ? static_cast<double>(va_arg(*args, long double))
                                                     : va_arg(*args, double));
            return true;
        default:
            return false;  // %n and anything unknown
    }
}

}  // namespace

int vformat16(char16_t* buffer, std::size_t capacity, const char16_t* format, va_list args) {
    if (buffer == nullptr || capacity == 0) {
        return -1;
    }
    Output out(buffer, capacity);
    if (format == nullptr) {
        out.terminate();
        return -1;
    }
    va_list ap;
    va_copy(ap, args);
    bool ok = true;
    const char16_t* p = format;
    while (*p != u'\0' && ok && !out.cut()) {
        if (*p != u'%') {
            out.put(*p++);
            continue;
        }
        ++p;
        Spec spec;
        ok = parseSpec(p, &ap, spec) && emitConversion(out, spec, &ap);
    }
    va_end(ap);
    out.terminate();
    return ok && !out.cut() ? static_cast<int>(out.length()) : -1;
}

int format16(char16_t* buffer, std::size_t capacity, const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = vformat16(buffer, capacity, format, args);
    va_end(args);
    return result;
}

}  // namespace plat
