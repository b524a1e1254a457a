#include "plat/errors.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>

namespace plat {

namespace {
thread_local DWORD t_dwLastError = ERROR_SUCCESS;

// A path whose ENOENT is still to be told apart (2 or 3) when the last error is read. Most lookups that
// fail (is there already a file of that name?) are never asked why, and telling the two apart costs a
// second look at the file system; so the look is made only by GetLastError, and SetLastError forgets it.
thread_local std::string t_missingPath;
thread_local bool t_bMissingPathPending = false;

bool parentFolderExists(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return true;  // relative to the working folder, which exists
    }
    const std::string parent = slash == 0 ? std::string("/") : path.substr(0, slash);
    struct stat st {};
    return ::stat(parent.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}
}  // namespace

DWORD GetLastError() {
    if (t_bMissingPathPending) {
        t_bMissingPathPending = false;
        t_dwLastError = parentFolderExists(t_missingPath) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    }
    return t_dwLastError;
}

void SetLastError(DWORD error) {
    t_bMissingPathPending = false;
    t_dwLastError = error;
}

DWORD errorFromErrno(int err) {
    switch (err) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
        case ENAMETOOLONG:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case EWOULDBLOCK:
            return ERROR_SHARING_VIOLATION;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case ENOSPC:
        case EDQUOT:
            return ERROR_DISK_FULL;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case ENOTEMPTY:
            return ERROR_DIR_NOT_EMPTY;
        default:
            return ERROR_INVALID_FUNCTION;
    }
}

DWORD errorFromErrnoForPath(int err, const std::string& utf8Path) {
    if (err == ENOENT && !parentFolderExists(utf8Path)) {
        return ERROR_PATH_NOT_FOUND;
    }
    return errorFromErrno(err);
}

DWORD setLastErrorFromErrno(int err) {
    const DWORD error = errorFromErrno(err);
    SetLastError(error);
    return error;
}

void setLastErrorFromErrno(int err, const std::string& utf8Path) {
    SetLastError(errorFromErrno(err));
    if (err == ENOENT) {
        t_missingPath = utf8Path;
        t_bMissingPathPending = true;
    }
}

}  // namespace plat
