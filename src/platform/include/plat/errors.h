// The calling thread's last error, as GetLastError/SetLastError keep it on Windows.
#pragma once

#include "plat/types.h"

namespace plat {

DWORD GetLastError();
void SetLastError(DWORD error);

// The Win32 error number for a POSIX errno value:
//   ENOENT 2, ENOTDIR and ENAMETOOLONG 3, EACCES/EPERM/EISDIR 5, EROFS 19, EWOULDBLOCK/EAGAIN (a lock held
//   elsewhere) 32, EEXIST 80, EINVAL 87, ENOSPC/EDQUOT 112, EMFILE/ENFILE 4, ENOMEM 8, EBADF 6;
//   anything else ERROR_INVALID_FUNCTION.
// ENOENT becomes 3 instead of 2 where the caller knows that a parent folder is missing: see
// errorFromErrnoForPath.
DWORD errorFromErrno(int err);

// Like errorFromErrno, but an ENOENT on `utf8Path` is told apart: 3 when the folder that should hold the
// last component does not exist, 2 when only the last component is missing.
DWORD errorFromErrnoForPath(int err, const std::string& utf8Path);

// Sets the last error from errno and returns it.
DWORD setLastErrorFromErrno(int err);
// The same with the path rule above, which GetLastError applies when it is asked: the folder is looked at
// then, not at the failure (a caller reads the last error right after the call that failed).
void setLastErrorFromErrno(int err, const std::string& utf8Path);

}  // namespace plat
