// What the file calls share inside the POSIX platform layer: the file object behind a file handle, the
// attribute and time conversions, and the private temporary folder's path.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "plat/files.h"
#include "plat/handle.h"
#include "write_behind.h"

namespace plat {

// An open file: its descriptor, and with it the flock that CreateFileW took. Closing the last handle
// closes the descriptor, which releases the lock.
class FileObject : public KernelObject {
public:
    explicit FileObject(int fd) : m_fd(fd) {}
    int fd() const { return m_fd; }

    // What this handle knows of the file's zeros: every byte at or after zeroFrom() reads as zero, as far
    // as writes through this handle and its views go (kZeroUnknown: nothing known). A reserved
    // destination is known to be zero behind its old end, so views of it need not read those bytes back
    // (they would come from the medium as freshly zeroed pages). Writers through other handles are not
    // seen: the crypt engine opens its destinations without write sharing.
    static constexpr ULONGLONG kZeroUnknown = ~0ULL;
    ULONGLONG zeroFrom() const { return m_nZeroFrom.load(); }
    // The bytes from `offset` on are zero now (a reservation behind the old end, a truncation).
    void zeroesFrom(ULONGLONG offset);
    // Bytes up to `end` may have been written.
    void wroteUpTo(ULONGLONG end);

    // The handle's file pointer. It lives here rather than in the descriptor, so that reads and writes
    // are pread and pwrite at it and a seek costs no system call (a small file's pass seeks several times
    // and every call counts in a folder of thousands of files). The lock keeps a read or write and its
    // move of the pointer one step, as the kernel does for a shared descriptor.
    std::mutex& pointerMutex() { return m_pointerMutex; }
    off_t pointer() const { return m_nPointer; }    // with pointerMutex() held
    void setPointer(off_t to) { m_nPointer = to; }  // with pointerMutex() held

    // The writer of this file's unmapped views (posix/file_mapping.cpp), made at the first call.
    detail::WriteBehind& writeBehind(detail::WriteBehind::Release releaseBuffer);
    // Waits for view bytes still being written, so that what follows sees them in the file. False with the
    // last error when they could not be written: the failure surfaces at the next call on the file.
    bool finishWrites();

protected:
    ~FileObject() override;

private:
    const int m_fd;
    std::atomic<ULONGLONG> m_nZeroFrom{kZeroUnknown};
    std::mutex m_pointerMutex;
    off_t m_nPointer = 0;
    std::mutex m_writerMutex;
    std::unique_ptr<detail::WriteBehind> m_pWriteBehind;  // guarded by m_writerMutex; set once
};

// Attributes as GetFileAttributesW reports them for a stat result.
DWORD attributesFromStat(const struct stat& st);

FILETIME fileTimeFromTimespec(const struct timespec& ts);

// ${TMPDIR:-/tmp}/velq-<uid> without the final "/", as a UTF-8 path; nothing is created or checked.
std::string privateTempFolderPath();

// The folder part of a path ("." for a bare name, "/" for a name just under the root).
std::string parentFolderOf(const std::string& path);

}  // namespace plat
