// GetDateFormatW and GetTimeFormatW: the picture language for dates and times, in English.
#include <string>

#include "plat/errors.h"
#include "plat/system.h"

namespace plat {

namespace {

enum class PictureKind { kDate, kTime };

const char* const kDayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                 "Thursday", "Friday", "Saturday"};
const char* const kMonthNames[] = {"January", "February", "March",     "April",   "May",      "June",
                                   "July",    "August",   "September", "October", "November", "December"};

bool isValid(const SYSTEMTIME& t) {
    return t.wMonth >= 1 && t.wMonth <= 12 && t.wDay >= 1 && t.wDay <= 31 && t.wDayOfWeek <= 6 &&
           t.wHour < 24 && t.wMinute < 60 && t.wSecond < 60 && t.wMilliseconds < 1000;
}

void appendAscii(std::u16string& out, const std::string& text) {
    for (const char c : text) {
        out.push_back(static_cast<char16_t>(c));
    }
}

// A number with at least `digits` digits.
void appendNumber(std::u16string& out, unsigned value, std::size_t digits) {
    std::string text = std::to_string(value);
    if (text.size() < digits) {
        text.insert(0, digits - text.size(), '0');
    }
    appendAscii(out, text);
}

void appendName(std::u16string& out, const char* name, std::size_t count) {
    appendAscii(out, count == 3 ? std::string(name, 3) : std::string(name));
}

// Expands one run of `count` equal picture letters; false when the letter means nothing to this kind.
bool appendField(std::u16string& out, char16_t letter, std::size_t count, const SYSTEMTIME& t,
                 PictureKind kind) {
    if (kind == PictureKind::kDate) {
        switch (letter) {
            case u'y':
                count == 1 || count == 2 ? appendNumber(out, t.wYear % 100u, count)
                                         : appendNumber(out, t.wYear, 4);
                return true;
            case u'M':
                count <= 2 ? appendNumber(out, t.wMonth, count)
                           : appendName(out, kMonthNames[t.wMonth - 1], count);
                return true;
            case u'd':
                count <= 2 ? appendNumber(out, t.wDay, count)
                           : appendName(out, kDayNames[t.wDayOfWeek], count);
                return true;
            default:
                return false;
        }
    }
    const std::size_t digits = count >= 2 ? 2 : 1;
    switch (letter) {
        case u'H':
            appendNumber(out, t.wHour, digits);
            return true;
        case u'h':
            appendNumber(out, t.wHour % 12 == 0 ? 12u : t.wHour % 12u, digits);
            return true;
        case u'm':
            appendNumber(out, t.wMinute, digits);
            return true;
        case u's':
            appendNumber(out, t.wSecond, digits);
            return true;
        case u't':
            appendAscii(out, std::string(t.wHour < 12 ? "AM" : "PM").substr(0, count >= 2 ? 2 : 1));
            return true;
        default:
            return false;
    }
}

std::u16string expandPicture(std::u16string_view picture, const SYSTEMTIME& t, PictureKind kind) {
    std::u16string out;
    for (std::size_t i = 0; i < picture.size();) {
        const char16_t c = picture[i];
        if (c == u'\'') {  // quoted literal text; '' inside is one quote
            for (++i; i < picture.size(); ++i) {
                if (picture[i] == u'\'' && i + 1 < picture.size() && picture[i + 1] == u'\'') {
                    out.push_back(u'\'');
                    ++i;
                } else if (picture[i] == u'\'') {
                    ++i;
                    break;
                } else {
                    out.push_back(picture[i]);
                }
            }
            continue;
        }
        std::size_t count = 1;
        while (i + count < picture.size() && picture[i + count] == c) {
            ++count;
        }
        if (!appendField(out, c, count, t, kind)) {
            out.append(picture.substr(i, count));
        }
        i += count;
    }
    return out;
}

int formatPicture(const SYSTEMTIME* time, LPCWSTR picture, LPWSTR output, int capacity, PictureKind kind) {
    SYSTEMTIME now{};
    if (time == nullptr) {
        GetLocalTime(&now);
        time = &now;
    }
    if (picture == nullptr || capacity < 0 || (capacity > 0 && output == nullptr) || !isValid(*time)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::u16string text = expandPicture(picture, *time, kind);
    const int needed = static_cast<int>(text.size()) + 1;
    if (capacity == 0) {
        return needed;
    }
    if (needed > capacity) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    text.copy(output, text.size());
    output[text.size()] = u'\0';
    return needed;
}

}  // namespace

int GetDateFormatW(LCID /*Locale*/, DWORD /*dwFlags*/, const SYSTEMTIME* lpDate, LPCWSTR lpFormat,
                   LPWSTR lpDateStr, int cchDate) {
    return formatPicture(lpDate, lpFormat, lpDateStr, cchDate, PictureKind::kDate);
}

int GetTimeFormatW(LCID /*Locale*/, DWORD /*dwFlags*/, const SYSTEMTIME* lpTime, LPCWSTR lpFormat,
                   LPWSTR lpTimeStr, int cchTime) {
    return formatPicture(lpTime, lpFormat, lpTimeStr, cchTime, PictureKind::kTime);
}

}  // namespace plat
