// The platform layer's basic types and values. The core is written against the Windows names of the
// operating-system calls it needs; on POSIX this layer provides them with the Windows values, so that
// codes, flags and file bytes are the same on every system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace plat {

using WCHAR = char16_t;
using LPWSTR = char16_t*;
using LPCWSTR = const char16_t*;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using BOOL = std::int32_t;
using HRESULT = std::int32_t;
using LANGID = std::uint16_t;
using LCID = std::uint32_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;

class KernelObject;
// A handle names a kernel object (file, thread, event, mutex, mapping). Null and INVALID_HANDLE_VALUE
// name none; which of the two a failed call gives is the same as on Windows.
using HANDLE = KernelObject*;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

struct Window;
using HWND = Window*;
struct Module;
using HINSTANCE = Module*;
using HMODULE = Module*;

inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD MAX_PATH = 260;

// Result codes.
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);

// Win32 error numbers that the core and its error rows know.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_LOCK_VIOLATION = 33;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD WAIT_TIMEOUT_ERROR = 258;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_CANCELLED = 1223;

// HRESULT_FROM_WIN32: 0 stays 0, anything else is its low 16 bits under facility 7 with the failure bit.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) {
    return error == 0 ? S_OK : static_cast<HRESULT>((error & 0x0000FFFFu) | 0x80070000u);
}
constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

}  // namespace plat
