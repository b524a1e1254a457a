// Kernel objects behind HANDLE values. Every object kind (file, find search, thread, event, mutex,
// mapping) derives from KernelObject; CloseHandle releases the caller's reference, and the object goes
// away with its last reference (a thread that still runs holds one of its own).
#pragma once

#include <atomic>

#include "plat/types.h"

namespace plat {

class KernelObject {
public:
    KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;

    void addRef() { m_nRefs.fetch_add(1, std::memory_order_relaxed); }
    void release();

    // Objects that WaitForSingleObject/WaitForMultipleObjects accept override this to return themselves
    // as their waitable part; others are refused with ERROR_INVALID_HANDLE.
    virtual class Waitable* asWaitable() { return nullptr; }

protected:
    virtual ~KernelObject() = default;

private:
    std::atomic<int> m_nRefs{1};
};

// True when `h` is neither null nor INVALID_HANDLE_VALUE.
inline bool isUsableHandle(HANDLE h) { return h != nullptr && h != INVALID_HANDLE_VALUE; }

// Releases the caller's reference. FALSE with ERROR_INVALID_HANDLE for null or INVALID_HANDLE_VALUE.
BOOL CloseHandle(HANDLE h);

// Casts a handle to the object kind the caller expects; null when the handle is unusable or of another
// kind (the caller then sets ERROR_INVALID_HANDLE).
template <typename T>
T* handleAs(HANDLE h) {
    if (!isUsableHandle(h)) {
        return nullptr;
    }
    return dynamic_cast<T*>(h);
}

}  // namespace plat
