// One pwrite at a time on the I/O thread; see write_behind.h.
#include "write_behind.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plat/errors.h"

namespace plat::detail {

namespace {

// Writes the whole block, then wipes its buffer: the errno of a failed write, 0 when every byte went out.
int writeWholeAndWipe(int fd, const WriteBehind::Block& block) {
    std::size_t done = 0;
    int failure = 0;
    while (done < block.nLength) {
        const ssize_t put =
            ::pwrite(fd, block.pBytes + done, block.nLength - done, static_cast<off_t>(block.nOffset + done));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            failure = put < 0 ? errno : ENOSPC;
            break;
        }
        done += static_cast<std::size_t>(put);
    }
    std::memset(block.pBytes, 0, block.nCapacity);
    return failure;
}

}  // namespace

WriteBehind::WriteBehind(int fd, Release release) : m_release(release), m_writer(fd, writeWholeAndWipe) {}

WriteBehind::~WriteBehind() {
    finish();
}

bool WriteBehind::write(const Block& next) {
    const std::lock_guard<std::mutex> lock(m_callers);
    if (!_finish()) {
        m_release(next.pBytes, next.nCapacity, false);
        return false;
    }
    m_writer.start(next);
    return true;
}

bool WriteBehind::finish() {
    const std::lock_guard<std::mutex> lock(m_callers);
    return _finish();
}

bool WriteBehind::_finish() {
    Block done;
    const int failure = m_writer.wait(done);
    if (done.pBytes != nullptr) {
        m_release(done.pBytes, done.nCapacity, true);
    }
    if (failure != 0) {
        setLastErrorFromErrno(failure);
        return false;
    }
    return true;
}

}  // namespace plat::detail
