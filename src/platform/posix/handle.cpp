#include "plat/handle.h"

#include "plat/errors.h"

namespace plat {

void KernelObject::release() {
    if (m_nRefs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

BOOL CloseHandle(HANDLE h) {
    if (!isUsableHandle(h)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    h->release();
    return TRUE;
}

}  // namespace plat
