#include "runtime_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "plat/errors.h"
#include "process_owner.h"

namespace plat::detail {

namespace {

bool isSetInEnvironment(const char* value) {
    return value != nullptr && *value != '\0';
}

bool isPrivateFolder(const struct stat& st) {
    return S_ISDIR(st.st_mode) && st.st_uid == detail::processOwnerUid() && (st.st_mode & 07777) == 0700;
}

}  // namespace

std::string runtimeFolderPath() {
    const char* own = std::getenv("VELQ_RUNTIME_DIR");
    if (isSetInEnvironment(own)) {
        return own;
    }
    const char* session = std::getenv("XDG_RUNTIME_DIR");
    if (isSetInEnvironment(session)) {
        return std::string(session) + "/velq";
    }
    return "/tmp/velq-" + std::to_string(detail::processOwnerUid());
}

int openRuntimeFolder(std::string& path) {
    path = runtimeFolderPath();
    if (::mkdir(path.c_str(), 0700) == 0) {
        // The umask may have taken bits away; the folder must be exactly owner-only.
        if (::chmod(path.c_str(), 0700) != 0) {
            setLastErrorFromErrno(errno, path);
            return -1;
        }
    } else if (errno != EEXIST) {
        setLastErrorFromErrno(errno, path);
        return -1;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        // A link in place of the folder fails here with ELOOP or ENOTDIR: refused like any foreign folder.
        const int err = errno;
        SetLastError(err == ELOOP || err == ENOTDIR ? ERROR_ACCESS_DENIED : errorFromErrnoForPath(err, path));
        return -1;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !isPrivateFolder(st)) {
        ::close(fd);
        SetLastError(ERROR_ACCESS_DENIED);
        return -1;
    }
    return fd;
}

}  // namespace plat::detail
