#include "named_store.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <vector>

#include "plat/errors.h"
#include "plat/strings.h"
#include "process_owner.h"
#include "runtime_dir.h"

namespace plat::detail {

static_assert(std::endian::native == std::endian::little, "object files are little-endian");

namespace {

constexpr char kMagic[8] = {'V', 'E', 'L', 'Q', 'O', 'B', 'J', '\0'};
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kMaxFileName = 255;      // NAME_MAX of the file systems we run on
constexpr std::size_t kHashSuffixLength = 18;  // "%h" and 16 hex digits

struct flock byteRange(short type, off_t start) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = 1;
    return range;
}

// Open-file-description locks belong to one handle's descriptor and vanish with it or with its process,
// which is exactly the life of a Windows handle.
bool lockByte(int fd, short type, off_t start, bool wait) {
    struct flock range = byteRange(type, start);
    for (;;) {
        if (::fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &range) == 0) {
            return true;
        }
        if (errno != EINTR) {
            return false;
        }
    }
}

// Whether a descriptor other than `fd` holds any lock on byte `start`.
bool isByteHeldElsewhere(int fd, off_t start) {
    struct flock range = byteRange(F_WRLCK, start);
    if (::fcntl(fd, F_OFD_GETLK, &range) != 0) {
        return false;
    }
    return range.l_type != F_UNLCK;
}

std::mutex& registryMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::vector<RuntimeFolder*>& registry() {
    static auto* folders = new std::vector<RuntimeFolder*>;
    return *folders;
}

void dropInheritedInChild() {
    for (RuntimeFolder* folder : registry()) {
        folder->dropInheritedDescriptors();
    }
}

