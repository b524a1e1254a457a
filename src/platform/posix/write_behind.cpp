// One pwrite at a time on a thread of its own; see write_behind.h.
#include "write_behind.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plat/errors.h"

namespace plat::detail {

namespace {

// The errno of a failed write of the whole block; 0 when every byte went out.
int writeWhole(int fd, const WriteBehind::Block& block) {
    std::size_t done = 0;
    while (done < block.nLength) {
        const ssize_t put =
            ::pwrite(fd, block.pBytes + done, block.nLength - done, static_cast<off_t>(block.nOffset + done));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            return put < 0 ? errno : ENOSPC;
        }
        done += static_cast<std::size_t>(put);
    }
    return 0;
}

}  // namespace

WriteBehind::WriteBehind(int fd, Release release)
    : m_fd(fd), m_release(release), m_writer([this] { _run(); }) {}

WriteBehind::~WriteBehind() {
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        _reap(lock);
        m_bStopping = true;
    }
    m_changed.notify_all();
    m_writer.join();
}

bool WriteBehind::write(const Block& next) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!_reap(lock)) {
        lock.unlock();
        m_release(next.pBytes, next.nCapacity, false);
        return false;
    }
    m_block = next;
    m_bPending = true;
    lock.unlock();
    m_changed.notify_all();
    return true;
}

bool WriteBehind::finish() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return _reap(lock);
}

bool WriteBehind::_reap(std::unique_lock<std::mutex>& lock) {
    m_changed.wait(lock, [this] { return !m_bPending; });
    if (m_block.pBytes != nullptr) {
        m_release(m_block.pBytes, m_block.nCapacity, true);
        m_block = Block{};
    }
    const int failure = m_nErrno;
    m_nErrno = 0;
    if (failure != 0) {
        setLastErrorFromErrno(failure);
        return false;
    }
    return true;
}

void WriteBehind::_run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_bPending || m_bStopping; });
        if (!m_bPending) {
            return;
        }
        const Block block = m_block;
        lock.unlock();
        const int failure = writeWhole(m_fd, block);
        std::memset(block.pBytes, 0, block.nCapacity);
        lock.lock();
        m_nErrno = failure;
        m_bPending = false;
        m_changed.notify_all();
    }
}

}  // namespace plat::detail
