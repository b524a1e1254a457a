// The process's I/O thread for mapped views, and the lanes it serves: the write-behind of a mapping's
// written views (write_behind.h) and the read-ahead of a read-only mapping's next view (read_ahead.h) each
// keep a lane, with one block in flight at a time. Every lane shares one thread, so that the crypt
// engine's pass over a big file runs on two threads, not three on two cores: its worker reading into the
// cipher and summing, and one thread copying blocks between buffers and the page cache (reading the next
// source block, writing the last destination block). Measured on a 1 GiB decryption: with a thread per
// lane the worker lost the core to the other two often enough to make read-ahead pay half as much.
#pragma once

#include <cstddef>
#include <memory>

#include "plat/types.h"

namespace plat::detail {

class IoThread;

class IoLane {
public:
    // `nLength` bytes at `pBytes` for file offset `nOffset`; the buffer holds `nCapacity`.
    struct Block {
        unsigned char* pBytes = nullptr;
        std::size_t nCapacity = 0;
        std::size_t nLength = 0;
        ULONGLONG nOffset = 0;
    };
    // The work on one block of the file behind `fd`: the errno of its failure, 0 when it did every byte.
    using Job = int (*)(int fd, const Block& block);

    // The thread starts with the first lane of the process and is joined when the last one goes.
    IoLane(int fd, Job job);
    // Waits for the block in flight. A block not handed back by wait() is the owner's to release first:
    // the lane does not know what its bytes are.
    ~IoLane();
    IoLane(const IoLane&) = delete;
    IoLane& operator=(const IoLane&) = delete;

    // Queues the job on `block`. The lane must be idle: nothing started since the last wait().
    void start(const Block& block);
    // Waits until the lane's job is done and hands its block back in `done` (a block of no bytes when
    // nothing was started); the result is the job's.
    int wait(Block& done);

private:
    friend class IoThread;

    const int m_fd;
    const Job m_job;
    const std::shared_ptr<IoThread> m_pThread;
    // Guarded by the thread's lock.
    Block m_block;            // the block in flight, or the finished one not yet handed back
    bool m_bPending = false;  // the job on m_block is still to be done
    int m_nResult = 0;        // the finished job's result
};

}  // namespace plat::detail
