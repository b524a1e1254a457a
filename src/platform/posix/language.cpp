#include "plat/language.h"

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "plat/errors.h"
#include "plat/strings.h"

namespace plat {

namespace {

struct LocaleName {
    std::string_view name;
    LANGID id;
};

// The locales we know by name: every language of the string table with its usual regions, English and a
// few others, so that a user of those gets a LANGID (and English texts) rather than a guess. Neutral names
// carry the primary language id.
constexpr std::array kLocales = std::to_array<LocaleName>({
    {"ar", 0x01},      {"ar-SA", 0x0401}, {"bg", 0x02},        {"bg-BG", 0x0402},   {"ca", 0x03},
    {"ca-ES", 0x0403}, {"zh", 0x04},      {"zh-TW", 0x0404},   {"zh-CN", 0x0804},   {"zh-HK", 0x0C04},
    {"zh-SG", 0x1004}, {"zh-MO", 0x1404}, {"zh-Hans", 0x0004}, {"zh-Hant", 0x7C04}, {"cs", 0x05},
    {"cs-CZ", 0x0405}, {"da", 0x06},      {"da-DK", 0x0406},   {"de", 0x07},        {"de-DE", 0x0407},
    {"de-CH", 0x0807}, {"de-AT", 0x0C07}, {"de-LU", 0x1007},   {"de-LI", 0x1407},   {"el", 0x08},
    {"el-GR", 0x0408}, {"en", 0x09},      {"en-US", 0x0409},   {"en-GB", 0x0809},   {"en-AU", 0x0C09},
    {"en-CA", 0x1009}, {"en-NZ", 0x1409}, {"en-IE", 0x1809},   {"en-ZA", 0x1C09},   {"en-IN", 0x4009},
    {"es", 0x0A},      {"es-ES", 0x0C0A}, {"es-MX", 0x080A},   {"es-CO", 0x240A},   {"es-AR", 0x2C0A},
    {"es-CL", 0x340A}, {"es-US", 0x540A}, {"fi", 0x0B},        {"fi-FI", 0x040B},   {"fr", 0x0C},
    {"fr-FR", 0x040C}, {"fr-BE", 0x080C}, {"fr-CA", 0x0C0C},   {"fr-CH", 0x100C},   {"fr-LU", 0x140C},
    {"he", 0x0D},      {"he-IL", 0x040D}, {"hu", 0x0E},        {"hu-HU", 0x040E},   {"is", 0x0F},
    {"is-IS", 0x040F}, {"it", 0x10},      {"it-IT", 0x0410},   {"it-CH", 0x0810},   {"ja", 0x11},
    {"ja-JP", 0x0411}, {"ko", 0x12},      {"ko-KR", 0x0412},   {"nl", 0x13},        {"nl-NL", 0x0413},
    {"nl-BE", 0x0813}, {"no", 0x14},      {"nb", 0x7C14},      {"nb-NO", 0x0414},   {"nn", 0x7814},
    {"nn-NO", 0x0814}, {"pl", 0x15},      {"pl-PL", 0x0415},   {"pt", 0x16},        {"pt-BR", 0x0416},
    {"pt-PT", 0x0816}, {"ro", 0x18},      {"ro-RO", 0x0418},   {"ru", 0x19},        {"ru-RU", 0x0419},
    {"hr", 0x1A},      {"hr-HR", 0x041A}, {"sk", 0x1B},        {"sk-SK", 0x041B},   {"sv", 0x1D},
    {"sv-SE", 0x041D}, {"sv-FI", 0x081D}, {"th", 0x1E},        {"th-TH", 0x041E},   {"tr", 0x1F},
    {"tr-TR", 0x041F}, {"id", 0x21},      {"id-ID", 0x0421},   {"uk", 0x22},        {"uk-UA", 0x0422},
    {"sl", 0x24},      {"sl-SI", 0x0424}, {"et", 0x25},        {"et-EE", 0x0425},   {"lv", 0x26},
    {"lv-LV", 0x0426}, {"lt", 0x27},      {"lt-LT", 0x0427},   {"vi", 0x2A},        {"vi-VN", 0x042A},
});

thread_local std::vector<LANGID> t_preferredUILanguages;
thread_local LCID t_threadLocale = LANG_ENGLISH_US;

char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// "de_de" matches "de-DE": case does not count, and "_" stands for "-".
bool sameLocaleName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        const char ca = a[i] == '_' ? '-' : asciiLower(a[i]);
        const char cb = b[i] == '_' ? '-' : asciiLower(b[i]);
        if (ca != cb) {
            return false;
        }
    }
    return true;
}

LANGID exactLocale(std::string_view name) {
    for (const LocaleName& locale : kLocales) {
        if (sameLocaleName(locale.name, name)) {
            return locale.id;
        }
    }
    return 0;
}

