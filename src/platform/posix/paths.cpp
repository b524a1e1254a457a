#include "plat/paths.h"

#include <sys/stat.h>
#include <wctype.h>

#include <cerrno>
#include <clocale>

#include "plat/errors.h"
#include "plat/strings.h"

namespace plat {

namespace {

constexpr WCHAR kSeparator = u'/';

// A run of code points where upper and lower case alternate: `first` and every second one after it are
// upper case, their lower form is one above.
bool inAlternatingRun(char32_t c, char32_t first, char32_t last) {
    return c >= first && c <= last && (c - first) % 2 == 0;
}

// Latin, Greek, Cyrillic and Armenian letters, fixed here so that names compare alike on every machine.
// Returns 0 when the table does not know the unit.
char32_t lowerFromTable(char32_t c) {
    if ((c >= u'A' && c <= u'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7)) {
        return c + 0x20;
    }
    if (c == 0x130) {
        return u'i';  // dotted capital I
    }
    if (c == 0x178) {
        return 0xFF;
    }
    if (inAlternatingRun(c, 0x100, 0x12E) || inAlternatingRun(c, 0x132, 0x136) ||
        inAlternatingRun(c, 0x139, 0x147) || inAlternatingRun(c, 0x14A, 0x176) ||
        inAlternatingRun(c, 0x179, 0x17D) || inAlternatingRun(c, 0x1E00, 0x1E94) ||
        inAlternatingRun(c, 0x1EA0, 0x1EFE)) {
        return c + 1;
    }
    // Greek: accented capitals first, then the plain alphabet (0x3A2 is no letter).
    if (c == 0x386) {
        return 0x3AC;
    }
    if (c >= 0x388 && c <= 0x38A) {
        return c + 37;
    }
    if (c == 0x38C) {
        return 0x3CC;
    }
    if (c == 0x38E || c == 0x38F) {
        return c + 63;
    }
    if ((c >= 0x391 && c <= 0x3A1) || (c >= 0x3A3 && c <= 0x3AB)) {
        return c + 0x20;
    }
    if (inAlternatingRun(c, 0x3D8, 0x3EE)) {
        return c + 1;
    }
    // Cyrillic.
    if (c >= 0x400 && c <= 0x40F) {
        return c + 0x50;
    }
    if (c >= 0x410 && c <= 0x42F) {
        return c + 0x20;
    }
    if (c == 0x4C0) {
        return 0x4CF;
    }
    if (inAlternatingRun(c, 0x460, 0x480) || inAlternatingRun(c, 0x48A, 0x4BE) ||
        inAlternatingRun(c, 0x4C1, 0x4CD) || inAlternatingRun(c, 0x4D0, 0x52E)) {
        return c + 1;
    }
    if (c >= 0x531 && c <= 0x556) {
        return c + 0x30;  // Armenian
    }
    if (c >= 0xFF21 && c <= 0xFF3A) {
        return c + 0x20;  // full-width Latin
    }
    return 0;
}

// Other scripts: the C library's Unicode tables, through a UTF-8 locale of our own so that the process
// locale does not matter. Without such a locale these letters stay as they are.
char32_t lowerFromLibrary(char32_t c) {
    static const locale_t utf8Locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    if (utf8Locale == static_cast<locale_t>(nullptr)) {
        return c;
    }
    const wint_t lowered = ::towlower_l(static_cast<wint_t>(c), utf8Locale);
    return lowered < 0x10000 && (lowered < 0xD800 || lowered > 0xDFFF) ? static_cast<char32_t>(lowered) : c;
}

WCHAR lowerUnit(WCHAR unit) {
    if (unit < 0x80) {
        return unit >= u'A' && unit <= u'Z' ? static_cast<WCHAR>(unit + 0x20) : unit;
    }
    if (unit >= 0xD800 && unit <= 0xDFFF) {
        return unit;
    }
    const char32_t fromTable = lowerFromTable(unit);
    return static_cast<WCHAR>(fromTable != 0 ? fromTable : lowerFromLibrary(unit));
}

}  // namespace

LPCWSTR PathFindExtensionW(LPCWSTR pszPath) {
    if (pszPath == nullptr) {
        return nullptr;
    }
    LPCWSTR lastDot = nullptr;
    LPCWSTR p = pszPath;
    for (; *p != u'\0'; ++p) {
        if (*p == kSeparator) {
            lastDot = nullptr;
        } else if (*p == u'.') {
            lastDot = p;
        }
    }
    return lastDot != nullptr ? lastDot : p;
}

LPCWSTR PathFindFileNameW(LPCWSTR pszPath) {
    if (pszPath == nullptr) {
        return nullptr;
    }
    LPCWSTR name = pszPath;
    for (LPCWSTR p = pszPath; *p != u'\0'; ++p) {
        if (*p == kSeparator && p[1] != u'\0' && p[1] != kSeparator) {
            name = p + 1;
        }
    }
    return name;
}

BOOL PathFileExistsW(LPCWSTR pszPath) {
    if (pszPath == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string path = toUtf8(pszPath);
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        setLastErrorFromErrno(errno, path);
        return FALSE;
    }
    return TRUE;
}

LPWSTR CharLowerW(LPWSTR lpsz) {
    if (lpsz == nullptr) {
        return nullptr;
    }
    for (LPWSTR p = lpsz; *p != u'\0'; ++p) {
        *p = lowerUnit(*p);
    }
    return lpsz;
}

}  // namespace plat
