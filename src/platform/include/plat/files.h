// Files: creation, transfer, attributes, deletion, copying, folder listings and the private temporary
// folder, under their Windows names and values. Every call that fails sets the last error to a Win32
// number (plat/errors.h): 2 file not found, 3 folder missing or path too long, 5 access denied (also a
// folder where a file is expected, and a read-only file opened for writing or deleted), 19 read-only file
// system, 32 held by another VELQ handle, 80 exists, 112 disk full, 6 a handle of the wrong kind.
#pragma once

#include "plat/handle.h"
#include "plat/types.h"

namespace plat {

struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
struct OVERLAPPED;
using LPOVERLAPPED = OVERLAPPED*;

// Only QuadPart is offered: the core reads and writes 64-bit positions as one number.
struct LARGE_INTEGER {
    LONGLONG QuadPart;
};
using PLARGE_INTEGER = LARGE_INTEGER*;

// 100-nanosecond intervals since 1601-01-01 UTC.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;

inline constexpr DWORD FILE_SHARE_READ = 0x1;
inline constexpr DWORD FILE_SHARE_WRITE = 0x2;
inline constexpr DWORD FILE_SHARE_DELETE = 0x4;

inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x400;
// The POSIX mode travels in the high 16 bits (st_mode & 0xFFFF) when this bit is set.
inline constexpr DWORD FILE_ATTRIBUTE_UNIX_EXTENSION = 0x8000;

inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;

inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;

// The POSIX mode (st_mode & 0xFFFF) carried by attributes that have FILE_ATTRIBUTE_UNIX_EXTENSION.
inline constexpr DWORD modeOfAttributes(DWORD attributes) {
    return attributes >> 16;
}

// Opens or creates a file. `dwDesiredAccess`: GENERIC_READ and/or GENERIC_WRITE. `dwShareMode` 0 takes an
// exclusive lock for the life of the handle; any other share mode a shared one; a lock held against it
// gives 32 at once (never a wait), and CREATE_ALWAYS/TRUNCATE_EXISTING truncate only once the lock is
// held. Dispositions as on Windows: CREATE_NEW fails with 80 when the name exists and never follows a
// link; CREATE_ALWAYS and OPEN_ALWAYS succeed with the last error 183 when the file was there, else 0.
// A new file gets 0666 less the umask; FILE_ATTRIBUTE_READONLY takes away every write bit, and
// UNIX_EXTENSION gives it exactly the permission bits (0777) carried in the attributes; the new handle
// may write in either case. In the private temporary folder (GetTempPathW) every creation is exclusive
// (an existing name gives 80, links are never followed) and the mode is 0600, or 0400 when read-only.
// An existing file keeps its mode; opening it for writing without its owner write bit gives 5, and so
// does a folder. Security attributes and the template are ignored; all descriptors are close-on-exec.
// Failure: INVALID_HANDLE_VALUE with the last error; 87 for a null name or an unknown disposition.
HANDLE CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                   LPSECURITY_ATTRIBUTES lpSecurityAttributes, DWORD dwCreationDisposition,
                   DWORD dwFlagsAndAttributes, HANDLE hTemplateFile);

// Reads up to `nNumberOfBytesToRead` bytes at the file position; fewer only at the end of the file (0
// there, still TRUE). `lpOverlapped` must be null (87 otherwise).
BOOL ReadFile(HANDLE hFile, void* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead,
              LPOVERLAPPED lpOverlapped);

// Writes all bytes at the file position (short writes are continued). On failure the bytes that did get
// written are counted in `*lpNumberOfBytesWritten`; a full disk gives 112.
BOOL WriteFile(HANDLE hFile, const void* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten,
               LPOVERLAPPED lpOverlapped);

// Moves the file position. Without `lpDistanceToMoveHigh` the distance is a signed 32-bit number and a
// position past 0xFFFFFFFE is refused with 87; with it the two halves form one signed 64-bit distance and
// the high half of the new position is written back. Returns the low half of the new position, or
// INVALID_SET_FILE_POINTER with the last error (0 when that is simply the low half); a position below 0
// gives 131 and leaves the position alone. A position past the end is allowed.
DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG* lpDistanceToMoveHigh, DWORD dwMoveMethod);
BOOL SetFilePointerEx(HANDLE hFile, LARGE_INTEGER liDistanceToMove, PLARGE_INTEGER lpNewFilePointer,
                      DWORD dwMoveMethod);

