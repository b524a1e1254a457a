// Mappings of files: views are private buffers filled by pread and written back by pwrite, which for the
// crypt engine's sequential block work measured faster than mmap views (bench/mapping_bench.cpp) and
// turns a failed read, or a file cut short under a view, into the in-page error without a signal handler.
// The write-back runs behind the caller (posix/write_behind.h), one view at a time.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "files_internal.h"
#include "mapping.h"
#include "plat/errors.h"
#include "plat/file_mapping.h"

namespace plat {

namespace {

using detail::MappedView;
using detail::Mapping;
using detail::WriteBehind;

constexpr std::size_t kPageSize = 4096;

thread_local bool t_bInPageError = false;

std::size_t roundUpToPage(std::size_t bytes) {
    return (bytes + kPageSize - 1) / kPageSize * kPageSize;
}

// Reads `length` bytes at `offset`; false on a read error or when the file ends first (the rest is zero).
bool readFully(int fd, unsigned char* buffer, std::size_t length, ULONGLONG offset) {
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

// One view: a page-aligned buffer of the view's bytes.
class BufferedView : public MappedView {
public:
    BufferedView(FileObject* file, unsigned char* buffer, std::size_t length, ULONGLONG offset, bool writable,
                 bool lastOfMapping)
        : m_pFile(file),
          m_pBuffer(buffer),
          m_nLength(length),
          m_nOffset(offset),
          m_bWritable(writable),
          m_bLastOfMapping(lastOfMapping) {}
    ~BufferedView() override {
        if (m_pBuffer != nullptr) {
            giveViewBuffer(m_pBuffer, roundUpToPage(m_nLength), false);
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
        const WriteBehind::Block block{std::exchange(m_pBuffer, nullptr), roundUpToPage(m_nLength), m_nLength,
                                       m_nOffset};
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
    const std::size_t m_nLength;
    const ULONGLONG m_nOffset;
    const bool m_bWritable;
    const bool m_bLastOfMapping;
};

// A mapping of one file. It keeps the file object alive, as a Windows mapping keeps its file open.
class FileMapping : public Mapping {
public:
    FileMapping(FileObject* file, ULONGLONG size, bool writable)
        : m_pFile(file), m_nSize(size), m_bWritable(writable) {
        m_pFile->addRef();
    }

    std::unique_ptr<MappedView> openView(DWORD access, ULONGLONG offset, std::size_t bytes) override {
        const bool writable = (access & FILE_MAP_WRITE) != 0;
        if ((writable && !m_bWritable) || offset >= m_nSize || bytes > m_nSize - offset) {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }
        const std::size_t length = bytes == 0 ? static_cast<std::size_t>(m_nSize - offset) : bytes;
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
            // The page's tail behind the view reads as zero, as on Windows, and so do the known zeros.
            std::memset(buffer + toRead, 0, roundUpToPage(length) - toRead);
        }
        // Bytes to read back must be in the file first; a view beyond them needs no wait.
        if (toRead > 0 && !m_pFile->finishWrites()) {
            t_bInPageError = true;
        }
        if (!readFully(m_pFile->fd(), buffer, toRead, offset)) {
            t_bInPageError = true;
        }
        return std::make_unique<BufferedView>(m_pFile, buffer, length, offset, writable,
                                              offset + length == m_nSize);
    }

protected:
    ~FileMapping() override { m_pFile->release(); }

private:
    FileObject* const m_pFile;
    const ULONGLONG m_nSize;
    const bool m_bWritable;
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
    return new FileMapping(file, mappingSize, writable);
}

}  // namespace detail

BOOL TakeInPageError() {
    const bool marked = t_bInPageError;
    t_bInPageError = false;
    return marked ? TRUE : FALSE;
}

}  // namespace plat
