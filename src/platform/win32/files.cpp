// Files, folder listings, the temporary folder and the path helpers: the API's own calls.
#include "plat/files.h"
#include "plat/paths.h"
#include "wide.h"
// After wide.h: the shell's path helpers need <windows.h> first.
#include <shlwapi.h>

namespace plat {

using win32::fromNative;
using win32::native;
using win32::storeIfWanted;
using win32::wide;

namespace {

// Attributes stored by a POSIX build carry the file's mode in the high half under flag 0x8000. On Windows
// the high half of CreateFileW's flags are FILE_FLAG_ values and 0x8000 is another attribute, so a mode
// must never reach the API: such attributes keep only their Windows part (read-only, hidden ...).
DWORD windowsAttributes(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_UNIX_EXTENSION) != 0 ? attributes & 0x7FFFu : attributes;
}

::LARGE_INTEGER nativeLarge(LARGE_INTEGER value) {
    ::LARGE_INTEGER result;
    result.QuadPart = value.QuadPart;
    return result;
}

}  // namespace

HANDLE CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                   LPSECURITY_ATTRIBUTES lpSecurityAttributes, DWORD dwCreationDisposition,
                   DWORD dwFlagsAndAttributes, HANDLE hTemplateFile) {
    return fromNative(::CreateFileW(wide(lpFileName), dwDesiredAccess, dwShareMode,
                                    reinterpret_cast<::LPSECURITY_ATTRIBUTES>(lpSecurityAttributes),
                                    dwCreationDisposition, windowsAttributes(dwFlagsAndAttributes),
                                    native(hTemplateFile)));
}

BOOL ReadFile(HANDLE hFile, void* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead,
              LPOVERLAPPED lpOverlapped) {
    ::DWORD done = 0;
    const BOOL ok = ::ReadFile(native(hFile), lpBuffer, nNumberOfBytesToRead, &done,
                               reinterpret_cast<::LPOVERLAPPED>(lpOverlapped));
    storeIfWanted(lpNumberOfBytesRead, done);
    return ok;
}

BOOL WriteFile(HANDLE hFile, const void* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten,
               LPOVERLAPPED lpOverlapped) {
    ::DWORD done = 0;
    const BOOL ok = ::WriteFile(native(hFile), lpBuffer, nNumberOfBytesToWrite, &done,
                                reinterpret_cast<::LPOVERLAPPED>(lpOverlapped));
    storeIfWanted(lpNumberOfBytesWritten, done);
    return ok;
}

DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG* lpDistanceToMoveHigh, DWORD dwMoveMethod) {
    ::LONG high = lpDistanceToMoveHigh != nullptr ? *lpDistanceToMoveHigh : 0;
    const DWORD low = ::SetFilePointer(native(hFile), lDistanceToMove,
                                       lpDistanceToMoveHigh != nullptr ? &high : nullptr, dwMoveMethod);
    storeIfWanted(lpDistanceToMoveHigh, high);
    return low;
}

BOOL SetFilePointerEx(HANDLE hFile, LARGE_INTEGER liDistanceToMove, PLARGE_INTEGER lpNewFilePointer,
                      DWORD dwMoveMethod) {
    ::LARGE_INTEGER position{};
    const BOOL ok = ::SetFilePointerEx(native(hFile), nativeLarge(liDistanceToMove), &position, dwMoveMethod);
    if (ok && lpNewFilePointer != nullptr) {
        lpNewFilePointer->QuadPart = position.QuadPart;
    }
    return ok;
}

BOOL SetEndOfFile(HANDLE hFile) {
    return ::SetEndOfFile(native(hFile));
}

DWORD GetFileSize(HANDLE hFile, DWORD* lpFileSizeHigh) {
    ::DWORD high = 0;
    const DWORD low = ::GetFileSize(native(hFile), &high);
    storeIfWanted(lpFileSizeHigh, high);
    return low;
}

// The record's layout is the API's (checked in type_checks.cpp), so the API fills it in place.
BOOL GetFileInformationByHandle(HANDLE hFile, LPBY_HANDLE_FILE_INFORMATION lpFileInformation) {
    return ::GetFileInformationByHandle(native(hFile),
                                        reinterpret_cast<::LPBY_HANDLE_FILE_INFORMATION>(lpFileInformation));
}

BOOL GetFileSizeEx(HANDLE hFile, PLARGE_INTEGER lpFileSize) {
    ::LARGE_INTEGER size{};
    const BOOL ok = ::GetFileSizeEx(native(hFile), &size);
    if (ok && lpFileSize != nullptr) {
        lpFileSize->QuadPart = size.QuadPart;
    }
    return ok;
}

BOOL FlushFileBuffers(HANDLE hFile) {
    return ::FlushFileBuffers(native(hFile));
}

DWORD GetFileAttributesW(LPCWSTR lpFileName) {
    return ::GetFileAttributesW(wide(lpFileName));
}

BOOL SetFileAttributesW(LPCWSTR lpFileName, DWORD dwFileAttributes) {
    return ::SetFileAttributesW(wide(lpFileName), windowsAttributes(dwFileAttributes));
}

BOOL DeleteFileW(LPCWSTR lpFileName) {
    return ::DeleteFileW(wide(lpFileName));
}

BOOL CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName, BOOL bFailIfExists) {
    return ::CopyFileW(wide(lpExistingFileName), wide(lpNewFileName), bFailIfExists);
}

// The record's layout is the API's (checked in type_checks.cpp), so the API fills it in place.
HANDLE FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData) {
    return fromNative(
        ::FindFirstFileW(wide(lpFileName), reinterpret_cast<::LPWIN32_FIND_DATAW>(lpFindFileData)));
}

BOOL FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData) {
    return ::FindNextFileW(native(hFindFile), reinterpret_cast<::LPWIN32_FIND_DATAW>(lpFindFileData));
}

BOOL FindClose(HANDLE hFindFile) {
    return ::FindClose(native(hFindFile));
}

DWORD GetTempPathW(DWORD nBufferLength, LPWSTR lpBuffer) {
    return ::GetTempPathW(nBufferLength, wide(lpBuffer));
}

LPCWSTR PathFindExtensionW(LPCWSTR pszPath) {
    return pszPath == nullptr ? nullptr : win32::units(::PathFindExtensionW(wide(pszPath)));
}

LPCWSTR PathFindFileNameW(LPCWSTR pszPath) {
    return pszPath == nullptr ? nullptr : win32::units(::PathFindFileNameW(wide(pszPath)));
}

BOOL PathFileExistsW(LPCWSTR pszPath) {
    return ::PathFileExistsW(wide(pszPath));
}

LPWSTR CharLowerW(LPWSTR lpsz) {
    return lpsz == nullptr ? nullptr : win32::units(::CharLowerW(wide(lpsz)));
}

}  // namespace plat
