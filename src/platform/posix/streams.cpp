// stdio streams over descriptors opened close-on-exec, owner-only when created.
#include "plat/streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plat/strings.h"

namespace plat {

std::FILE* openStream(const std::u16string& path, StreamMode mode) {
    int flags = O_CLOEXEC | O_NOCTTY;
    const char* streamMode = "r";
    switch (mode) {
        case StreamMode::kRead:
            flags |= O_RDONLY;
            break;
        case StreamMode::kAppend:
            flags |= O_WRONLY | O_CREAT | O_APPEND;
            streamMode = "a";
            break;
        case StreamMode::kReplace:
            flags |= O_WRONLY | O_CREAT | O_TRUNC;
            streamMode = "w";
            break;
    }
    const int fd = ::open(toUtf8(path).c_str(), flags, 0600);
    if (fd < 0) {
        return nullptr;
    }
    std::FILE* stream = ::fdopen(fd, streamMode);
    if (stream == nullptr) {
        ::close(fd);
    }
    return stream;
}

bool appendWhole(const std::u16string& path, std::string_view bytes, std::string& failure) {
    const int fd = ::open(toUtf8(path).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0600);
    if (fd < 0) {
        failure = std::strerror(errno);
        return false;
    }
    ssize_t written = -1;
    do {
        written = ::write(fd, bytes.data(), bytes.size());
    } while (written < 0 && errno == EINTR);
    const int err = errno;
    ::close(fd);
    if (written < 0) {
        failure = std::strerror(err);
        return false;
    }
    if (static_cast<std::size_t>(written) != bytes.size()) {
        failure = "short write";
        return false;
    }
    return true;
}

}  // namespace plat
