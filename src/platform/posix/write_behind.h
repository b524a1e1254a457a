// Write-behind of a file's mapped views: the bytes of an unmapped view are written with pwrite on a thread
// of the file's own while the thread that filled them goes on with its next block. A block of the crypt
// engine's big files is read, enciphered and summed in user space and then copied into the page cache by
// the kernel; with the copy of one block overlapping the work on the next, the two cores both work.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

#include "plat/types.h"

namespace plat::detail {

class WriteBehind {
public:
    // Bytes to write: `nLength` bytes at `pBytes` for file offset `nOffset`; the buffer holds `nCapacity`.
    struct Block {
        unsigned char* pBytes = nullptr;
        std::size_t nCapacity = 0;
        std::size_t nLength = 0;
        ULONGLONG nOffset = 0;
    };
    // Takes a buffer back once its block is written (or refused); called on the thread that waited for it,
    // never on the writer's own. A buffer the writer took comes back zeroed (`bZeroed`): wiped of the bytes
    // it carried (a decryption's plain bytes among them) by the thread that has time to spare, and ready to
    // be the next view of bytes known to be zero without a clearing by its caller.
    using Release = void (*)(unsigned char* pBytes, std::size_t nCapacity, bool bZeroed);

    WriteBehind(int fd, Release release);
    // Waits for the block in flight, releases its buffer and joins the writer.
    ~WriteBehind();
    WriteBehind(const WriteBehind&) = delete;
    WriteBehind& operator=(const WriteBehind&) = delete;

    // Waits until the block in flight is written and releases it, then starts writing `next`. When the
    // block in flight failed, `next` is released unwritten and the result is false with the last error
    // (the Win32 number of pwrite's errno; a write that made no progress counts as a full disk).
    bool write(const Block& next);
    // Waits until the block in flight is written and releases it; false with the last error as above.
    bool finish();

private:
    // Under m_mutex: waits for the writer to be idle, releases the finished block, takes its result.
    bool _reap(std::unique_lock<std::mutex>& lock);
    void _run();

    const int m_fd;
    const Release m_release;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Block m_block;             // the block in flight, or the finished one not yet released
    bool m_bPending = false;   // m_block is still to be written
    bool m_bStopping = false;  // the destructor asks the writer to end
    int m_nErrno = 0;          // errno of the finished block's failure, 0 when it was written whole
    std::thread m_writer;      // last: started once everything it reads exists
};

}  // namespace plat::detail
