#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "files_internal.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/strings.h"

namespace plat {

namespace {

constexpr mode_t kAllWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t kPermissionBits = 0777;

// What CreateFileW decided from its arguments before touching the file system.
struct OpenRequest {
    std::string path;
    int accessFlags = O_RDONLY;
    bool wantsWrite = false;
    DWORD disposition = OPEN_EXISTING;
    DWORD attributes = 0;
    bool privateTemp = false;  // inside the private temporary folder: exclusive, owner-only
};

// The descriptor CreateFileW ends up with, and whether it made the file.
struct OpenedFile {
    int fd = -1;
    bool created = false;
};

// Closes a descriptor without disturbing errno, which the caller still has to report.
void closeKeepingErrno(int fd) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
}

FileObject* fileFromHandle(HANDLE h) {
    FileObject* file = handleAs<FileObject>(h);
    if (file == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return file;
}

// The file behind a handle, for a call that reads, writes or measures its bytes: view bytes still being
// written reach the file first, and a failure to write them fails this call (null with the last error).
FileObject* fileForBytes(HANDLE h) {
    FileObject* file = fileFromHandle(h);
    return file != nullptr && file->finishWrites() ? file : nullptr;
}

// What the umask leaves of this mode is the mode a new file keeps where no exact mode is carried. A
// read-only file gets no write bit from the start (the descriptor that creates it may still write), so
// it needs no second call to take them away. In the private temporary folder the owner alone has a bit,
// whatever the umask takes away.
mode_t creationMode(const OpenRequest& req) {
    const bool exact = (req.attributes & FILE_ATTRIBUTE_UNIX_EXTENSION) != 0;
    const bool readOnly = !exact && (req.attributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (req.privateTemp) {
        return readOnly ? S_IRUSR : S_IRUSR | S_IWUSR;
    }
    return readOnly ? 0444 : 0666;
}

// Creates the file exclusively (never through a link), or opens the existing one when the disposition
// allows it. A file removed between the two tries is created again.
OpenedFile openOrCreate(const OpenRequest& req) {
    const bool mayCreate =
        req.disposition == CREATE_NEW || req.disposition == CREATE_ALWAYS || req.disposition == OPEN_ALWAYS;
    const bool mustCreate =
        req.disposition == CREATE_NEW || (req.privateTemp && req.disposition == CREATE_ALWAYS);
    const int noFollow = req.privateTemp ? O_NOFOLLOW : 0;
    const mode_t initialMode = creationMode(req);
    for (int attempt = 0; attempt < 8; ++attempt) {
        if (mayCreate) {
            const int fd = ::open(req.path.c_str(),
                                  req.accessFlags | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, initialMode);
            if (fd >= 0 || errno != EEXIST || mustCreate) {
                return OpenedFile{fd, fd >= 0};
            }
        }
        const int fd = ::open(req.path.c_str(), req.accessFlags | noFollow | O_CLOEXEC);
        if (fd >= 0 || errno != ENOENT || !mayCreate) {
            return OpenedFile{fd, false};
        }
    }
    return OpenedFile{-1, false};
}

// Windows refuses folders as files, and a read-only file to anyone who wants to write it (root too).
bool existingFileAllowsAccess(int fd, bool wantsWrite) {
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        return false;
    }
    if (S_ISDIR(st.st_mode) || (wantsWrite && S_ISREG(st.st_mode) && (st.st_mode & S_IWUSR) == 0)) {
        errno = EACCES;
        return false;
    }
    return true;
}

bool takeShareLock(int fd, DWORD shareMode) {
    const int operation = (shareMode == 0 ? LOCK_EX : LOCK_SH) | LOCK_NB;
    int result = 0;
    do {
        result = ::flock(fd, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

// Gives a new file its exact mode where one is needed: the carried permission bits, or owner read and
// write in the private temporary folder whatever the umask; read-only takes the write bits away. (A
// read-only file there was created owner-read-only: nothing is left to do.)
bool applyCreationMode(int fd, const OpenRequest& req) {
    const bool readOnly = (req.attributes & FILE_ATTRIBUTE_READONLY) != 0;
    const bool exact = (req.attributes & FILE_ATTRIBUTE_UNIX_EXTENSION) != 0;
    mode_t mode = 0;
    if (req.privateTemp && exact) {
        mode = S_IRUSR | S_IWUSR;
    } else if (!req.privateTemp && exact) {
        mode = static_cast<mode_t>(modeOfAttributes(req.attributes)) & kPermissionBits;
    } else {
        return true;
    }
    if (readOnly) {
        mode &= ~kAllWriteBits;
    }
    return ::fchmod(fd, mode) == 0;
}

// Everything after the descriptor exists: access rules, lock, truncation, mode. On failure the descriptor
// is closed (and a file made here removed) with errno kept for the caller.
bool finishOpen(const OpenRequest& req, const OpenedFile& opened, DWORD shareMode) {
    const bool truncate =
        !opened.created && (req.disposition == CREATE_ALWAYS || req.disposition == TRUNCATE_EXISTING);
    bool ok = (opened.created || existingFileAllowsAccess(opened.fd, req.wantsWrite)) &&
              takeShareLock(opened.fd, shareMode);
    ok = ok && (!truncate || ::ftruncate(opened.fd, 0) == 0);
    ok = ok && (!opened.created || applyCreationMode(opened.fd, req));
    if (!ok) {
        const int saved = errno;
        if (opened.created) {
            ::unlink(req.path.c_str());
        }
        ::close(opened.fd);
        errno = saved;
    }
    return ok;
}

int accessFlagsFor(DWORD access) {
    const bool read = (access & GENERIC_READ) != 0;
    const bool write = (access & GENERIC_WRITE) != 0;
    if (read && write) {
        return O_RDWR;
    }
    return write ? O_WRONLY : O_RDONLY;
}

// Moves the file pointer to `target` (an absolute position) after the checks that Windows makes first.
// With the file's pointer lock held.
bool seekTo(FileObject& file, LONGLONG distance, DWORD moveMethod, off_t& position) {
    off_t base = 0;
    if (moveMethod == FILE_CURRENT) {
        base = file.pointer();
    } else if (moveMethod == FILE_END) {
        struct stat st {};
        base = ::fstat(file.fd(), &st) == 0 ? st.st_size : -1;
    } else if (moveMethod != FILE_BEGIN) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (base < 0) {
        setLastErrorFromErrno(errno);
        return false;
    }
    const LONGLONG target = static_cast<LONGLONG>(base) + distance;
    if (target < 0) {
        SetLastError(ERROR_NEGATIVE_SEEK);
        return false;
    }
    // Beyond the largest size a file may have, Windows too lets the pointer go and fails the next read or
    // write, as pread and pwrite do.
    static_assert(sizeof(off_t) == sizeof(LONGLONG), "64-bit file offsets");
    position = static_cast<off_t>(target);
    file.setPointer(position);
    return true;
}

}  // namespace

FileObject::~FileObject() {
    m_pWriteBehind.reset();  // the last view bytes are written before the descriptor goes
    ::close(m_fd);
}

detail::WriteBehind& FileObject::writeBehind(detail::WriteBehind::Release releaseBuffer) {
    std::lock_guard<std::mutex> lock(m_writerMutex);
    if (m_pWriteBehind == nullptr) {
        m_pWriteBehind = std::make_unique<detail::WriteBehind>(m_fd, releaseBuffer);
    }
    return *m_pWriteBehind;
}

bool FileObject::finishWrites() {
    detail::WriteBehind* writer = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_writerMutex);
        writer = m_pWriteBehind.get();
    }
    return writer == nullptr || writer->finish();
}

void FileObject::zeroesFrom(ULONGLONG offset) {
    ULONGLONG known = m_nZeroFrom.load();
    while (offset < known && !m_nZeroFrom.compare_exchange_weak(known, offset)) {
    }
}

void FileObject::wroteUpTo(ULONGLONG end) {
    // Behind `end` the zeros stay; before it nothing is known any more (a single mark, not a list of runs).
    ULONGLONG known = m_nZeroFrom.load();
    while (known != kZeroUnknown && end > known && !m_nZeroFrom.compare_exchange_weak(known, end)) {
    }
}

DWORD attributesFromStat(const struct stat& st) {
    DWORD attributes = 0;
    if (S_ISDIR(st.st_mode)) {
        attributes |= FILE_ATTRIBUTE_DIRECTORY;
    }
    if ((st.st_mode & S_IWUSR) == 0) {
        attributes |= FILE_ATTRIBUTE_READONLY;
    }
    if (attributes == 0) {
        attributes = FILE_ATTRIBUTE_NORMAL;
    }
    return attributes | FILE_ATTRIBUTE_UNIX_EXTENSION | (static_cast<DWORD>(st.st_mode & 0xFFFF) << 16);
}

FILETIME fileTimeFromTimespec(const struct timespec& ts) {
    constexpr LONGLONG kSecondsFrom1601To1970 = 11644473600LL;
    const LONGLONG ticks =
        (static_cast<LONGLONG>(ts.tv_sec) + kSecondsFrom1601To1970) * 10000000LL + ts.tv_nsec / 100;
    const auto unsignedTicks = static_cast<ULONGLONG>(ticks);
    return FILETIME{static_cast<DWORD>(unsignedTicks & 0xFFFFFFFFu), static_cast<DWORD>(unsignedTicks >> 32)};
}

std::string parentFolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

HANDLE CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                   LPSECURITY_ATTRIBUTES /*lpSecurityAttributes*/, DWORD dwCreationDisposition,
                   DWORD dwFlagsAndAttributes, HANDLE /*hTemplateFile*/) {
    if (lpFileName == nullptr || dwCreationDisposition < CREATE_NEW ||
        dwCreationDisposition > TRUNCATE_EXISTING ||
        (dwCreationDisposition == TRUNCATE_EXISTING && (dwDesiredAccess & GENERIC_WRITE) == 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    OpenRequest req;
    req.path = toUtf8(lpFileName);
    if (req.path.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    req.accessFlags = accessFlagsFor(dwDesiredAccess);
    req.wantsWrite = (dwDesiredAccess & GENERIC_WRITE) != 0;
    req.disposition = dwCreationDisposition;
    req.attributes = dwFlagsAndAttributes;
    req.privateTemp = parentFolderOf(req.path) == privateTempFolderPath();

    const OpenedFile opened = openOrCreate(req);
    if (opened.fd < 0 || !finishOpen(req, opened, dwShareMode)) {
        setLastErrorFromErrno(errno, req.path);
        return INVALID_HANDLE_VALUE;
    }
    const bool existed =
        !opened.created && (dwCreationDisposition == CREATE_ALWAYS || dwCreationDisposition == OPEN_ALWAYS);
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return new FileObject(opened.fd);
}

BOOL ReadFile(HANDLE hFile, void* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead,
              LPOVERLAPPED lpOverlapped) {
    if (lpNumberOfBytesRead != nullptr) {
        *lpNumberOfBytesRead = 0;
    }
    FileObject* file = fileForBytes(hFile);
    if (file == nullptr) {
        return FALSE;
    }
    if (lpOverlapped != nullptr || (lpBuffer == nullptr && nNumberOfBytesToRead != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto* bytes = static_cast<unsigned char*>(lpBuffer);
    const std::lock_guard<std::mutex> lock(file->pointerMutex());
    DWORD done = 0;
    while (done < nNumberOfBytesToRead) {
        const ssize_t n = ::pread(file->fd(), bytes + done, nNumberOfBytesToRead - done, file->pointer());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            setLastErrorFromErrno(errno);
            return FALSE;
        }
        if (n == 0) {
            break;
        }
        done += static_cast<DWORD>(n);
        file->setPointer(file->pointer() + n);
        if (lpNumberOfBytesRead != nullptr) {
            *lpNumberOfBytesRead = done;
        }
    }
    return TRUE;
}

BOOL WriteFile(HANDLE hFile, const void* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten,
               LPOVERLAPPED lpOverlapped) {
    if (lpNumberOfBytesWritten != nullptr) {
        *lpNumberOfBytesWritten = 0;
    }
    FileObject* file = fileForBytes(hFile);
    if (file == nullptr) {
        return FALSE;
    }
    if (lpOverlapped != nullptr || (lpBuffer == nullptr && nNumberOfBytesToWrite != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::lock_guard<std::mutex> lock(file->pointerMutex());
    if (file->zeroFrom() != FileObject::kZeroUnknown) {
        file->wroteUpTo(static_cast<ULONGLONG>(file->pointer()) + nNumberOfBytesToWrite);
    }
    const auto* bytes = static_cast<const unsigned char*>(lpBuffer);
    DWORD done = 0;
    while (done < nNumberOfBytesToWrite) {
        const ssize_t n = ::pwrite(file->fd(), bytes + done, nNumberOfBytesToWrite - done, file->pointer());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            setLastErrorFromErrno(n < 0 ? errno : ENOSPC);
            return FALSE;
        }
        done += static_cast<DWORD>(n);
        file->setPointer(file->pointer() + n);
        if (lpNumberOfBytesWritten != nullptr) {
            *lpNumberOfBytesWritten = done;
        }
    }
    return TRUE;
}

DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG* lpDistanceToMoveHigh, DWORD dwMoveMethod) {
    FileObject* file = fileFromHandle(hFile);
    if (file == nullptr) {
        return INVALID_SET_FILE_POINTER;
    }
    LONGLONG distance = lDistanceToMove;
    if (lpDistanceToMoveHigh != nullptr) {
        const auto high = static_cast<ULONGLONG>(static_cast<DWORD>(*lpDistanceToMoveHigh)) << 32;
        distance = static_cast<LONGLONG>(high | static_cast<DWORD>(lDistanceToMove));
    }
    const std::lock_guard<std::mutex> lock(file->pointerMutex());
    const off_t before = file->pointer();
    off_t position = 0;
    if (!seekTo(*file, distance, dwMoveMethod, position)) {
        return INVALID_SET_FILE_POINTER;
    }
    if (lpDistanceToMoveHigh == nullptr && position > static_cast<off_t>(0xFFFFFFFE)) {
        file->setPointer(before);
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    if (lpDistanceToMoveHigh != nullptr) {
        *lpDistanceToMoveHigh = static_cast<LONG>(static_cast<ULONGLONG>(position) >> 32);
    }
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(static_cast<ULONGLONG>(position) & 0xFFFFFFFFu);
}

BOOL SetFilePointerEx(HANDLE hFile, LARGE_INTEGER liDistanceToMove, PLARGE_INTEGER lpNewFilePointer,
                      DWORD dwMoveMethod) {
    FileObject* file = fileFromHandle(hFile);
    if (file == nullptr) {
        return FALSE;
    }
    const std::lock_guard<std::mutex> lock(file->pointerMutex());
    off_t position = 0;
    if (!seekTo(*file, liDistanceToMove.QuadPart, dwMoveMethod, position)) {
        return FALSE;
    }
    if (lpNewFilePointer != nullptr) {
        lpNewFilePointer->QuadPart = position;
    }
    return TRUE;
}

BOOL SetEndOfFile(HANDLE hFile) {
    FileObject* file = fileForBytes(hFile);
    if (file == nullptr) {
        return FALSE;
    }
    const std::lock_guard<std::mutex> lock(file->pointerMutex());
    const off_t position = file->pointer();
    struct stat before {};
    if (::fstat(file->fd(), &before) != 0 || ::ftruncate(file->fd(), position) != 0) {
        setLastErrorFromErrno(errno);
        return FALSE;
    }
    // Whether cut or extended, the file holds only zeros from the shorter of its two ends on.
    file->zeroesFrom(static_cast<ULONGLONG>(std::min<off_t>(position, before.st_size)));
    return TRUE;
}

namespace {

// The stat of the file behind a handle, for a call that reports into `output` (a null one is refused).
bool statOfHandle(HANDLE hFile, const void* output, struct stat& st) {
    FileObject* file = fileForBytes(hFile);
    if (file == nullptr) {
        return false;
    }
    if (output == nullptr || ::fstat(file->fd(), &st) != 0) {
        setLastErrorFromErrno(output == nullptr ? EINVAL : errno);
        return false;
    }
    return true;
}

}  // namespace

BOOL GetFileSizeEx(HANDLE hFile, PLARGE_INTEGER lpFileSize) {
    struct stat st {};
    if (!statOfHandle(hFile, lpFileSize, st)) {
        return FALSE;
    }
    lpFileSize->QuadPart = st.st_size;
    return TRUE;
}

BOOL GetFileInformationByHandle(HANDLE hFile, LPBY_HANDLE_FILE_INFORMATION lpFileInformation) {
    struct stat st {};
    if (!statOfHandle(hFile, lpFileInformation, st)) {
        return FALSE;
    }
    const auto device = static_cast<ULONGLONG>(st.st_dev);
    const auto index = static_cast<ULONGLONG>(st.st_ino);
    const auto size = static_cast<ULONGLONG>(st.st_size);
    BY_HANDLE_FILE_INFORMATION& info = *lpFileInformation;
    info.dwFileAttributes = attributesFromStat(st);
    info.ftCreationTime = fileTimeFromTimespec(st.st_mtim);
    info.ftLastAccessTime = fileTimeFromTimespec(st.st_atim);
    info.ftLastWriteTime = fileTimeFromTimespec(st.st_mtim);
    info.dwVolumeSerialNumber = static_cast<DWORD>(device ^ (device >> 32));
    info.nFileSizeHigh = static_cast<DWORD>(size >> 32);
    info.nFileSizeLow = static_cast<DWORD>(size);
    info.nNumberOfLinks = static_cast<DWORD>(st.st_nlink);
    info.nFileIndexHigh = static_cast<DWORD>(index >> 32);
    info.nFileIndexLow = static_cast<DWORD>(index);
    return TRUE;
}

DWORD GetFileSize(HANDLE hFile, DWORD* lpFileSizeHigh) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(hFile, &size)) {
        return INVALID_FILE_SIZE;
    }
    const auto bytes = static_cast<ULONGLONG>(size.QuadPart);
    if (lpFileSizeHigh != nullptr) {
        *lpFileSizeHigh = static_cast<DWORD>(bytes >> 32);
    }
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(bytes & 0xFFFFFFFFu);
}

BOOL FlushFileBuffers(HANDLE hFile) {
    FileObject* file = fileForBytes(hFile);
    if (file == nullptr) {
        return FALSE;
    }
    if (::fsync(file->fd()) != 0) {
        setLastErrorFromErrno(errno);
        return FALSE;
    }
    return TRUE;
}

DWORD GetFileAttributesW(LPCWSTR lpFileName) {
    if (lpFileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_FILE_ATTRIBUTES;
    }
    const std::string path = toUtf8(lpFileName);
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        setLastErrorFromErrno(errno, path);
        return INVALID_FILE_ATTRIBUTES;
    }
    return attributesFromStat(st);
}

BOOL SetFileAttributesW(LPCWSTR lpFileName, DWORD dwFileAttributes) {
    if (lpFileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string path = toUtf8(lpFileName);
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        setLastErrorFromErrno(errno, path);
        return FALSE;
    }
    mode_t mode = st.st_mode & 07777;
    if ((dwFileAttributes & FILE_ATTRIBUTE_UNIX_EXTENSION) != 0) {
        mode = static_cast<mode_t>(modeOfAttributes(dwFileAttributes)) & 07777;
    } else if ((dwFileAttributes & FILE_ATTRIBUTE_READONLY) == 0) {
        mode |= S_IWUSR;
    }
    if ((dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0) {
        mode &= ~kAllWriteBits;
    }
    if (::chmod(path.c_str(), mode) != 0) {
        setLastErrorFromErrno(errno, path);
        return FALSE;
    }
    return TRUE;
}

BOOL DeleteFileW(LPCWSTR lpFileName) {
    if (lpFileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string path = toUtf8(lpFileName);
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        setLastErrorFromErrno(errno, path);
        return FALSE;
    }
    if (S_ISDIR(st.st_mode) || (S_ISREG(st.st_mode) && (st.st_mode & S_IWUSR) == 0)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (::unlink(path.c_str()) != 0) {
        setLastErrorFromErrno(errno, path);
        return FALSE;
    }
    return TRUE;
}

namespace {

// Copies every byte from one descriptor to the other; errno tells why not.
bool copyBytes(int from, int to) {
    unsigned char buffer[65536];
    for (;;) {
        ssize_t n = ::read(from, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return n == 0;
        }
        for (ssize_t done = 0; done < n;) {
            const ssize_t written = ::write(to, buffer + done, static_cast<std::size_t>(n - done));
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written <= 0) {
                errno = written < 0 ? errno : ENOSPC;
                return false;
            }
            done += written;
        }
    }
}

// Windows refuses to overwrite a read-only file or a folder; with failIfExists anything there is refused.
bool targetMayBeReplaced(const std::string& target, bool failIfExists) {
    struct stat st {};
    if (::lstat(target.c_str(), &st) != 0) {
        return true;
    }
    errno = failIfExists ? EEXIST : EACCES;
    return !failIfExists && !S_ISDIR(st.st_mode) && (st.st_mode & S_IWUSR) != 0;
}

// Puts the finished temporary file in place; with failIfExists never over a file that appeared meanwhile.
bool moveIntoPlace(const std::string& temp, const std::string& target, bool failIfExists) {
    if (!failIfExists) {
        return ::rename(temp.c_str(), target.c_str()) == 0;
    }
    if (::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // File systems without RENAME_NOREPLACE: a hard link fails on an existing name just the same.
    if (::link(temp.c_str(), target.c_str()) != 0) {
        return false;
    }
    ::unlink(temp.c_str());
    return true;
}

// Writes the copy under a fresh, exclusively created sibling name and renames it over the target.
bool copyThroughSibling(int source, mode_t mode, const std::string& target, bool failIfExists) {
    std::string temp = parentFolderOf(target) + "/.velq-copy-XXXXXX";
    const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    bool ok = copyBytes(source, fd) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
    if (!ok) {
        closeKeepingErrno(fd);
    } else {
        ok = ::close(fd) == 0 && moveIntoPlace(temp, target, failIfExists);
    }
    if (!ok) {
        const int saved = errno;
        ::unlink(temp.c_str());
        errno = saved;
    }
    return ok;
}

}  // namespace

BOOL CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName, BOOL bFailIfExists) {
    if (lpExistingFileName == nullptr || lpNewFileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string source = toUtf8(lpExistingFileName);
    const std::string target = toUtf8(lpNewFileName);
    const int fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        setLastErrorFromErrno(errno, source);
        return FALSE;
    }
    struct stat st {};
    const bool sourceReady =
        existingFileAllowsAccess(fd, false) && takeShareLock(fd, FILE_SHARE_READ) && ::fstat(fd, &st) == 0;
    if (!sourceReady) {
        setLastErrorFromErrno(errno, source);
        closeKeepingErrno(fd);
        return FALSE;
    }
    const bool copied = targetMayBeReplaced(target, bFailIfExists != FALSE) &&
                        copyThroughSibling(fd, st.st_mode & 07777, target, bFailIfExists != FALSE);
    if (!copied) {
        setLastErrorFromErrno(errno, target);
    }
    ::close(fd);
    return copied ? TRUE : FALSE;
}

}  // namespace plat
