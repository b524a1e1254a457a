// File mappings and their views: the API's own, with the in-page error turned into the thread's mark
// that plat::TakeInPageError hands to the crypt engine.
//
// On Windows, touching a view whose bytes cannot be read (a network share gone, a medium pulled) raises
// EXCEPTION_IN_PAGE_ERROR. GCC has no __try/__except, so a vectored handler takes that exception for an
// address inside one of this layer's views: it marks the thread, swaps the whole view for zero-filled
// memory at the same address and lets the faulting instruction run again. The engine finishes the block
// on zeros, unmaps it (freeing the stand-in) and then sees the mark, exactly as after an __except. A fault
// anywhere else, or one that cannot be handled so, goes on to the next handler as before.
#include <algorithm>
#include <mutex>
#include <vector>

#include "plat/file_mapping.h"
#include "plat/named.h"
#include "wide.h"

namespace plat {

using win32::fromNative;
using win32::native;
using win32::wide;

namespace {

struct View {
    void* base;
    std::size_t size;
    bool zeroed;  // swapped for zero-filled memory after an in-page error: freed, not unmapped
};

thread_local bool t_bInPageError = false;

class ViewTable {
public:
    ViewTable() : m_hHandler(::AddVectoredExceptionHandler(1, &ViewTable::onException)) {}
    ~ViewTable() {
        if (m_hHandler != nullptr) {
            ::RemoveVectoredExceptionHandler(m_hHandler);
        }
    }
    ViewTable(const ViewTable&) = delete;
    ViewTable& operator=(const ViewTable&) = delete;

    static ViewTable& instance() {
        static ViewTable table;
        return table;
    }

    void add(void* base, std::size_t size) {
        const std::lock_guard lock(m_mutex);
        m_views.push_back(View{base, size, false});
    }

    // Removes the view that starts at `base`; false when there is none. `zeroed` tells how to end it.
    bool remove(const void* base, bool& zeroed) {
        const std::lock_guard lock(m_mutex);
        const auto it =
            std::find_if(m_views.begin(), m_views.end(), [base](const View& v) { return v.base == base; });
        if (it == m_views.end()) {
            return false;
        }
        zeroed = it->zeroed;
        m_views.erase(it);
        return true;
    }

private:
    static ::LONG CALLBACK onException(EXCEPTION_POINTERS* info) {
        const EXCEPTION_RECORD* record = info->ExceptionRecord;
        if (record->ExceptionCode != EXCEPTION_IN_PAGE_ERROR || record->NumberParameters < 2) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        const auto address = static_cast<std::uintptr_t>(record->ExceptionInformation[1]);
        return instance().zeroViewAt(address) ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
    }

    bool zeroViewAt(std::uintptr_t address) {
        const std::lock_guard lock(m_mutex);
        for (View& view : m_views) {
            const auto begin = reinterpret_cast<std::uintptr_t>(view.base);
            if (address < begin || address - begin >= view.size) {
                continue;
            }
            if (!view.zeroed) {
                ::UnmapViewOfFile(view.base);
                if (::VirtualAlloc(view.base, view.size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE) ==
                    nullptr) {
                    return false;
                }
                view.zeroed = true;
            }
            t_bInPageError = true;
            return true;
        }
        return false;
    }

    std::mutex m_mutex;
    std::vector<View> m_views;
    void* m_hHandler;
};

// The length of the view at `base`: the API rounds it up to whole pages, as a stand-in must cover.
std::size_t viewLength(void* base) {
    ::MEMORY_BASIC_INFORMATION info{};
    return ::VirtualQuery(base, &info, sizeof(info)) == 0 ? 0 : info.RegionSize;
}

}  // namespace

HANDLE CreateFileMappingW(HANDLE hFile, LPSECURITY_ATTRIBUTES lpFileMappingAttributes, DWORD flProtect,
                          DWORD dwMaximumSizeHigh, DWORD dwMaximumSizeLow, LPCWSTR lpName) {
    return fromNative(::CreateFileMappingW(native(hFile),
                                           reinterpret_cast<::LPSECURITY_ATTRIBUTES>(lpFileMappingAttributes),
                                           flProtect, dwMaximumSizeHigh, dwMaximumSizeLow, wide(lpName)));
}

HANDLE OpenFileMappingW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName) {
    return fromNative(::OpenFileMappingW(dwDesiredAccess, bInheritHandle, wide(lpName)));
}

void* MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess, DWORD dwFileOffsetHigh,
                    DWORD dwFileOffsetLow, std::size_t dwNumberOfBytesToMap) {
    void* view = ::MapViewOfFile(native(hFileMappingObject), dwDesiredAccess, dwFileOffsetHigh,
                                 dwFileOffsetLow, dwNumberOfBytesToMap);
    if (view != nullptr) {
        ViewTable::instance().add(view, viewLength(view));
    }
    return view;
}

BOOL UnmapViewOfFile(const void* lpBaseAddress) {
    bool zeroed = false;
    if (ViewTable::instance().remove(lpBaseAddress, zeroed) && zeroed) {
        return ::VirtualFree(const_cast<void*>(lpBaseAddress), 0, MEM_RELEASE);
    }
    return ::UnmapViewOfFile(lpBaseAddress);
}

std::size_t VirtualQuery(const void* lpAddress, MEMORY_BASIC_INFORMATION* lpBuffer, std::size_t dwLength) {
    return ::VirtualQuery(lpAddress, reinterpret_cast<::PMEMORY_BASIC_INFORMATION>(lpBuffer), dwLength);
}

BOOL TakeInPageError() {
    const bool marked = t_bInPageError;
    t_bInPageError = false;
    return marked ? TRUE : FALSE;
}

}  // namespace plat
