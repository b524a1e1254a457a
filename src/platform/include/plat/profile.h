// Reading INI files ("profiles") with the Windows rules: sections and keys are matched without regard to
// case, lines starting with ';' are comments, blanks around names and values are trimmed, a value in
// matching single or double quotes loses them, and the first of two equal keys in a section wins. Files
// are UTF-8 (a UTF-8 byte-order mark is skipped) or UTF-16LE with its byte-order mark.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "plat/types.h"

namespace plat {

// The value of `key` in `section` of the INI text `content` (UTF-16), as GetPrivateProfileStringW reads it;
// nullopt when the section or key is missing. Never reads outside `content`. The file calls below and the
// fuzz target use it.
std::optional<std::u16string> findProfileValue(std::u16string_view content, std::u16string_view section,
                                               std::u16string_view key);

// The text of an INI file decoded to UTF-16 (see the file forms above); nullopt if it cannot be read.
std::optional<std::u16string> readProfileFile(LPCWSTR lpFileName);

// The number parsed from the start of the value: optional blanks, an optional '-', then decimal digits
// (or "0x" and hex digits) up to the first other character. A value without digits gives 0; a negative
// value gives its two's complement as UINT (e.g. "-1" gives 0xFFFFFFFF); a missing key or file gives
// nDefault.
UINT GetPrivateProfileIntW(LPCWSTR lpAppName, LPCWSTR lpKeyName, int nDefault, LPCWSTR lpFileName);

// Copies the value (or lpDefault when the key, section or file is missing; a null lpDefault is "", and
// trailing blanks of the default are dropped) into lpReturnedString of nSize units. Returns the units
// copied without the NUL; a value that does not fit is cut to nSize - 1 units and the call returns
// nSize - 1. A null section or key (the listing forms) is not supported: the default is returned, with
// ERROR_NOT_SUPPORTED. A missing file sets ERROR_FILE_NOT_FOUND.
DWORD GetPrivateProfileStringW(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpDefault,
                               LPWSTR lpReturnedString, DWORD nSize, LPCWSTR lpFileName);

}  // namespace plat
