// Mappings of files: views are private buffers filled by pread and written back by pwrite, which for the
// crypt engine's sequential block work measured faster than mmap views (bench/mapping_bench.cpp) and
// turns a failed read, or a file cut short under a view, into the in-page error without a signal handler.
// The write-back runs behind the caller (posix/write_behind.h), one view at a time, and a read-only
// mapping's next view is read ahead of it (posix/read_ahead.h).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "files_internal.h"
#include "mapping.h"
#include "plat/errors.h"
#include "plat/file_mapping.h"
#include "plat/sysinfo.h"
#include "read_ahead.h"

namespace plat {

namespace {

using detail::MappedView;
using detail::Mapping;
using detail::ReadAhead;
using detail::WriteBehind;

constexpr std::size_t kPageSize = 4096;

thread_local bool t_bInPageError = false;

std::size_t roundUpToPage(std::size_t bytes) {
    return (bytes + kPageSize - 1) / kPageSize * kPageSize;
}

// Buffers of views, kept per thread for the next view of the same length. The crypt engine maps a source
// and a destination view for every block of a big file; a fresh allocation each time came from the kernel
// as new zeroed pages, and those page faults cost more than the cipher (measured with perf on a 256 MiB
// file). Two buffers in use at a time, so a few kept suffice; they go when the thread ends. A buffer known
// to be all zero (one the writer wiped) is kept for a view that needs zeros, saving its caller the clearing
// of a whole block.
class ViewBufferPool {
public:
    ViewBufferPool() = default;
    ViewBufferPool(const ViewBufferPool&) = delete;
    ViewBufferPool& operator=(const ViewBufferPool&) = delete;
    ~ViewBufferPool() {
        for (const Kept& kept : m_kept) {
            std::free(kept.pBuffer);
        }
    }

    // A page-aligned buffer of `bytes` (a multiple of the page size), one known to be zero first when
    // `bWantZeroed`, else one that is not; `bZeroed` tells which it is. Null when memory is short.
    unsigned char* take(std::size_t bytes, bool bWantZeroed, bool& bZeroed) {
        std::size_t found = m_kept.size();
        for (std::size_t i = 0; i < m_kept.size(); ++i) {
            if (m_kept[i].nBytes == bytes && (found == m_kept.size() || m_kept[i].bZeroed == bWantZeroed)) {
                found = i;
            }
        }
        if (found == m_kept.size()) {
            bZeroed = false;
            return static_cast<unsigned char*>(std::aligned_alloc(kPageSize, bytes));
        }
        const Kept kept = m_kept[found];
        m_kept.erase(m_kept.begin() + static_cast<std::ptrdiff_t>(found));
        bZeroed = kept.bZeroed;
        return kept.pBuffer;
    }

    void give(unsigned char* buffer, std::size_t bytes, bool bZeroed) {
        if (m_kept.size() == kKeptBuffers) {
            std::free(m_kept.front().pBuffer);
            m_kept.erase(m_kept.begin());
        }
        m_kept.push_back(Kept{buffer, bytes, bZeroed});
    }

private:
    struct Kept {
        unsigned char* pBuffer;
        std::size_t nBytes;
        bool bZeroed;
    };
    static constexpr std::size_t kKeptBuffers = 4;
    std::vector<Kept> m_kept;
};

ViewBufferPool& viewBuffers() {
    thread_local ViewBufferPool pool;
    return pool;
}

// A written view's buffer goes back to the pool of the thread that waited for its write: the one that
// maps the next view.
void giveViewBuffer(unsigned char* buffer, std::size_t bytes, bool bZeroed) {
    viewBuffers().give(buffer, bytes, bZeroed);
}

// A buffer read ahead and not asked for goes back to the pool of the thread that maps views.
void giveUnreadBuffer(unsigned char* buffer, std::size_t bytes) {
    viewBuffers().give(buffer, bytes, false);
}

// One view: a page-aligned buffer of `capacity` bytes (the view's length rounded up to whole pages, or more
// for a buffer read ahead) holding the view's bytes.
class BufferedView : public MappedView {
public:
    BufferedView(FileObject* file, unsigned char* buffer, std::size_t capacity, std::size_t length,
                 ULONGLONG offset, bool writable, bool lastOfMapping)
        : m_pFile(file),
          m_pBuffer(buffer),
          m_nCapacity(capacity),
          m_nLength(length),
          m_nOffset(offset),
          m_bWritable(writable),
          m_bLastOfMapping(lastOfMapping) {}
    ~BufferedView() override {
        if (m_pBuffer != nullptr) {
            giveViewBuffer(m_pBuffer, m_nCapacity, false);
        }
    }

