// Kernel objects shared between processes by name: mutexes, events (CreateEventW and the waits are in
// plat/sync.h) and file mappings backed by the paging file, with their views.
//
// Names live in the per-user runtime folder (VELQ_RUNTIME_DIR, else $XDG_RUNTIME_DIR/velq, else
// /tmp/velq-<uid>; created 0700, refused with ERROR_ACCESS_DENIED when it is a link, not ours or not
// 0700). Mutexes, events and mappings share one namespace, as on Windows. The files' form is written down
// in docs/NAMED_OBJECTS.md, so that programs of others can meet ours there.
//
// What a name promises:
// - It exists while a live process holds a handle (or a view) of it. When every holder has closed it or
//   died, it is free: the next Create* makes it anew and gives last error 0, not ERROR_ALREADY_EXISTS.
// - "Local\" and "Global\" in front are dropped (there are no sessions here); any other "\" gives
//   ERROR_PATH_NOT_FOUND. A name too long for a file name keeps its first units and ends in a hash of the
//   whole text, so that two long names stay apart.
// - A name held by an object of another kind gives null with ERROR_INVALID_HANDLE.
// - An empty or null name makes an object of this process only.
//
// Waits on named objects test their state again every few milliseconds (changes made by this process
// wake its waiters at once). Handles are closed on exec; a child made by fork() shares them, and keeps
// the names alive while it runs.
#pragma once

#include <cstddef>

#include "plat/sync.h"
#include "plat/types.h"

namespace plat {

inline constexpr DWORD SYNCHRONIZE = 0x00100000;
inline constexpr DWORD EVENT_MODIFY_STATE = 0x0002;
inline constexpr DWORD EVENT_ALL_ACCESS = 0x001F0003;
inline constexpr DWORD MUTEX_ALL_ACCESS = 0x001F0001;

inline constexpr DWORD FILE_MAP_WRITE = 0x0002;
inline constexpr DWORD FILE_MAP_READ = 0x0004;
inline constexpr DWORD FILE_MAP_ALL_ACCESS = 0x000F001F;
inline constexpr DWORD PAGE_READONLY = 0x02;
inline constexpr DWORD PAGE_READWRITE = 0x04;

inline constexpr DWORD ERROR_NOT_OWNER = 288;
inline constexpr DWORD ERROR_INVALID_ADDRESS = 487;
inline constexpr DWORD ERROR_MAPPED_ALIGNMENT = 1132;

// Creates the mutex `lpName`, or opens it when it exists (then the last error is ERROR_ALREADY_EXISTS and
// `bInitialOwner` is ignored; otherwise it is 0). With `bInitialOwner` a new mutex is owned by the calling
// thread. Ownership is recursive per thread; WaitForSingleObject takes it and gives WAIT_ABANDONED_0 when
// the previous owner's process died while it owned the mutex (an owner thread that ends while its process
// runs is not noticed). Null on failure, with the last error (see the name rules above).
HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner, LPCWSTR lpName);

// Opens an existing mutex: ERROR_FILE_NOT_FOUND when nobody holds the name. The access is not checked.
HANDLE OpenMutexW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName);

// Gives up one level of the calling thread's ownership. FALSE with ERROR_NOT_OWNER when the thread does
// not own it, ERROR_INVALID_HANDLE when `hMutex` is no mutex.
BOOL ReleaseMutex(HANDLE hMutex);

// Opens an existing event (CreateEventW with a name is in plat/sync.h): ERROR_FILE_NOT_FOUND when nobody
// holds the name. Any access allows SetEvent, ResetEvent and waits.
//
// Named events behave as on Windows, with one addition for auto-reset events, whose signal works as a
// turn: the process that created one unsignalled, or whose wait last took its signal, holds the turn
// until some process sets the event. If that process dies first, the event counts as set, so that a dead
// holder never blocks the processes that wait for their turn.
HANDLE OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName);

// A mapping backed by the paging file (`hFile` INVALID_HANDLE_VALUE) of a fixed size, zero-filled when
// new; a name that exists gives the existing mapping (of its own size) with ERROR_ALREADY_EXISTS.
// `flProtect` PAGE_READWRITE or PAGE_READONLY. Failures: ERROR_INVALID_PARAMETER for a size of 0 or
// another protection, ERROR_DISK_FULL or ERROR_NOT_ENOUGH_MEMORY when the runtime folder cannot hold it.
// Mappings of files (any other `hFile`): see plat/file_mapping.h.
HANDLE CreateFileMappingW(HANDLE hFile, LPSECURITY_ATTRIBUTES lpFileMappingAttributes, DWORD flProtect,
                          DWORD dwMaximumSizeHigh, DWORD dwMaximumSizeLow, LPCWSTR lpName);

// Opens an existing mapping with FILE_MAP_READ, FILE_MAP_WRITE or FILE_MAP_ALL_ACCESS:
// ERROR_FILE_NOT_FOUND when nobody holds the name, ERROR_INVALID_PARAMETER for an access of 0.
HANDLE OpenFileMappingW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName);

// Maps `dwNumberOfBytesToMap` bytes (0: up to the end) from the offset, which must be a multiple of 65536
// (else ERROR_MAPPED_ALIGNMENT). FILE_MAP_WRITE (or all access) gives a writable view and needs a handle
// that allows writing; FILE_MAP_READ a read-only one. ERROR_ACCESS_DENIED when the access exceeds the
// handle's or the view would run past the mapping's end. The view keeps its mapping (and its name)
// alive until UnmapViewOfFile, even after the handle is closed. Null on failure.
void* MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess, DWORD dwFileOffsetHigh,
                    DWORD dwFileOffsetLow, std::size_t dwNumberOfBytesToMap);

// Ends the view that starts at `lpBaseAddress`. FALSE with ERROR_INVALID_ADDRESS for any other address.
BOOL UnmapViewOfFile(const void* lpBaseAddress);

inline constexpr DWORD MEM_COMMIT = 0x1000;
inline constexpr DWORD MEM_MAPPED = 0x40000;

struct MEMORY_BASIC_INFORMATION {
    void* BaseAddress;
    void* AllocationBase;
    DWORD AllocationProtect;
    std::size_t RegionSize;
    DWORD State;
    DWORD Protect;
    DWORD Type;
};

// Describes the view that holds `lpAddress`: its base, and in RegionSize the bytes from the page of
// `lpAddress` to the view's end, rounded up to whole pages of 4096 as Windows does (bytes behind the
// mapping's end read as zeros). This is how a reader learns how far it may read. Returns the size of the
// record written, or 0 with ERROR_INVALID_PARAMETER for an address in no view or a length too small.
std::size_t VirtualQuery(const void* lpAddress, MEMORY_BASIC_INFORMATION* lpBuffer, std::size_t dwLength);

// The file name in the runtime folder that holds the object `name` (after "Local\"/"Global\"), as
// docs/NAMED_OBJECTS.md describes it; empty for a name that the layer refuses.
std::u16string namedObjectFileName(std::u16string_view name);

}  // namespace plat
