// The shell's URL escaping and its "open this" call, as far as the search for encrypted files needs them.
#pragma once

#include <string>
#include <vector>

#include "plat/types.h"

namespace plat {

// UrlEscapeW flags (the Windows values).
inline constexpr DWORD URL_ESCAPE_PERCENT = 0x00001000;
inline constexpr DWORD URL_DONT_ESCAPE_EXTRA_INFO = 0x02000000;
inline constexpr DWORD URL_ESCAPE_SPACES_ONLY = 0x04000000;
inline constexpr DWORD URL_ESCAPE_SEGMENT_ONLY = 0x00002000;

// Escapes the characters of `pszUrl` that a URL cannot carry as they stand, as the shell does for a URL
// without a scheme (a file path). The text is split at its first '?' or '#': the part before it (the
// segment) is escaped, the rest (the query) is copied as it stands. In the segment these become "%XX"
// (upper-case hex of the UTF-16 unit): units below 0x20, 0x7F to 0xFF, the blank and ^ & ` { } | ] [ " < >
// \ ;
// '%' only with URL_ESCAPE_PERCENT. Units above 0xFF and everything else stay as they are. Flags other
// than the two above (and URL_DONT_ESCAPE_EXTRA_INFO alone) are not supported: E_INVALIDARG.
// `*pcchEscaped` holds the buffer's capacity in units on entry. On success (S_OK) it gets the length
// written, without the NUL that follows. When the result and its NUL do not fit, nothing is written to
// the buffer, the result is E_POINTER and `*pcchEscaped` gets the capacity that would be needed
// (NUL included). Null arguments or a capacity of 0 give E_INVALIDARG.
HRESULT UrlEscapeW(LPCWSTR pszUrl, LPWSTR pszEscaped, DWORD* pcchEscaped, DWORD dwFlags);

// The reverse for what UrlEscapeW writes: every "%XX" (two hex digits) becomes the unit 0xXX; anything
// else, a lone '%' included, stays as it is.
std::u16string urlUnescape(std::u16string_view text);

// ShellExecuteW's results: above 32 success; these at or below it.
inline constexpr std::intptr_t SE_ERR_FNF = 2;
inline constexpr std::intptr_t SE_ERR_NOASSOC = 31;
inline constexpr std::intptr_t SE_SUCCESS = 42;

// Opens `lpFile`. On Windows under the system's own UI this is the shell's call as it stands. Otherwise
// (every POSIX backend, and the scripted UI on Windows) the one kind of file opened is a search query:
//   search-ms:query=PATTERN[&crumb=location:ESCAPED-PATH]...
// PATTERN (after unescaping) is a file-name pattern with '*' and '?', compared ignoring ASCII case. Each
// location is unescaped with urlUnescape; an empty one names no place and is passed over. Every regular
// file under the locations (all depths, symbolic links not followed, unreadable folders passed over)
// whose name fits the pattern is found; with no location the user's home folder (userHomeFolder) is
// searched. The query and the sorted list of files are shown by the process's UI backend (its search
// window) before the call returns. Result: SE_SUCCESS; SE_ERR_NOASSOC for anything that is not such a
// query (or a null/empty file), with the last error ERROR_NO_ASSOCIATION. `hwnd`, `lpOperation`,
// `lpParameters`, `lpDirectory` and `nShowCmd` are accepted and not used.
inline constexpr DWORD ERROR_NO_ASSOCIATION = 1155;
std::intptr_t ShellExecuteW(HWND hwnd, LPCWSTR lpOperation, LPCWSTR lpFile, LPCWSTR lpParameters,
                            LPCWSTR lpDirectory, int nShowCmd);

// What ShellExecuteW reads out of a search query; `valid` is false for a text that is not one.
struct SearchQuery {
    bool valid = false;
    std::u16string pattern;
    std::vector<std::u16string> locations;  // unescaped, empty ones left out
};
SearchQuery parseSearchQuery(std::u16string_view text);

// The files under `locations` (or the user's home folder when there is none) whose names fit `pattern`,
// sorted; each is its location and the names below it joined by kPathSeparator.
std::vector<std::u16string> findMatchingFiles(const std::u16string& pattern,
                                              const std::vector<std::u16string>& locations);

}  // namespace plat
