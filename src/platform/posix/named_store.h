// The store behind named objects: one file per name in the runtime folder, the folder's state lock, the
// liveness of processes, and the rule that turns an object's name into a file name. The form on disk is
// described in docs/NAMED_OBJECTS.md; keep the two in step.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "plat/types.h"

namespace plat::detail {

// Byte 0 of the lock file is the state lock; byte <pid> is held by process <pid> while it lives.
inline constexpr const char* kLockFileName = ".lock";
// Object files keep their state in the first 64 bytes; a mapping's bytes start at kMappingDataOffset.
inline constexpr std::uint64_t kMappingDataOffset = 4096;

enum class ObjectKind : std::uint32_t { Mutex = 1, Event = 2, Mapping = 3 };

// The state record at offset 0 of every object file, little-endian.
struct ObjectState {
    char magic[8];                    // "VELQOBJ" and a NUL
    std::uint32_t version;            // 1
    std::uint32_t kind;               // ObjectKind
    std::uint64_t mappingSize;        // mapping: bytes of data
    std::uint32_t eventManualReset;   // event: 1 manual reset, 0 auto-reset
    std::uint32_t eventSignalled;     // event: 1 set
    std::uint32_t eventTurnHolder;    // auto-reset event: pid holding the turn, 0 none
    std::uint32_t mutexOwnerProcess;  // mutex: owner's pid, 0 none
    std::uint32_t mutexOwnerThread;   // mutex: owner's thread id within its process
    std::uint32_t mutexRecursion;     // mutex: how often the owner has taken it
    std::uint32_t reserved[4];
};
static_assert(sizeof(ObjectState) == 64);

ObjectState freshState(ObjectKind kind);

// One runtime folder as this process uses it. Immortal (objects keep pointers to it). After fork() the
// child drops what it inherited and opens the folder anew, so that a parent's death is seen by the child.
class RuntimeFolder {
public:
    // The folder for the current environment; null with the last error set.
    static RuntimeFolder* current();

    int dirFd();
    // The state lock over every object of the folder, between processes and between threads. Recursive
    // within the thread that holds it.
    void lock();
    void unlock();
    // Whether process `pid` lives and uses this folder; the caller's own pid always lives.
    bool isAlive(std::uint32_t pid);

    void dropInheritedDescriptors();

private:
    RuntimeFolder(std::string path, int dirFd);
    bool reopenIfForked();

    const std::string m_szPath;
    int m_nDirFd;
    int m_nLockFd = -1;
    pid_t m_nPid = 0;
    std::recursive_mutex* m_pMutex;
    int m_nDepth = 0;
};

class FolderLock {
public:
    explicit FolderLock(RuntimeFolder* folder) : m_pFolder(folder) { m_pFolder->lock(); }
    ~FolderLock() { m_pFolder->unlock(); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    RuntimeFolder* m_pFolder;
};

// The file name for an object name: "Local\"/"Global\" dropped; "/", "%" and a leading "." escaped as %2F,
// %25, %2E; a result above 255 bytes cut and ended by "%h" and 16 hex digits of the FNV-1a 64 hash of the
// name's UTF-16LE bytes. Empty with ERROR_PATH_NOT_FOUND for a name with another "\", ERROR_INVALID_PARAMETER
// for an empty one.
std::string objectFileName(std::u16string_view name);

// One handle's hold on an object file: its descriptor carries a shared lock on byte 0 while it is open
// (so the name exists). Closing the last hold removes the file.
class ObjectFile {
public:
    // Opens or (with `create`) creates the object `name` (null or empty: an object without a name, of
    // this process only). A file nobody holds counts as absent and is made anew from `initial`.
    // `existed` tells whether it was held already. Null with the last error on failure.
    static std::unique_ptr<ObjectFile> open(LPCWSTR name, ObjectKind kind, bool create,
                                            const ObjectState& initial, bool& existed);
    ~ObjectFile();
    ObjectFile(const ObjectFile&) = delete;
    ObjectFile& operator=(const ObjectFile&) = delete;

    RuntimeFolder* folder() const { return m_pFolder; }
    int fd() const { return m_nFd; }
    // With the folder lock held.
    ObjectState read() const;
    void write(const ObjectState& state) const;

private:
    ObjectFile(RuntimeFolder* folder, int fd, std::string fileName);

    RuntimeFolder* const m_pFolder;
    int m_nFd;
    const std::string m_szFileName;  // empty for an object without a name
    const pid_t m_nPid;              // a forked child only closes what it inherited
};

}  // namespace plat::detail
