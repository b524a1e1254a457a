// The clipboard and the movable global memory that carries its data, as the Windows API has them. The
// text set as CF_UNICODETEXT goes to the process's UI backend (ClipboardUi): on POSIX the backend puts it
// where this system's clipboard is; on Windows the system's clipboard holds it and the backend is told.
#pragma once

#include "plat/types.h"

namespace plat {

struct GlobalMemory;
using HGLOBAL = GlobalMemory*;

inline constexpr UINT GMEM_MOVEABLE = 0x2;
inline constexpr UINT CF_UNICODETEXT = 13;
inline constexpr DWORD ERROR_CLIPBOARD_NOT_OPEN = 1418;

// Memory of `dwBytes` (zeroed); null with ERROR_NOT_ENOUGH_MEMORY.
HGLOBAL GlobalAlloc(UINT uFlags, std::size_t dwBytes);
void* GlobalLock(HGLOBAL hMem);
BOOL GlobalUnlock(HGLOBAL hMem);
// Null on success.
HGLOBAL GlobalFree(HGLOBAL hMem);

// One thread of the process holds the clipboard between OpenClipboard and CloseClipboard; OpenClipboard
// fails (FALSE, ERROR_ACCESS_DENIED) while another holds it.
BOOL OpenClipboard(HWND hWndNewOwner);
BOOL EmptyClipboard();
// The clipboard takes `hMem` over (it is freed by the next EmptyClipboard) and gives it back as the
// result (a global memory handle rather than the generic HANDLE of Windows). Only CF_UNICODETEXT is
// known; a zero-terminated UTF-16 text. Null with ERROR_CLIPBOARD_NOT_OPEN when the caller does not hold
// the clipboard.
HGLOBAL SetClipboardData(UINT uFormat, HGLOBAL hMem);
BOOL CloseClipboard();

}  // namespace plat
