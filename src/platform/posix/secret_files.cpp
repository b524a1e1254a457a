// Secret files with owner-only modes: 0600 files, 0700 folders.
#include "plat/secret_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "plat/errors.h"
#include "plat/strings.h"

namespace plat {

namespace {

constexpr mode_t kPrivateFolderMode = 0700;
constexpr mode_t kSecretFileMode = 0600;
constexpr DWORD kInvalidData = 13;  // ERROR_INVALID_DATA

BOOL failWithErrno(int err) {
    setLastErrorFromErrno(err);
    return FALSE;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool writeAll(int fd, const unsigned char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// Makes the rename itself durable; a folder that cannot be synced (some file systems) is no failure.
void syncFolder(const std::string& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// 0 or the errno of a folder that could not be made; a non-folder in the way gives ENOTDIR.
int makeOneFolder(const std::string& path) {
    if (::mkdir(path.c_str(), kPrivateFolderMode) == 0) {
        return 0;
    }
    const int err = errno;
    struct stat info {};
    if (err == EEXIST && ::stat(path.c_str(), &info) == 0) {
        return S_ISDIR(info.st_mode) ? 0 : ENOTDIR;
    }
    return err;
}

}  // namespace

BOOL writeSecretFile(LPCWSTR temp, LPCWSTR target, const void* data, std::size_t size, BOOL replace) {
    if (temp == nullptr || target == nullptr || (data == nullptr && size > 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string tempPath = toUtf8(temp);
    const std::string targetPath = toUtf8(target);
    const int fd =
        ::open(tempPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kSecretFileMode);
    if (fd < 0) {
        return failWithErrno(errno);
    }
    int err = 0;
    if (!writeAll(fd, static_cast<const unsigned char*>(data), size) || ::fsync(fd) != 0) {
        err = errno;
    }
    if (::close(fd) != 0 && err == 0) {
        err = errno;
    }
    // A rename moves the temp name away: after it the name may be another writer's, never to be unlinked.
    // A link leaves the temp name, which goes in any case.
    const bool renamed = replace != FALSE;
    if (err == 0 && (renamed ? ::rename(tempPath.c_str(), targetPath.c_str())
                             : ::link(tempPath.c_str(), targetPath.c_str())) != 0) {
        err = errno;
    }
    if (err != 0 || !renamed) {
        ::unlink(tempPath.c_str());
    }
    if (err != 0) {
        return failWithErrno(err);
    }
    syncFolder(folderOf(targetPath));
    return TRUE;
}

BOOL readSmallFile(LPCWSTR path, std::size_t maxBytes, std::vector<unsigned char>& content) {
    content.clear();
    if (path == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int fd = ::open(toUtf8(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        return failWithErrno(errno);
    }
    struct stat info {};
    int err = 0;
    bool invalid = false;
    if (::fstat(fd, &info) != 0) {
        err = errno;
    } else if (!S_ISREG(info.st_mode) || static_cast<std::size_t>(info.st_size) > maxBytes) {
        invalid = true;
    } else {
        // Read one byte more than expected, so that a file growing meanwhile is noticed as too long.
        content.resize(maxBytes + 1);
        std::size_t total = 0;
        while (total < content.size()) {
            const ssize_t got = ::read(fd, content.data() + total, content.size() - total);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                err = got < 0 ? errno : 0;
                break;
            }
            total += static_cast<std::size_t>(got);
        }
        content.resize(total);
        invalid = err == 0 && total > maxBytes;
    }
    ::close(fd);
    if (err == 0 && !invalid) {
        return TRUE;
    }
    content.clear();
    if (invalid) {
        SetLastError(kInvalidData);
        return FALSE;
    }
    return failWithErrno(err);
}

BOOL createPrivateFolder(LPCWSTR path) {
    if (path == nullptr || *path == u'\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string folder = toUtf8(path);
    for (std::size_t slash = folder.find('/', 1); slash != std::string::npos;
         slash = folder.find('/', slash + 1)) {
        if (const int err = makeOneFolder(folder.substr(0, slash)); err != 0) {
            return failWithErrno(err);
        }
    }
    if (const int err = makeOneFolder(folder); err != 0) {
        return failWithErrno(err);
    }
    struct stat info {};
    if (::stat(folder.c_str(), &info) == 0 && info.st_uid == ::geteuid() &&
        (info.st_mode & 07777) != kPrivateFolderMode && ::chmod(folder.c_str(), kPrivateFolderMode) != 0) {
        return failWithErrno(errno);
    }
    return TRUE;
}

}  // namespace plat
