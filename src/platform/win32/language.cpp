// The user's and the thread's languages: the API's own calls. The thread's preferred UI languages are
// also kept here as ids, because the string table (resources.cpp of the layer) chooses its language by
// them and the API gives a thread's own list back only as text.
#include <array>
#include <cwchar>
#include <type_traits>

#include "plat/language.h"
#include "wide.h"

namespace plat {

using win32::wide;

namespace {

// Kept in storage without a destructor: with this toolchain a thread_local object's destructor runs at
// thread exit after the thread's storage has been freed (mingw-w64's emulated TLS), so a vector here
// freed a pointer read from freed memory at the end of every thread that had set its languages, and
// corrupted the heap. A person's list names a few languages; the string table only needs the first
// that it holds, so the first kMaxPreferred are kept.
constexpr std::size_t kMaxPreferred = 16;
struct PreferredLanguages {
    std::array<LANGID, kMaxPreferred> ids;
    std::size_t count;
};
static_assert(std::is_trivially_destructible_v<PreferredLanguages>);
thread_local PreferredLanguages t_preferred = {};

// One entry of a language list: a name ("de-DE") or a hexadecimal id ("0407"); 0 for an unknown one.
LANGID languageOfEntry(const wchar_t* entry, DWORD flags) {
    if ((flags & MUI_LANGUAGE_ID) != 0) {
        return static_cast<LANGID>(std::wcstoul(entry, nullptr, 16));
    }
    return LANGIDFROMLCID(::LocaleNameToLCID(entry, 0));
}

PreferredLanguages languagesOfList(DWORD flags, const wchar_t* list) {
    PreferredLanguages languages = {};
    for (const wchar_t* entry = list; entry != nullptr && *entry != L'\0' && languages.count < kMaxPreferred;
         entry += std::wcslen(entry) + 1) {
        const LANGID language = languageOfEntry(entry, flags);
        if (language != 0) {
            languages.ids[languages.count++] = language;
        }
    }
    return languages;
}

}  // namespace

LANGID GetUserDefaultUILanguage() {
    return ::GetUserDefaultUILanguage();
}

int LCIDToLocaleName(LCID Locale, LPWSTR lpName, int cchName, DWORD dwFlags) {
    return ::LCIDToLocaleName(Locale, wide(lpName), cchName, dwFlags);
}

LCID LocaleNameToLCID(LPCWSTR lpName, DWORD dwFlags) {
    return ::LocaleNameToLCID(wide(lpName), dwFlags);
}

BOOL SetThreadLocale(LCID Locale) {
    return ::SetThreadLocale(Locale);
}

LCID GetThreadLocale() {
    return ::GetThreadLocale();
}

BOOL SetThreadPreferredUILanguages(DWORD dwFlags, LPCWSTR pwszLanguagesBuffer, ULONG* pulNumLanguages) {
    if (!::SetThreadPreferredUILanguages(dwFlags, wide(pwszLanguagesBuffer), nullptr)) {
        return FALSE;
    }
    t_preferred = languagesOfList(dwFlags, wide(pwszLanguagesBuffer));
    // The count of the list kept here: the languages the API took (Wine's call always reports 0).
    win32::storeIfWanted(pulNumLanguages, t_preferred.count);
    return TRUE;
}

LANGID GetThreadUILanguage() {
    return ::GetThreadUILanguage();
}

std::span<const LANGID> threadPreferredUILanguages() {
    return std::span<const LANGID>(t_preferred.ids.data(), t_preferred.count);
}

}  // namespace plat
