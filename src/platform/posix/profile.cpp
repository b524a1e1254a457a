#include "plat/profile.h"

#include <cstdio>

#include "plat/errors.h"
#include "plat/strings.h"

namespace plat {

namespace {

bool isBlank(char16_t c) {
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\v' || c == u'\f';
}

std::u16string_view trim(std::u16string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

char16_t foldCase(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}

bool equalsIgnoringCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (foldCase(a[i]) != foldCase(b[i])) {
            return false;
        }
    }
    return true;
}

std::u16string_view unquote(std::u16string_view value) {
    if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
        value.back() == value.front()) {
        return value.substr(1, value.size() - 2);
    }
    return value;
}

// The next line of `rest` without its line feed; `rest` moves behind it.
std::u16string_view takeLine(std::u16string_view& rest) {
    const std::size_t end = rest.find(u'\n');
    const std::u16string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::u16string_view::npos ? rest.size() : end + 1);
    return line;
}

std::u16string decodeUtf16Le(const std::string& bytes, std::size_t from) {
    std::u16string text;
    for (std::size_t i = from; i + 1 < bytes.size(); i += 2) {
        text.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                             (static_cast<unsigned char>(bytes[i + 1]) << 8)));
    }
    return text;
}

}  // namespace

std::optional<std::u16string> findProfileValue(std::u16string_view content, std::u16string_view section,
                                               std::u16string_view key) {
    bool inSection = false;
    std::u16string_view rest = content;
    while (!rest.empty()) {
        const std::u16string_view line = trim(takeLine(rest));
        if (line.empty() || line.front() == u';') {
            continue;
        }
        if (line.front() == u'[') {
            const std::size_t close = line.find(u']');
            const std::u16string_view name =
                line.substr(1, close == std::u16string_view::npos ? line.npos : close - 1);
            inSection = equalsIgnoringCase(trim(name), section);
            continue;
        }
        const std::size_t equals = line.find(u'=');
        if (inSection && equals != std::u16string_view::npos &&
            equalsIgnoringCase(trim(line.substr(0, equals)), key)) {
            return std::u16string(unquote(trim(line.substr(equals + 1))));
        }
    }
    return std::nullopt;
}

std::optional<std::u16string> readProfileFile(LPCWSTR lpFileName) {
    if (lpFileName == nullptr || *lpFileName == u'\0') {
        return std::nullopt;
    }
    std::FILE* file = std::fopen(toUtf8(lpFileName).c_str(), "rb");
    if (file == nullptr) {
        return std::nullopt;
    }
    std::string bytes;
    char chunk[4096];
    for (std::size_t n; (n = std::fread(chunk, 1, sizeof(chunk), file)) > 0;) {
        bytes.append(chunk, n);
    }
    std::fclose(file);
    if (bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE') {
        return decodeUtf16Le(bytes, 2);
    }
    const bool utf8Mark = bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
    return fromUtf8(std::string_view(bytes).substr(utf8Mark ? 3 : 0));
}

namespace {

// The value of a key in a file; sets the last error when there is none.
std::optional<std::u16string> lookUp(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpFileName) {
    const std::optional<std::u16string> content = readProfileFile(lpFileName);
    if (!content) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return std::nullopt;
    }
    std::optional<std::u16string> value = findProfileValue(*content, lpAppName, lpKeyName);
    SetLastError(value ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND);
    return value;
}

// Decimal digits or "0x" and hex digits from the start, after an optional '-'; wraps like the
// original's unsigned arithmetic.
UINT parseProfileNumber(std::u16string_view text) {
    bool negative = false;
    if (!text.empty() && text.front() == u'-') {
        negative = true;
        text.remove_prefix(1);
    }
    UINT base = 10;
    if (text.size() >= 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    UINT value = 0;
    for (const char16_t c : text) {
        UINT digit = 0;
        if (c >= u'0' && c <= u'9') {
            digit = static_cast<UINT>(c - u'0');
        } else if (base == 16 && foldCase(c) >= u'a' && foldCase(c) <= u'f') {
            digit = static_cast<UINT>(foldCase(c) - u'a' + 10);
        } else {
            break;
        }
        value = value * base + digit;
    }
    return negative ? 0u - value : value;
}

}  // namespace

UINT GetPrivateProfileIntW(LPCWSTR lpAppName, LPCWSTR lpKeyName, int nDefault, LPCWSTR lpFileName) {
    if (lpAppName == nullptr || lpKeyName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return static_cast<UINT>(nDefault);
    }
    const std::optional<std::u16string> value = lookUp(lpAppName, lpKeyName, lpFileName);
    return value ? parseProfileNumber(*value) : static_cast<UINT>(nDefault);
}

DWORD GetPrivateProfileStringW(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpDefault,
                               LPWSTR lpReturnedString, DWORD nSize, LPCWSTR lpFileName) {
    std::optional<std::u16string> value;
    if (lpAppName == nullptr || lpKeyName == nullptr) {
        SetLastError(ERROR_NOT_SUPPORTED);
    } else {
        value = lookUp(lpAppName, lpKeyName, lpFileName);
    }
    if (!value) {
        std::u16string_view fallback =
            lpDefault == nullptr ? std::u16string_view() : std::u16string_view(lpDefault);
        while (!fallback.empty() && fallback.back() == u' ') {
            fallback.remove_suffix(1);
        }
        value = std::u16string(fallback);
    }
    return static_cast<DWORD>(copyTruncated(*value, lpReturnedString, nSize));
}

}  // namespace plat
