// Write-behind of a file's mapped views: the bytes of an unmapped view are written with pwrite on the
// process's I/O thread (io_lane.h) while the thread that filled them goes on with its next block. A block of
// the crypt engine's big files is read, enciphered and summed in user space and then copied into the page
// cache by the kernel; with the copy of one block overlapping the work on the next, the two cores both work.
#pragma once

#include <cstddef>
#include <mutex>

#include "io_lane.h"

namespace plat::detail {

class WriteBehind {
public:
    // Bytes to write: `nLength` bytes at `pBytes` for file offset `nOffset`; the buffer holds `nCapacity`.
    using Block = IoLane::Block;
    // Takes a buffer back once its block is written (or refused); called on the thread that waited for it,
    // never on the writer's own. A buffer the writer took comes back zeroed (`bZeroed`): wiped of the bytes
    // it carried (a decryption's plain bytes among them) by the thread that has time to spare, and ready to
    // be the next view of bytes known to be zero without a clearing by its caller.
    using Release = void (*)(unsigned char* pBytes, std::size_t nCapacity, bool bZeroed);

    WriteBehind(int fd, Release release);
    // Waits for the block in flight and releases its buffer; the writer is joined.
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
    bool _finish();  // with m_callers held

    const Release m_release;
    std::mutex m_callers;  // one caller's wait and start at a time, as one step
    IoLane m_writer;
};

}  // namespace plat::detail
