// The view table and the named mapping backed by the paging file: its bytes lie in its object file,
// behind the state record, and views are shared mmap views of them.
#include "mapping.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>

#include "named_store.h"
#include "plat/errors.h"
#include "plat/named.h"

namespace plat {

namespace {

using detail::MappedView;
using detail::Mapping;
using detail::ObjectFile;
using detail::ObjectKind;
using detail::ObjectState;

constexpr ULONGLONG kAllocationGranularity = 65536;
constexpr std::size_t kPageSize = 4096;

std::size_t roundUpToPage(std::size_t bytes) {
    return (bytes + kPageSize - 1) / kPageSize * kPageSize;
}

class SharedView : public MappedView {
public:
    SharedView(void* address, std::size_t length, bool writable)
        : m_pAddress(address), m_nLength(length), m_bWritable(writable) {}
    ~SharedView() override { close(); }

    void* address() const override { return m_pAddress; }
    std::size_t regionSize() const override { return roundUpToPage(m_nLength); }
    bool isWritable() const override { return m_bWritable; }
    bool close() override {
        if (m_pAddress != nullptr && ::munmap(m_pAddress, m_nLength) != 0) {
            setLastErrorFromErrno(errno);
            return false;
        }
        m_pAddress = nullptr;
        return true;
    }

private:
    void* m_pAddress;
    const std::size_t m_nLength;
    const bool m_bWritable;
};

class NamedMapping : public Mapping {
public:
    NamedMapping(std::unique_ptr<ObjectFile> file, bool writable)
        : m_file(std::move(file)), m_bWritable(writable) {
        detail::FolderLock lock(m_file->folder());
        m_nSize = m_file->read().mappingSize;
    }

    std::unique_ptr<MappedView> openView(DWORD access, ULONGLONG offset, std::size_t bytes) override {
        const bool writable = (access & FILE_MAP_WRITE) != 0;
        if ((writable && !m_bWritable) || offset > m_nSize || (bytes == 0 && offset == m_nSize) ||
            bytes > m_nSize - offset || !holdsBytes(offset + (bytes == 0 ? m_nSize - offset : bytes))) {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }
        const std::size_t length = bytes == 0 ? static_cast<std::size_t>(m_nSize - offset) : bytes;
        void* address = ::mmap(nullptr, length, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED,
                               m_file->fd(), static_cast<off_t>(detail::kMappingDataOffset + offset));
        if (address == MAP_FAILED) {
            setLastErrorFromErrno(errno);
            return nullptr;
        }
        return std::make_unique<SharedView>(address, length, writable);
    }

private:
    // A file cut short by someone else must fail here, not fault in a view.
    bool holdsBytes(ULONGLONG end) const {
        struct stat st {};
        return ::fstat(m_file->fd(), &st) == 0 &&
               static_cast<ULONGLONG>(st.st_size) >= detail::kMappingDataOffset + end;
    }

