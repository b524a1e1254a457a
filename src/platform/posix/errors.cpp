#include "plat/errors.h"

#include <sys/stat.h>

#include <cerrno>

namespace plat {

namespace {
thread_local DWORD t_dwLastError = ERROR_SUCCESS;

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

DWORD GetLastError() { return t_dwLastError; }

void SetLastError(DWORD error) { t_dwLastError = error; }

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

DWORD setLastErrorFromErrno(int err, const std::string& utf8Path) {
    const DWORD error = errorFromErrnoForPath(err, utf8Path);
    SetLastError(error);
    return error;
}

}  // namespace plat