    void* address() const override { return m_pBuffer; }
    std::size_t regionSize() const override { return roundUpToPage(m_nLength); }
    bool isWritable() const override { return m_bWritable; }
    // A writable view's bytes are handed to the file's writer, after the view before it is written: a
    // failure of that one is reported here, one view late. The view that ends the mapping waits for its
    // own write too, so that the caller's check after its last block sees every failure of the file:
    // nothing later would report it.
    bool close() override {
        if (!m_bWritable || m_pBuffer == nullptr) {
            return true;
        }
        m_pFile->wroteUpTo(m_nOffset + m_nLength);
        const WriteBehind::Block block{std::exchange(m_pBuffer, nullptr), m_nCapacity, m_nLength, m_nOffset};
        bool written = m_pFile->writeBehind(giveViewBuffer).write(block);
        if (written && m_bLastOfMapping) {
            written = m_pFile->finishWrites();
        }
        if (!written) {
            t_bInPageError = true;
        }
        return written;
    }

private:
    FileObject* const m_pFile;  // kept alive by the mapping, which outlives its views
    unsigned char* m_pBuffer;   // null once handed to the writer
    const std::size_t m_nCapacity;
    const std::size_t m_nLength;
    const ULONGLONG m_nOffset;
    const bool m_bWritable;
    const bool m_bLastOfMapping;
};

// A mapping of one file. It keeps the file object alive, as a Windows mapping keeps its file open.
class FileMapping : public Mapping {
public:
    // `readsAhead`: views read the block behind them ahead. Only for a read-only mapping of a handle opened
    // for reading only: no write through the handle or a view of it can come between a read ahead and the
    // view that takes its bytes.
    FileMapping(FileObject* file, ULONGLONG size, bool writable, bool readsAhead)
        : m_pFile(file), m_nSize(size), m_bWritable(writable), m_bReadsAhead(readsAhead) {
        m_pFile->addRef();
    }

    std::unique_ptr<MappedView> openView(DWORD access, ULONGLONG offset, std::size_t bytes) override {
        const bool writable = (access & FILE_MAP_WRITE) != 0;
        if ((writable && !m_bWritable) || offset >= m_nSize || bytes > m_nSize - offset) {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }
        const std::size_t length = bytes == 0 ? static_cast<std::size_t>(m_nSize - offset) : bytes;
        return m_bReadsAhead ? _openViewReadingAhead(offset, length) : _openView(writable, offset, length);
    }

protected:
    ~FileMapping() override {
        m_pReadAhead.reset();  // its read needs the descriptor
        m_pFile->release();
    }

private:
    std::unique_ptr<MappedView> _openView(bool writable, ULONGLONG offset, std::size_t length) {
        // Bytes known to be zero (a reserved destination not yet written) are not read back.
        const ULONGLONG zeroFrom = m_pFile->zeroFrom();
        const std::size_t toRead =
            zeroFrom <= offset ? 0 : static_cast<std::size_t>(std::min<ULONGLONG>(length, zeroFrom - offset));
        bool bZeroed = false;
        unsigned char* buffer = viewBuffers().take(roundUpToPage(length), toRead < length, bZeroed);
        if (buffer == nullptr) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        if (!bZeroed) {
            // The page's tail behind the view reads as zero (as on Windows at a file's end), and so do the
            // known zeros.
            std::memset(buffer + toRead, 0, roundUpToPage(length) - toRead);
        }
        // Bytes to read back must be in the file first; a view beyond them needs no wait.
        if (toRead > 0 && !m_pFile->finishWrites()) {
            t_bInPageError = true;
        }
        if (!detail::readWhole(m_pFile->fd(), buffer, toRead, offset)) {
            t_bInPageError = true;
        }
        return std::make_unique<BufferedView>(m_pFile, buffer, roundUpToPage(length), length, offset,
                                              writable, offset + length == m_nSize);
    }

