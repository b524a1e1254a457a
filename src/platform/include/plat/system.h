// Process, environment, folders, time and the debugger output, as the debug log needs them. The Windows
// calls keep their Windows names, values and return rules; environmentValue is the layer's own.
#pragma once

#include <optional>
#include <string>

#include "plat/types.h"

namespace plat {

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;      // 1..12
    WORD wDayOfWeek;  // 0 Sunday .. 6
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

inline constexpr LCID LOCALE_USER_DEFAULT = 0x0400;

// The full path of the running program (/proc/self/exe); `hModule` must be null. Returns the units copied
// without the NUL. A buffer too small gets the path cut at nSize - 1 (NUL-terminated); the call then
// returns nSize with ERROR_INSUFFICIENT_BUFFER. 0 on failure, with the last error set.
DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize);

// The value of the environment variable `name` as UTF-8 on every system; nullopt when it is not set. Windows
// keeps the environment in UTF-16, and its narrow getenv gives the ANSI code page: a path with "ü" or "Σ"
// in it came out garbled or with "?" in place of the letters.
std::optional<std::string> environmentValue(const char* name);

// Replaces every %NAME% whose variable is set by its value; unknown names and a lone "%" stay as they
// are. Returns the units needed for the whole result including its NUL: when that is not more than nSize
// the result is in lpDst, otherwise lpDst holds nothing useful. 0 with ERROR_INVALID_PARAMETER for a null
// source.
DWORD ExpandEnvironmentStringsW(LPCWSTR lpSrc, LPWSTR lpDst, DWORD nSize);

// Creates the folder `pszPath` and every missing folder above it (mode 0777 less the umask). Returns
// ERROR_SUCCESS; ERROR_ALREADY_EXISTS (183) when the folder was there already; ERROR_FILE_EXISTS (80) when a
// file stands in the way; ERROR_BAD_PATHNAME (161) for a relative or empty path; otherwise the errno's
// Win32 number (e.g. 5 for no permission). `hwnd` and `psa` are ignored.
int SHCreateDirectoryExW(HWND hwnd, LPCWSTR pszPath, const void* psa);

// Sends the text to the system log (syslog, facility user, priority debug), standing in for a debugger.
// A null text is ignored.
void OutputDebugStringW(LPCWSTR lpOutputString);

// The local wall-clock time, to the millisecond.
void GetLocalTime(SYSTEMTIME* lpSystemTime);

// Milliseconds since an arbitrary fixed point (the monotonic clock), wrapping at 2^32.
DWORD GetTickCount();

// Format a date or time by a picture. The pictures know: yyyy (4-digit year), yy, MM, M, dd, d, HH, H,
// hh, h, mm, m, ss, s, tt (AM/PM), and literal text in single quotes ('' is a quote); any other character
// is copied. The date call refuses hour/minute/second letters' meaning (they are copied), the time call
// the date letters'. A null time means now; a null picture is refused here (ERROR_INVALID_PARAMETER).
// Returns the units written including the NUL; with cchDate 0 the units needed; 0 with
// ERROR_INSUFFICIENT_BUFFER when the buffer is too small, ERROR_INVALID_PARAMETER for an impossible time.
int GetDateFormatW(LCID Locale, DWORD dwFlags, const SYSTEMTIME* lpDate, LPCWSTR lpFormat, LPWSTR lpDateStr,
                   int cchDate);
int GetTimeFormatW(LCID Locale, DWORD dwFlags, const SYSTEMTIME* lpTime, LPCWSTR lpFormat, LPWSTR lpTimeStr,
                   int cchTime);

}  // namespace plat
