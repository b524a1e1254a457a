#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "files_internal.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/strings.h"
#include "process_owner.h"

namespace plat {

namespace {

// Only a folder that this user made private counts: a link, a file, another owner or looser (or
// tighter) modes may have been planted or changed by someone else, so they are refused, never repaired.
bool isOurPrivateFolder(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        return false;
    }
    if (!S_ISDIR(st.st_mode) || st.st_uid != detail::processOwnerUid() || (st.st_mode & 07777) != S_IRWXU) {
        errno = EACCES;
        return false;
    }
    return true;
}

}  // namespace

std::string privateTempFolderPath() {
    const char* tmpdir = ::getenv("TMPDIR");
    std::string base = tmpdir != nullptr && tmpdir[0] == '/' ? tmpdir : "/tmp";
    while (base.size() > 1 && base.back() == '/') {
        base.pop_back();
    }
    if (base == "/") {
        base.clear();
    }
    return base + "/velq-" + std::to_string(detail::processOwnerUid());
}

DWORD GetTempPathW(DWORD nBufferLength, LPWSTR lpBuffer) {
    const std::string folder = privateTempFolderPath();
    if (::mkdir(folder.c_str(), S_IRWXU) == 0) {
        ::chmod(folder.c_str(), S_IRWXU);  // a umask may have taken bits that the folder needs
    } else if (errno != EEXIST) {
        setLastErrorFromErrno(errno, folder);
        return 0;
    }
    if (!isOurPrivateFolder(folder)) {
        setLastErrorFromErrno(errno, folder);
        return 0;
    }
    const std::u16string path = fromUtf8(folder + "/");
    if (lpBuffer == nullptr || nBufferLength <= path.size()) {
        return static_cast<DWORD>(path.size() + 1);
    }
    return static_cast<DWORD>(copyTruncated(path, lpBuffer, nBufferLength));
}

}  // namespace plat
