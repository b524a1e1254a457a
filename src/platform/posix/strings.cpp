#include "plat/strings.h"

#include <algorithm>

namespace plat {

namespace {
constexpr char32_t kReplacement = 0xFFFD;

void appendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

void appendUtf16(std::u16string& out, char32_t cp) {
    if (cp < 0x10000) {
        out.push_back(static_cast<char16_t>(cp));
    } else {
        cp -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    }
}

// Decodes one UTF-8 sequence at text[i], advancing i; malformed input gives U+FFFD and skips one byte.
char32_t decodeUtf8(std::string_view text, std::size_t& i) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    if (lead < 0x80) {
        return lead;
    }
    int extra = 0;
    char32_t cp = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        extra = 1, cp = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2, cp = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3, cp = lead & 0x07, minimum = 0x10000;
    } else {
        return kReplacement;
    }
    if (i + static_cast<std::size_t>(extra) > text.size()) {
        return kReplacement;
    }
    for (int k = 0; k < extra; ++k) {
        const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
        if ((next & 0xC0) != 0x80) {
            return kReplacement;
        }
        cp = (cp << 6) | (next & 0x3F);
    }
    if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        return kReplacement;
    }
    i += static_cast<std::size_t>(extra);
    return cp;
}
}  // namespace

std::string toUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            const char32_t cp = 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) +
                                (static_cast<char32_t>(text[i + 1]) - 0xDC00);
            appendUtf8(out, cp);
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            appendUtf8(out, kReplacement);
        } else {
            appendUtf8(out, unit);
        }
    }
    return out;
}

std::u16string fromUtf8(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        appendUtf16(out, decodeUtf8(text, i));
    }
    return out;
}

std::size_t wcslen16(LPCWSTR text) {
    if (text == nullptr) {
        return 0;
    }
    return std::char_traits<char16_t>::length(text);
}

std::size_t copyTruncated(std::u16string_view text, LPWSTR buffer, std::size_t capacity) {
    if (buffer == nullptr || capacity == 0) {
        return 0;
    }
    const std::size_t count = std::min(text.size(), capacity - 1);
    std::copy_n(text.data(), count, buffer);
    buffer[count] = u'\0';
    return count;
}

}  // namespace plat
