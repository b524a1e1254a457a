// Path and name helpers of the shell, as the core uses them to split names and compare extensions. On
// POSIX the separator is "/"; wherever the core splits at "\", this separator is meant.
#pragma once

#include "plat/types.h"

namespace plat {

// kPathSeparator: the separator that the system's own paths use; its calls take "/" too on Windows.
// kFileNamesIgnoreCase: whether the system's file names ignore case ("Data" and "DATA" on Windows).
#ifdef _WIN32
inline constexpr WCHAR kPathSeparator = u'\\';
inline constexpr bool kFileNamesIgnoreCase = true;
#else
inline constexpr WCHAR kPathSeparator = u'/';
inline constexpr bool kFileNamesIgnoreCase = false;
#endif

// The extension of the last component: a pointer to its last ".", or to the terminating NUL when the
// last component has no dot (a dot in a folder name does not count). Null gives null.
LPCWSTR PathFindExtensionW(LPCWSTR pszPath);

// The last component: a pointer just after the last "/" that is followed by a name, so "a/b/" gives
// "b/" as on Windows; a path without "/" is returned whole. Null gives null.
LPCWSTR PathFindFileNameW(LPCWSTR pszPath);

// TRUE when the path names anything that exists, a link included even when its target is gone (so a
// dangling link counts as an existing destination and is never written through). FALSE for null, with
// the last error of the failed lookup (2, 3 or 5).
BOOL PathFileExistsW(LPCWSTR pszPath);

// Lowers `lpsz` in place and returns it. Every BMP letter with a lower-case form is lowered: Latin,
// Greek, Cyrillic and Armenian from our own table (the same on every machine), other scripts through the
// C library's Unicode tables. Surrogates stay as they are. Null gives null.
LPWSTR CharLowerW(LPWSTR lpsz);

}  // namespace plat
