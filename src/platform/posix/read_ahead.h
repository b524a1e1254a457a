// Read-ahead of a read-only mapping's views: while the caller works on one view, the block behind it is
// read with pread on the process's I/O thread (io_lane.h), and the next view takes those bytes instead of
// waiting for a read of its own. The crypt engine reads a big file front to back a block at a time; its
// worker read, deciphered and summed each block, and the read (a copy out of the page cache) is the part
// that the other core can do meanwhile.
#pragma once

#include <cstddef>

#include "io_lane.h"

namespace plat::detail {

// Reads `length` bytes at `offset` into `buffer`; false on a read error or when the file ends first (the
// bytes not read are zero then).
bool readWhole(int fd, unsigned char* buffer, std::size_t length, ULONGLONG offset);

class ReadAhead {
public:
    using Block = IoLane::Block;
    // Takes back a buffer whose bytes nobody asked for; called on the thread that gave up on them.
    using Release = void (*)(unsigned char* pBytes, std::size_t nCapacity);

    ReadAhead(int fd, Release release);
    // Waits for the read in flight and releases its buffer.
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // Starts reading `block` (whose buffer this takes), once a block read before and not taken is released.
    void start(const Block& block);
    // The block read ahead, when it was read whole from `offset` and holds at least `length` bytes: its
    // buffer is the caller's then. Otherwise false, and a block read ahead is released: the caller reads
    // for itself, and so sees a failure exactly as a view without read-ahead would.
    bool take(ULONGLONG offset, std::size_t length, Block& taken);

private:
    void _drop();

    const Release m_release;
    bool m_bStarted = false;  // a block was started and not yet waited for
    IoLane m_reader;
};

}  // namespace plat::detail