// Makes the file end at the current position; bytes added read as zero.
BOOL SetEndOfFile(HANDLE hFile);

// The size: the low half returned, the high half through `lpFileSizeHigh` when given. Failure gives
// INVALID_FILE_SIZE with the last error; on success the last error is 0.
DWORD GetFileSize(HANDLE hFile, DWORD* lpFileSizeHigh);
BOOL GetFileSizeEx(HANDLE hFile, PLARGE_INTEGER lpFileSize);

// What is known of an open file. The volume and the index name the file itself, whatever path led to it
// (a link, a second name): two handles with equal volume and index are one file. On POSIX the volume is
// the device number folded to 32 bits (two devices may then share one number, never one file two), the
// index is the inode, the creation time is the last write's (the file systems keep no birth time here).
struct BY_HANDLE_FILE_INFORMATION {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
};
using LPBY_HANDLE_FILE_INFORMATION = BY_HANDLE_FILE_INFORMATION*;
BOOL GetFileInformationByHandle(HANDLE hFile, LPBY_HANDLE_FILE_INFORMATION lpFileInformation);

// Writes the file's data to the medium (fsync).
BOOL FlushFileBuffers(HANDLE hFile);

// Attributes of the path, following links: FILE_ATTRIBUTE_DIRECTORY for a folder, READONLY when the owner
// write bit is missing, NORMAL when neither applies; always UNIX_EXTENSION with the mode in the high half.
// INVALID_FILE_ATTRIBUTES with 2 or 3 when it does not exist.
DWORD GetFileAttributesW(LPCWSTR lpFileName);

// With UNIX_EXTENSION the permission bits (07777) in the high half are set exactly (READONLY, if also
// set, then takes every write bit away). Without it, READONLY takes every write bit away and its absence
// gives the owner write bit back (FILE_ATTRIBUTE_NORMAL); other bits are ignored.
BOOL SetFileAttributesW(LPCWSTR lpFileName, DWORD dwFileAttributes);

// Removes a file (a link itself, not its target). A read-only file (no owner write bit) and a folder are
// refused with 5, as on Windows: the caller clears the attribute first.
BOOL DeleteFileW(LPCWSTR lpFileName);

// Copies the bytes and the permission bits of `lpExistingFileName`. The copy is written to a new
// temporary sibling and renamed into place, so a failed copy leaves nothing behind and the target is
// either the old file or the whole copy. `bFailIfExists` refuses an existing target with 80 (also one
// that appears during the copy); otherwise a read-only or folder target is refused with 5. A source held
// exclusively by another handle gives 32.
BOOL CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName, BOOL bFailIfExists);

struct WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;  // the last change of the data: POSIX keeps no creation time everywhere
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];  // always empty: there are no short names
};
using LPWIN32_FIND_DATAW = WIN32_FIND_DATAW*;

// Lists the folder of `lpFileName` ("folder/pattern"; a pattern without "/" lists the working folder).
// "*" and "*.*" give every entry, "." and ".." first; other patterns match names case-insensitively with
// "*" (any run) and "?" (one unit), and a trailing ".*" also matches a name without a dot. An entry that
// is a link is reported with FILE_ATTRIBUTE_REPARSE_POINT and the data of its target, but never as a
// folder, so that a walk does not follow links out of the tree or round in a loop.
// Failure: INVALID_HANDLE_VALUE with 3 for a missing folder (5 without permission), 2 when nothing in
// the folder matches. The handle is closed by FindClose (or CloseHandle).
HANDLE FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData);
// The next match; FALSE with ERROR_NO_MORE_FILES (18) when there is none, 6 for a handle of another kind.
BOOL FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData);
BOOL FindClose(HANDLE hFindFile);

// The private temporary folder ${TMPDIR:-/tmp}/velq-<uid>/ (TMPDIR only when absolute), with its final
// "/". It is created with mode 0700 when missing; a folder that is there already must be a real folder
// (not a link) owned by this user with mode 0700, else the call fails with 5. Returns the length without
// the NUL; when `nBufferLength` is too small, the size needed including the NUL, and the buffer is not
// touched. 0 on failure with the last error.
DWORD GetTempPathW(DWORD nBufferLength, LPWSTR lpBuffer);

}  // namespace plat