    const std::unique_ptr<ObjectFile> m_file;
    const bool m_bWritable;
    ULONGLONG m_nSize = 0;
};

// Every live view by base address, with the reference it keeps on its mapping.
struct ViewEntry {
    Mapping* mapping;
    std::unique_ptr<MappedView> view;
};

std::mutex& viewsMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::map<const void*, ViewEntry>& views() {
    static auto* table = new std::map<const void*, ViewEntry>;
    return *table;
}

HANDLE openNamedMapping(LPCWSTR name, bool create, const ObjectState& initial, bool writable) {
    bool existed = false;
    std::unique_ptr<ObjectFile> file = ObjectFile::open(name, ObjectKind::Mapping, create, initial, existed);
    if (file == nullptr) {
        return nullptr;
    }
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return new NamedMapping(std::move(file), writable);
}

}  // namespace

HANDLE CreateFileMappingW(HANDLE hFile, LPSECURITY_ATTRIBUTES /*lpFileMappingAttributes*/, DWORD flProtect,
                          DWORD dwMaximumSizeHigh, DWORD dwMaximumSizeLow, LPCWSTR lpName) {
    const ULONGLONG size = (static_cast<ULONGLONG>(dwMaximumSizeHigh) << 32) | dwMaximumSizeLow;
    if (hFile != INVALID_HANDLE_VALUE) {
        return detail::createFileMapping(hFile, flProtect, size, lpName);
    }
    if (size == 0 || (flProtect != PAGE_READWRITE && flProtect != PAGE_READONLY)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    ObjectState initial = detail::freshState(ObjectKind::Mapping);
    initial.mappingSize = size;
    return openNamedMapping(lpName, true, initial, flProtect == PAGE_READWRITE);
}

HANDLE OpenFileMappingW(DWORD dwDesiredAccess, BOOL /*bInheritHandle*/, LPCWSTR lpName) {
    if ((dwDesiredAccess & (FILE_MAP_READ | FILE_MAP_WRITE)) == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return openNamedMapping(lpName, false, detail::freshState(ObjectKind::Mapping),
                            (dwDesiredAccess & FILE_MAP_WRITE) != 0);
}

void* MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess, DWORD dwFileOffsetHigh,
                    DWORD dwFileOffsetLow, std::size_t dwNumberOfBytesToMap) {
    Mapping* mapping = handleAs<Mapping>(hFileMappingObject);
    if (mapping == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if ((dwDesiredAccess & (FILE_MAP_READ | FILE_MAP_WRITE)) == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const ULONGLONG offset = (static_cast<ULONGLONG>(dwFileOffsetHigh) << 32) | dwFileOffsetLow;
    if (offset % kAllocationGranularity != 0) {
        SetLastError(ERROR_MAPPED_ALIGNMENT);
        return nullptr;
    }
    std::unique_ptr<MappedView> view = mapping->openView(dwDesiredAccess, offset, dwNumberOfBytesToMap);
    if (view == nullptr) {
        return nullptr;
    }
    void* address = view->address();
    mapping->addRef();
    std::lock_guard<std::mutex> lock(viewsMutex());
    views().emplace(address, ViewEntry{mapping, std::move(view)});
    return address;
}

BOOL UnmapViewOfFile(const void* lpBaseAddress) {
    ViewEntry entry{};
    {
        std::lock_guard<std::mutex> lock(viewsMutex());
        const auto it = views().find(lpBaseAddress);
        if (it == views().end()) {
            SetLastError(ERROR_INVALID_ADDRESS);
            return FALSE;
        }
        entry = std::move(it->second);
        views().erase(it);
    }
    const bool closed = entry.view->close();
    entry.view.reset();
    entry.mapping->release();
    return closed ? TRUE : FALSE;
}

std::size_t VirtualQuery(const void* lpAddress, MEMORY_BASIC_INFORMATION* lpBuffer, std::size_t dwLength) {
    if (lpBuffer == nullptr || dwLength < sizeof(MEMORY_BASIC_INFORMATION)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const auto* wanted = static_cast<const unsigned char*>(lpAddress);
    std::lock_guard<std::mutex> lock(viewsMutex());
    auto it = views().upper_bound(lpAddress);
    if (it == views().begin()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    --it;
    const MappedView& view = *it->second.view;
    auto* base = static_cast<unsigned char*>(view.address());
    const std::size_t pageStart = static_cast<std::size_t>(wanted - base) / kPageSize * kPageSize;
    if (wanted < base || pageStart >= view.regionSize()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const DWORD protect = view.isWritable() ? PAGE_READWRITE : PAGE_READONLY;
    *lpBuffer = MEMORY_BASIC_INFORMATION{base + pageStart, base,    protect,   view.regionSize() - pageStart,
                                         MEM_COMMIT,       protect, MEM_MAPPED};
    return sizeof(MEMORY_BASIC_INFORMATION);
}

}  // namespace plat
