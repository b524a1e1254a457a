// The user's UI language and the calling thread's language, under the Windows names.
//
// On POSIX the user's UI language comes from the environment: the first of LANGUAGE, LC_ALL, LC_MESSAGES,
// LANG that is set and not empty. LANGUAGE may be a colon list ("de:en"): its first entry counts. The
// value "de_DE.UTF-8@euro" counts as "de_DE" (codeset and modifier are dropped); "C" and "POSIX" are
// English (United States), 1033. A known language with an unknown region gives the language's neutral id
// ("de_XX" gives 7); an unknown language gives 1033.
//
// A thread starts with no preferred UI languages and the thread locale 1033: until a thread sets its own,
// it loads texts in English, whatever the environment says (as a new thread does on Windows with a
// program that sets its language per thread).
#pragma once

#include <span>
#include <string_view>

#include "plat/types.h"

namespace plat {

inline constexpr DWORD MUI_LANGUAGE_ID = 0x4;    // list entries are hexadecimal ids, "0407"
inline constexpr DWORD MUI_LANGUAGE_NAME = 0x8;  // list entries are names, "de-DE"
inline constexpr int LOCALE_NAME_MAX_LENGTH = 85;

inline constexpr LANGID LANG_ENGLISH_US = 1033;

// The primary language of a LANGID (its low 10 bits): the neutral id of that language, 7 for 1031.
constexpr LANGID PRIMARYLANGID(LANGID id) {
    return static_cast<LANGID>(id & 0x3FF);
}

// The user's UI language by the environment rule above. Never fails.
LANGID GetUserDefaultUILanguage();

// The LANGID of a POSIX locale value such as "pt_BR.UTF-8", "de", "C" by the rule above; 1033 for an
// unknown language or an empty value.
LANGID langIdFromPosixLocale(std::string_view value);

// The name of `Locale` ("de-DE" for 1031, "de" for 7) into `lpName` of `cchName` units, with its NUL.
// Returns the units written including the NUL. With `cchName` 0 it writes nothing and returns the units
// needed. Fails with 0: ERROR_INVALID_PARAMETER for an unknown locale, flags other than 0, a negative
// capacity or a null buffer with a capacity; ERROR_INSUFFICIENT_BUFFER when the name does not fit.
int LCIDToLocaleName(LCID Locale, LPWSTR lpName, int cchName, DWORD dwFlags);

// The LCID of a name such as "de-DE" (also "de_DE", any case) or a neutral "de". A known language with an
// unknown region gives the neutral id. 0 with ERROR_INVALID_PARAMETER for null, empty or unknown names.
LCID LocaleNameToLCID(LPCWSTR lpName, DWORD dwFlags);

// The calling thread's locale. SetThreadLocale accepts every locale that LCIDToLocaleName knows and fails
// with FALSE and ERROR_INVALID_PARAMETER for others, leaving the thread's locale as it was.
BOOL SetThreadLocale(LCID Locale);
LCID GetThreadLocale();

// Sets the calling thread's preferred UI languages, in order, from a list of NUL-terminated entries ended
// by an empty one ("de-DE\0en-US\0\0"). `dwFlags` holds exactly one of MUI_LANGUAGE_NAME and
// MUI_LANGUAGE_ID. Entries that name no known language are skipped. A null or empty list clears the
// thread's list (any flags). `pulNumLanguages`, if not null, receives how many languages were set.
// Fails with FALSE and ERROR_INVALID_PARAMETER for bad flags; the thread's list is then unchanged.
BOOL SetThreadPreferredUILanguages(DWORD dwFlags, LPCWSTR pwszLanguagesBuffer, ULONG* pulNumLanguages);

// The calling thread's first preferred UI language; 1033 for a thread that has set none.
LANGID GetThreadUILanguage();

// Our own: the calling thread's preferred UI languages as set above (empty for a thread that set none).
std::span<const LANGID> threadPreferredUILanguages();

}  // namespace plat
