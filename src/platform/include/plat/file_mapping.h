// Mappings of files and their views, as the crypt engine's big-file paths use them. The calls are the
// ones of plat/named.h (CreateFileMappingW, MapViewOfFile, UnmapViewOfFile); this header says what they
// promise when `hFile` is a file handle of plat/files.h, and how the in-page error reaches the core.
//
// CreateFileMappingW(hFile, nullptr, protect, sizeHigh, sizeLow, nullptr) on a file:
// - PAGE_READONLY: the mapping covers the file as it is now; a size of 0 means the file's size, a larger
//   size than the file gives ERROR_INVALID_PARAMETER (87), an empty file ERROR_FILE_INVALID (1006).
// - PAGE_READWRITE (the handle must allow writing, else 5): the file is extended to the size if it is
//   shorter, and the whole length from 0 to the size is reserved on the medium (posix_fallocate), so that
//   a full disk (or a length no file on the medium may have) fails here with ERROR_DISK_FULL (112), never
//   later in a view. Size 0: the file's size.
// - A name is not supported for mappings of files (ERROR_INVALID_PARAMETER).
//
// MapViewOfFile on such a mapping (offset a multiple of 65536, else 1132; view end past the mapping's
// size gives ERROR_ACCESS_DENIED 5; FILE_MAP_WRITE on a read-only mapping 5) gives a private buffer
// filled from the file with pread; UnmapViewOfFile of a writable view hands the whole view to the file's
// writer, which writes it back with pwrite on another thread while the caller maps the next block
// (one view in flight at a time; the view that ends the mapping is written before its unmap returns, and
// every other call on the file waits for the writer first). A view of a read-only mapping of a handle
// opened for reading only starts the read of the block of the same length behind it on that thread, and
// the next view takes those bytes when it asks for them (a read ahead that failed is read again by the
// view, so that a failure shows as it would without it). Views are not shared between each other: the
// core maps one block at a time and never two overlapping views of one file, as it does on Windows.
// Bytes of the file that were never written read as zero.
//
// The in-page error. On Windows touching a view can raise EXCEPTION_IN_PAGE_ERROR, which the big paths
// catch around each block's view work and turn into 0x80004005. Here nothing is raised: a view whose
// fill failed (a read error, or a file that got shorter than the view since its mapping was made) is
// still given, its missing bytes zero, and a write-back that fails is likewise noted: at the unmap of the
// view that ends the mapping, else with the next view of the file (its map or unmap; UnmapViewOfFile then
// gives FALSE with the last error), or as the failure of the next call on the file (ReadFile, WriteFile,
// SetEndOfFile, GetFileSizeEx, FlushFileBuffers). Views mark the calling thread's in-page error. The core
// asks once per block, after it has unmapped the block's views (on every path, also after a failure):
//
//     if (plat::TakeInPageError()) { log "Catch EXCEPTION_IN_PAGE_ERROR."; nResult = E_IN_PAGE_ERROR; }
//
// and once before a pass, to start clean. A Windows build returns the flag that its __except set.
#pragma once

#include "plat/named.h"
#include "plat/types.h"

namespace plat {

inline constexpr DWORD ERROR_FILE_INVALID = 1006;

// The result the big paths give for an in-page error (E_FAIL).
inline constexpr HRESULT E_IN_PAGE_ERROR = static_cast<HRESULT>(0x80004005);

// TRUE when a view of a file mapping failed to fill or to write back on the calling thread since the
// last call; clears the mark. Cannot fail.
BOOL TakeInPageError();

}  // namespace plat