    // The view from the block read ahead when it is the one asked for, else read now; either way the
    // block behind it is read ahead next.
    std::unique_ptr<MappedView> _openViewReadingAhead(ULONGLONG offset, std::size_t length) {
        const std::lock_guard<std::mutex> lock(m_readAheadMutex);
        ReadAhead::Block block;
        std::unique_ptr<MappedView> view;
        if (m_pReadAhead != nullptr && m_pReadAhead->take(offset, length, block)) {
            std::memset(block.pBytes + length, 0, roundUpToPage(length) - length);
            view = std::make_unique<BufferedView>(m_pFile, block.pBytes, block.nCapacity, length, offset,
                                                  false, offset + length == m_nSize);
        } else {
            view = _openView(false, offset, length);
        }
        if (view != nullptr) {
            _readAheadBehind(offset + length, length);
        }
        return view;
    }

    // Starts reading the `length` bytes at `next`, where the next view of a front-to-back reader begins.
    // The last block of such a reader may be longer than the others (a cipher's final call carries its
    // tag): a rest of the mapping shorter than two blocks is read whole, so that it serves that block too.
    void _readAheadBehind(ULONGLONG next, std::size_t length) {
        if (next >= m_nSize || next % VELQ_ALLOCATION_GRANULARITY != 0) {
            return;  // no view can begin there
        }
        const ULONGLONG rest = m_nSize - next;
        const std::size_t toRead = rest < ULONGLONG{length} * 2 ? static_cast<std::size_t>(rest) : length;
        bool bZeroed = false;
        unsigned char* buffer = viewBuffers().take(roundUpToPage(toRead), false, bZeroed);
        if (buffer == nullptr) {
            return;  // short of memory: the next view reads for itself
        }
        if (m_pReadAhead == nullptr) {
            m_pReadAhead = std::make_unique<ReadAhead>(m_pFile->fd(), giveUnreadBuffer);
        }
        m_pReadAhead->start(ReadAhead::Block{buffer, roundUpToPage(toRead), toRead, next});
    }

    FileObject* const m_pFile;
    const ULONGLONG m_nSize;
    const bool m_bWritable;
    const bool m_bReadsAhead;
    std::mutex m_readAheadMutex;
    std::unique_ptr<ReadAhead> m_pReadAhead;  // guarded by m_readAheadMutex; made at the first read ahead
};

// Extends the file to `size` and reserves every byte of it on the medium.
bool reserveWholeLength(int fd, ULONGLONG size) {
    int result = 0;
    do {
        result = ::posix_fallocate(fd, 0, static_cast<off_t>(size));
    } while (result == EINTR);
    if (result == EFBIG) {
        SetLastError(ERROR_DISK_FULL);  // longer than the medium can ever hold a file
        return false;
    }
    if (result != 0) {
        setLastErrorFromErrno(result);
        return false;
    }
    return true;
}

}  // namespace

namespace detail {

HANDLE createFileMapping(HANDLE hFile, DWORD flProtect, ULONGLONG size, LPCWSTR lpName) {
    auto* file = handleAs<FileObject>(hFile);
    if (file == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if ((flProtect != PAGE_READONLY && flProtect != PAGE_READWRITE) || (lpName != nullptr && *lpName != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    struct stat st {};
    if (::fstat(file->fd(), &st) != 0) {
        setLastErrorFromErrno(errno);
        return nullptr;
    }
    const auto fileSize = static_cast<ULONGLONG>(st.st_size);
    const ULONGLONG mappingSize = size == 0 ? fileSize : size;
    if (mappingSize == 0) {
        SetLastError(ERROR_FILE_INVALID);
        return nullptr;
    }
    const bool writable = flProtect == PAGE_READWRITE;
    if (!writable && mappingSize > fileSize) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (writable) {
        if ((::fcntl(file->fd(), F_GETFL) & O_ACCMODE) != O_RDWR) {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }
        if (!reserveWholeLength(file->fd(), mappingSize)) {
            return nullptr;
        }
        if (mappingSize > fileSize) {
            file->zeroesFrom(fileSize);
        }
    }
    SetLastError(ERROR_SUCCESS);
    const bool readOnlyHandle = (::fcntl(file->fd(), F_GETFL) & O_ACCMODE) == O_RDONLY;
    return new FileMapping(file, mappingSize, writable, !writable && readOnlyHandle);
}

}  // namespace detail

BOOL TakeInPageError() {
    const bool marked = t_bInPageError;
    t_bInPageError = false;
    return marked ? TRUE : FALSE;
}

}  // namespace plat
