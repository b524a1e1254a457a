// The next block of a read-only mapping read on the I/O thread; see read_ahead.h.
#include "read_ahead.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace plat::detail {

namespace {

int readBlock(int fd, const IoLane::Block& block) {
    return readWhole(fd, block.pBytes, block.nLength, block.nOffset) ? 0 : EIO;
}

}  // namespace

bool readWhole(int fd, unsigned char* buffer, std::size_t length, ULONGLONG offset) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t got = ::pread(fd, buffer + done, length - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            std::memset(buffer + done, 0, length - done);
            return false;
        }
        done += static_cast<std::size_t>(got);
    }
    return true;
}

ReadAhead::ReadAhead(int fd, Release release) : m_release(release), m_reader(fd, readBlock) {}

ReadAhead::~ReadAhead() {
    _drop();
}

void ReadAhead::start(const Block& block) {
    _drop();
    m_reader.start(block);
    m_bStarted = true;
}

bool ReadAhead::take(ULONGLONG offset, std::size_t length, Block& taken) {
    if (!m_bStarted) {
        return false;
    }
    Block done;
    const int failure = m_reader.wait(done);
    m_bStarted = false;
    if (failure != 0 || done.nOffset != offset || done.nLength < length) {
        m_release(done.pBytes, done.nCapacity);
        return false;
    }
    taken = done;
    return true;
}

void ReadAhead::_drop() {
    if (m_bStarted) {
        Block done;
        m_reader.wait(done);
        m_bStarted = false;
        m_release(done.pBytes, done.nCapacity);
    }
}

}  // namespace plat::detail
