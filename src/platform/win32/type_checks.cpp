// The platform layer's types stand for the Windows API's in every call that forwards to it, by value and
// through pointers and records. These checks hold them to the API's sizes and layouts on both the 32-bit
// and the 64-bit program; this unit holds nothing else.
#include <cstddef>

#include "plat/files.h"
#include "plat/messages.h"
#include "plat/named.h"
#include "plat/security.h"
#include "plat/types.h"
#include "plat/windows.h"
#include "wide.h"

namespace {

template <typename Plat, typename Native>
constexpr bool sameShape = sizeof(Plat) == sizeof(Native) && alignof(Plat) == alignof(Native);

static_assert(sizeof(plat::WCHAR) == sizeof(::WCHAR) && sizeof(wchar_t) == 2, "UTF-16 units");
static_assert(sameShape<plat::BYTE, ::BYTE> && sameShape<plat::WORD, ::WORD>);
static_assert(sameShape<plat::DWORD, ::DWORD> && sameShape<plat::UINT, ::UINT>);
static_assert(sameShape<plat::LONG, ::LONG> && sameShape<plat::ULONG, ::ULONG>);
static_assert(sameShape<plat::LONGLONG, ::LONGLONG> && sameShape<plat::ULONGLONG, ::ULONGLONG>);
static_assert(sameShape<plat::BOOL, ::BOOL> && sameShape<plat::HRESULT, ::HRESULT>);
static_assert(sameShape<plat::LANGID, ::LANGID> && sameShape<plat::LCID, ::LCID>);
static_assert(sameShape<plat::WPARAM, ::WPARAM> && sameShape<plat::LPARAM, ::LPARAM>);
static_assert(sameShape<plat::LRESULT, ::LRESULT> && sameShape<plat::LONG_PTR, ::LONG_PTR>);
static_assert(sameShape<plat::HANDLE, ::HANDLE> && sameShape<plat::HWND, ::HWND>);
static_assert(sameShape<plat::HINSTANCE, ::HINSTANCE> && sameShape<plat::HCURSOR, ::HCURSOR>);
static_assert(sameShape<plat::PSID, ::PSID> && sameShape<plat::ATOM, ::ATOM>);

// Records passed to the API by pointer: same size and the same place for every field the core reads.
static_assert(sameShape<plat::FILETIME, ::FILETIME>);
static_assert(sameShape<plat::WIN32_FIND_DATAW, ::WIN32_FIND_DATAW>);
static_assert(offsetof(plat::WIN32_FIND_DATAW, nFileSizeLow) == offsetof(::WIN32_FIND_DATAW, nFileSizeLow));
static_assert(offsetof(plat::WIN32_FIND_DATAW, cFileName) == offsetof(::WIN32_FIND_DATAW, cFileName));
static_assert(sameShape<plat::BY_HANDLE_FILE_INFORMATION, ::BY_HANDLE_FILE_INFORMATION>);
static_assert(offsetof(plat::BY_HANDLE_FILE_INFORMATION, dwVolumeSerialNumber) ==
              offsetof(::BY_HANDLE_FILE_INFORMATION, dwVolumeSerialNumber));
static_assert(offsetof(plat::BY_HANDLE_FILE_INFORMATION, nFileIndexLow) ==
              offsetof(::BY_HANDLE_FILE_INFORMATION, nFileIndexLow));
static_assert(sameShape<plat::LARGE_INTEGER, ::LARGE_INTEGER>);
static_assert(sameShape<plat::MSG, ::MSG> && offsetof(plat::MSG, time) == offsetof(::MSG, time));
static_assert(sameShape<plat::POINT, ::POINT>);
static_assert(sameShape<plat::CREATESTRUCTW, ::CREATESTRUCTW>);
static_assert(offsetof(plat::CREATESTRUCTW, lpszName) == offsetof(::CREATESTRUCTW, lpszName));
static_assert(sameShape<plat::MEMORY_BASIC_INFORMATION, ::MEMORY_BASIC_INFORMATION>);
static_assert(offsetof(plat::MEMORY_BASIC_INFORMATION, RegionSize) ==
              offsetof(::MEMORY_BASIC_INFORMATION, RegionSize));
static_assert(sameShape<plat::SID_IDENTIFIER_AUTHORITY, ::SID_IDENTIFIER_AUTHORITY>);

}  // namespace