bool isSameFolder(int a, int b) {
    struct stat sa {};
    struct stat sb {};
    return ::fstat(a, &sa) == 0 && ::fstat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

std::u16string_view withoutNamespace(std::u16string_view name) {
    for (std::u16string_view prefix : {std::u16string_view(u"Local\\"), std::u16string_view(u"Global\\")}) {
        if (name.substr(0, prefix.size()) == prefix) {
            return name.substr(prefix.size());
        }
    }
    return name;
}

std::uint64_t fnv1a64(std::u16string_view text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (char16_t unit : text) {
        for (unsigned byte : {static_cast<unsigned>(unit & 0xFF), static_cast<unsigned>(unit >> 8)}) {
            hash ^= byte;
            hash *= 1099511628211ull;
        }
    }
    return hash;
}

// The UTF-8 text cut into the escaped pieces of its characters.
std::vector<std::string> escapedPieces(const std::string& utf8) {
    std::vector<std::string> pieces;
    for (std::size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        const char c = utf8[i];
        if (c == '/') {
            pieces.emplace_back("%2F");
        } else if (c == '%') {
            pieces.emplace_back("%25");
        } else if (c == '.' && i == 0) {
            pieces.emplace_back("%2E");
        } else {
            pieces.push_back(utf8.substr(i, length));
        }
        i += length;
    }
    return pieces;
}

bool isOwnRegularFile(int fd) {
    struct stat st {};
    return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == detail::processOwnerUid();
}

bool isFileAt(int dirFd, const std::string& fileName, int fd) {
    struct stat there {};
    struct stat held {};
    return ::fstatat(dirFd, fileName.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 && ::fstat(fd, &held) == 0 &&
           there.st_dev == held.st_dev && there.st_ino == held.st_ino;
}

bool hasOurForm(const ObjectState& state) {
    return std::memcmp(state.magic, kMagic, sizeof(kMagic)) == 0 && state.version == kVersion;
}

DWORD errorOfOpen(int err) {
    // O_NOFOLLOW meets a link with ELOOP: somebody placed it there, so it is refused.
    return err == ELOOP ? ERROR_ACCESS_DENIED : errorFromErrno(err);
}

// A new object's file: its state, and for a mapping its bytes reserved, so that a full folder fails
// here and never as a fault in a view.
bool initializeFile(int fd, const ObjectState& initial) {
    if (::ftruncate(fd, 0) != 0) {
        setLastErrorFromErrno(errno);
        return false;
    }
    if (::pwrite(fd, &initial, sizeof(initial), 0) != static_cast<ssize_t>(sizeof(initial))) {
        setLastErrorFromErrno(errno == 0 ? ENOSPC : errno);
        return false;
    }
    if (initial.kind == static_cast<std::uint32_t>(ObjectKind::Mapping)) {
        const int err =
            ::posix_fallocate(fd, 0, static_cast<off_t>(kMappingDataOffset + initial.mappingSize));
        if (err != 0) {
            SetLastError(err == ENOSPC || err == EFBIG ? ERROR_DISK_FULL : errorFromErrno(err));
            return false;
        }
    }
    return true;
}

}  // namespace

ObjectState freshState(ObjectKind kind) {
    ObjectState state{};
    std::memcpy(state.magic, kMagic, sizeof(kMagic));
    state.version = kVersion;
    state.kind = static_cast<std::uint32_t>(kind);
    return state;
}

RuntimeFolder::RuntimeFolder(std::string path, int dirFd)
    : m_szPath(std::move(path)), m_nDirFd(dirFd), m_pMutex(new std::recursive_mutex) {}

RuntimeFolder* RuntimeFolder::current() {
    std::string path;
    const int dirFd = openRuntimeFolder(path);
    if (dirFd < 0) {
        return nullptr;
    }
    std::lock_guard<std::mutex> guard(registryMutex());
    static const bool s_bForkHandled = ::pthread_atfork(nullptr, nullptr, dropInheritedInChild) == 0;
    (void)s_bForkHandled;
    // The newest folder of a path comes last; an older one whose folder was replaced stays for its objects.
    for (auto it = registry().rbegin(); it != registry().rend(); ++it) {
        if ((*it)->m_szPath == path && isSameFolder((*it)->m_nDirFd, dirFd)) {
            ::close(dirFd);
            return *it;
        }
    }
    auto* folder = new RuntimeFolder(path, dirFd);
    registry().push_back(folder);
    return folder;
}

int RuntimeFolder::dirFd() {
    return m_nDirFd;
}

void RuntimeFolder::dropInheritedDescriptors() {
    // The parent's descriptor shares its locks: held by the child, it would keep a dead parent alive.
    if (m_nLockFd >= 0) {
        ::close(m_nLockFd);
        m_nLockFd = -1;
    }
    m_pMutex = new std::recursive_mutex;  // the parent's may be held by a thread the child does not have
    m_nDepth = 0;
    m_nPid = 0;
}

bool RuntimeFolder::reopenIfForked() {
    if (m_nPid == ::getpid() && m_nLockFd >= 0) {
        return true;
    }
    if (m_nLockFd >= 0) {
        ::close(m_nLockFd);
    }
    m_nPid = ::getpid();
    m_nLockFd = ::openat(m_nDirFd, kLockFileName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (m_nLockFd < 0) {
        return false;
    }
    // Our life sign: held until the process ends.
    lockByte(m_nLockFd, F_WRLCK, m_nPid, false);
    return true;
}

void RuntimeFolder::lock() {
    m_pMutex->lock();
    if (m_nDepth++ == 0 && reopenIfForked()) {
        lockByte(m_nLockFd, F_WRLCK, 0, true);
    }
}

void RuntimeFolder::unlock() {
    if (--m_nDepth == 0 && m_nLockFd >= 0) {
        lockByte(m_nLockFd, F_UNLCK, 0, false);
    }
    m_pMutex->unlock();
}

bool RuntimeFolder::isAlive(std::uint32_t pid) {
    if (pid == static_cast<std::uint32_t>(::getpid())) {
        return true;
    }
    FolderLock lock(this);
    if (m_nLockFd < 0) {
        return true;  // without the lock file nobody can be declared dead
    }
    return isByteHeldElsewhere(m_nLockFd, static_cast<off_t>(pid));
}

std::string objectFileName(std::u16string_view name) {
    const std::u16string_view own = withoutNamespace(name);
    if (own.find(u'\\') != std::u16string_view::npos) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return {};
    }
    if (own.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return {};
    }
    const std::vector<std::string> pieces = escapedPieces(toUtf8(own));
    std::string fileName;
    for (const std::string& piece : pieces) {
        fileName += piece;
    }
    if (fileName.size() <= kMaxFileName) {
        return fileName;
    }
    fileName.clear();
    for (const std::string& piece : pieces) {
        if (fileName.size() + piece.size() > kMaxFileName - kHashSuffixLength) {
            break;
        }
        fileName += piece;
    }
    static constexpr char kHex[] = "0123456789abcdef";
    const std::uint64_t hash = fnv1a64(own);
    fileName += "%h";
    for (int shift = 60; shift >= 0; shift -= 4) {
        fileName += kHex[(hash >> shift) & 0xF];
    }
    return fileName;
}

ObjectFile::ObjectFile(RuntimeFolder* folder, int fd, std::string fileName)
    : m_pFolder(folder), m_nFd(fd), m_szFileName(std::move(fileName)), m_nPid(::getpid()) {}

std::unique_ptr<ObjectFile> ObjectFile::open(LPCWSTR name, ObjectKind kind, bool create,
                                             const ObjectState& initial, bool& existed) {
    const bool named = name != nullptr && *name != u'\0';
    std::string fileName;
    if (named) {
        fileName = objectFileName(name);
        if (fileName.empty()) {
            return nullptr;
        }
    } else if (!create) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    RuntimeFolder* folder = RuntimeFolder::current();
    if (folder == nullptr) {
        return nullptr;
    }
    // Creation, opening and the last close all run under the state lock, so that a name is never made
    // anew while another process is opening it.
    FolderLock lock(folder);
    const int fd = named ? ::openat(folder->dirFd(), fileName.c_str(),
                                    O_RDWR | O_NOFOLLOW | O_CLOEXEC | (create ? O_CREAT : 0), 0600)
                         : ::openat(folder->dirFd(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {
        SetLastError(errorOfOpen(errno));
        return nullptr;
    }
    std::unique_ptr<ObjectFile> file(new ObjectFile(folder, fd, fileName));
    if (!isOwnRegularFile(fd)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    existed = isByteHeldElsewhere(fd, 0);
    if (!existed) {
        if (!create) {
            SetLastError(
                ERROR_FILE_NOT_FOUND);  // left behind by processes that died; the destructor removes it
            return nullptr;
        }
        if (!initializeFile(fd, initial)) {
            return nullptr;
        }
    } else {
        const ObjectState state = file->read();
        if (!hasOurForm(state) || state.kind != static_cast<std::uint32_t>(kind)) {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
    }
    if (!lockByte(fd, F_RDLCK, 0, false)) {
        setLastErrorFromErrno(errno);
        return nullptr;
    }
    return file;
}

ObjectFile::~ObjectFile() {
    if (m_nPid != ::getpid() || m_szFileName.empty()) {
        ::close(m_nFd);  // a forked child's copy, or a nameless object: no name to take away
        return;
    }
    FolderLock lock(m_pFolder);
    // Our own lock does not count here: the name goes when nobody else holds it.
    if (!isByteHeldElsewhere(m_nFd, 0) && isFileAt(m_pFolder->dirFd(), m_szFileName, m_nFd)) {
        ::unlinkat(m_pFolder->dirFd(), m_szFileName.c_str(), 0);
    }
    // Closed under the lock: another last holder closing at the same moment must not find our lock
    // still there after we found its own, or neither of the two would take the name away.
    ::close(m_nFd);
}

ObjectState ObjectFile::read() const {
    ObjectState state{};
    if (::pread(m_nFd, &state, sizeof(state), 0) != static_cast<ssize_t>(sizeof(state))) {
        std::memset(&state, 0, sizeof(state));
    }
    return state;
}

void ObjectFile::write(const ObjectState& state) const {
    // A short write cannot happen within the first block of a file that already has that block.
    (void)::pwrite(m_nFd, &state, sizeof(state), 0);
}

}  // namespace plat::detail
