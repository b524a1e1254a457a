#include "common/SecureFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "common/crypto/Crypto.h"
#include "plat/errors.h"

using plat::HRESULT;
using plat::S_OK;

namespace velqfile {
namespace {

constexpr mode_t kPrivateFolderMode = 0700;
constexpr mode_t kSecretFileMode = 0600;

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// A temp name that no other writer picks: the target's name with a random suffix.
std::string tempNameFor(const std::string& path) {
    unsigned char random[8] = {};
    if (!velqcrypto::randomBytes(random, sizeof(random))) {
        return {};
    }
    std::string name = path + ".tmp-";
    for (unsigned char byte : random) {
        static const char kHex[] = "0123456789abcdef";
        name += kHex[byte >> 4];
        name += kHex[byte & 0x0f];
    }
    return name;
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

HRESULT makeOneFolder(const std::string& path) {
    if (::mkdir(path.c_str(), kPrivateFolderMode) == 0) {
        return S_OK;
    }
    const int err = errno;
    struct stat info {};
    if (err == EEXIST && ::stat(path.c_str(), &info) == 0) {
        return S_ISDIR(info.st_mode) ? S_OK : plat::HRESULT_FROM_WIN32(plat::ERROR_PATH_NOT_FOUND);
    }
    return hresultFromErrno(err);
}

}  // namespace

HRESULT hresultFromErrno(int err) {
    return plat::HRESULT_FROM_WIN32(plat::errorFromErrno(err));
}

namespace {

// Writes a complete temp file beside `path` and hands it to `publish` (rename or link). The temp file is
// gone afterwards, whatever happened.
template <typename Publish>
HRESULT writeThenPublish(const std::string& path, const void* data, std::size_t size, bool publishMovesTemp,
                         Publish publish) {
    const std::string temp = tempNameFor(path);
    if (temp.empty()) {
        return plat::E_FAIL;
    }
    const int fd =
        ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kSecretFileMode);
    if (fd < 0) {
        return hresultFromErrno(errno);
    }
    int err = 0;
    if (!writeAll(fd, static_cast<const unsigned char*>(data), size) || ::fsync(fd) != 0) {
        err = errno;
    }
    if (::close(fd) != 0 && err == 0) {
        err = errno;
    }
    if (err == 0 && publish(temp.c_str(), path.c_str()) != 0) {
        err = errno;
    }
    if (err != 0 || !publishMovesTemp) {
        ::unlink(temp.c_str());
    }
    if (err != 0) {
        return hresultFromErrno(err);
    }
    syncFolder(folderOf(path));
    return S_OK;
}

}  // namespace

HRESULT writeFileAtomically(const std::string& path, const void* data, std::size_t size) {
    // After a successful rename the temp name no longer exists; it must not be unlinked (another writer
    // may have picked the same name meanwhile, however unlikely).
    return writeThenPublish(path, data, size, true, ::rename);
}

HRESULT createFileExclusively(const std::string& path, const void* data, std::size_t size) {
    return writeThenPublish(path, data, size, false, ::link);
}

HRESULT readSmallFile(const std::string& path, std::size_t maxBytes, std::vector<unsigned char>& content) {
    content.clear();
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return hresultFromErrno(errno);
    }
    struct stat info {};
    HRESULT result = S_OK;
    if (::fstat(fd, &info) != 0) {
        result = hresultFromErrno(errno);
    } else if (!S_ISREG(info.st_mode) || static_cast<std::size_t>(info.st_size) > maxBytes) {
        result = plat::HRESULT_FROM_WIN32(13);  // ERROR_INVALID_DATA
    } else {
        // Read one byte more than expected, so that a file growing meanwhile is noticed as too long.
        content.resize(maxBytes + 1);
        std::size_t total = 0;
        while (total < content.size()) {
            const ssize_t got = ::read(fd, content.data() + total, content.size() - total);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                result = hresultFromErrno(errno);
                break;
            }
            if (got == 0) {
                break;
            }
            total += static_cast<std::size_t>(got);
        }
        content.resize(total);
        if (result == S_OK && total > maxBytes) {
            result = plat::HRESULT_FROM_WIN32(13);
        }
    }
    ::close(fd);
    if (result != S_OK) {
        content.clear();
    }
    return result;
}

HRESULT makePrivateFolder(const std::string& path) {
    if (path.empty()) {
        return plat::E_INVALIDARG;
    }
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const HRESULT parent = makeOneFolder(path.substr(0, slash));
        if (plat::FAILED(parent)) {
            return parent;
        }
    }
    const HRESULT result = makeOneFolder(path);
    if (plat::FAILED(result)) {
        return result;
    }
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && info.st_uid == ::geteuid() &&
        (info.st_mode & 07777) != kPrivateFolderMode && ::chmod(path.c_str(), kPrivateFolderMode) != 0) {
        return hresultFromErrno(errno);
    }
    return S_OK;
}

}  // namespace velqfile