// The id of a name, or of its language alone when the region is unknown; 0 when even that is unknown.
LANGID localeFromName(std::string_view name) {
    if (name.empty()) {
        return 0;
    }
    if (const LANGID id = exactLocale(name); id != 0) {
        return id;
    }
    const std::size_t cut = name.find_first_of("-_");
    return cut == std::string_view::npos ? 0 : exactLocale(name.substr(0, cut));
}

std::string_view nameOfLocale(LCID locale) {
    for (const LocaleName& known : kLocales) {
        if (known.id == locale) {
            return known.name;
        }
    }
    return {};
}

// The entry of LANGUAGE that counts: the first non-empty one of its colon list.
std::string_view firstListEntry(std::string_view list) {
    while (!list.empty()) {
        const std::size_t colon = list.find(':');
        const std::string_view entry = list.substr(0, colon);
        if (!entry.empty() || colon == std::string_view::npos) {
            return entry;
        }
        list.remove_prefix(colon + 1);
    }
    return {};
}

LANGID parseHexLanguageId(std::u16string_view text) {
    if (text.empty() || text.size() > 4) {
        return 0;
    }
    unsigned value = 0;
    for (const char16_t c : text) {
        unsigned digit = 0;
        if (c >= u'0' && c <= u'9') {
            digit = static_cast<unsigned>(c - u'0');
        } else if (c >= u'a' && c <= u'f') {
            digit = static_cast<unsigned>(c - u'a' + 10);
        } else if (c >= u'A' && c <= u'F') {
            digit = static_cast<unsigned>(c - u'A' + 10);
        } else {
            return 0;
        }
        value = value * 16 + digit;
    }
    return nameOfLocale(value).empty() ? LANGID{0} : static_cast<LANGID>(value);
}

}  // namespace

LANGID langIdFromPosixLocale(std::string_view value) {
    const std::string_view name = value.substr(0, value.find_first_of(".@"));
    if (name == "C" || name == "POSIX") {
        return LANG_ENGLISH_US;
    }
    const LANGID id = localeFromName(name);
    return id != 0 ? id : LANG_ENGLISH_US;
}

LANGID GetUserDefaultUILanguage() {
    for (const char* variable : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        const std::string_view name(variable);
        const std::string_view text(value);
        return langIdFromPosixLocale(name == "LANGUAGE" ? firstListEntry(text) : text);
    }
    return LANG_ENGLISH_US;
}

int LCIDToLocaleName(LCID Locale, LPWSTR lpName, int cchName, DWORD dwFlags) {
    const std::string_view name = nameOfLocale(Locale);
    if (name.empty() || dwFlags != 0 || cchName < 0 || (cchName > 0 && lpName == nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const int needed = static_cast<int>(name.size()) + 1;
    if (cchName == 0) {
        return needed;
    }
    if (cchName < needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    copyTruncated(fromUtf8(name), lpName, static_cast<std::size_t>(cchName));
    return needed;
}

LCID LocaleNameToLCID(LPCWSTR lpName, DWORD /*dwFlags*/) {
    const LANGID id = lpName != nullptr ? localeFromName(toUtf8(lpName)) : LANGID{0};
    if (id == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
    }
    return id;
}

BOOL SetThreadLocale(LCID Locale) {
    if (nameOfLocale(Locale).empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    t_threadLocale = Locale;
    return TRUE;
}

LCID GetThreadLocale() {
    return t_threadLocale;
}

BOOL SetThreadPreferredUILanguages(DWORD dwFlags, LPCWSTR pwszLanguagesBuffer, ULONG* pulNumLanguages) {
    if (pwszLanguagesBuffer == nullptr || *pwszLanguagesBuffer == u'\0') {
        t_preferredUILanguages.clear();
        if (pulNumLanguages != nullptr) {
            *pulNumLanguages = 0;
        }
        return TRUE;
    }
    const DWORD form = dwFlags & (MUI_LANGUAGE_ID | MUI_LANGUAGE_NAME);
    if (form != MUI_LANGUAGE_ID && form != MUI_LANGUAGE_NAME) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::vector<LANGID> languages;
    for (LPCWSTR entry = pwszLanguagesBuffer; *entry != u'\0'; entry += wcslen16(entry) + 1) {
        const std::u16string_view text(entry);
        const LANGID id = form == MUI_LANGUAGE_NAME ? localeFromName(toUtf8(text)) : parseHexLanguageId(text);
        if (id != 0) {
            languages.push_back(id);
        }
    }
    t_preferredUILanguages = std::move(languages);
    if (pulNumLanguages != nullptr) {
        *pulNumLanguages = static_cast<ULONG>(t_preferredUILanguages.size());
    }
    return TRUE;
}

LANGID GetThreadUILanguage() {
    return t_preferredUILanguages.empty() ? LANG_ENGLISH_US : t_preferredUILanguages.front();
}

std::span<const LANGID> threadPreferredUILanguages() {
    return t_preferredUILanguages;
}

}  // namespace plat
