#include "plat/sysinfo.h"

#include <unistd.h>

namespace plat {

void GetSystemInfo(LPSYSTEM_INFO lpSystemInfo) {
    if (lpSystemInfo == nullptr) {
        return;
    }
    const long pageSize = sysconf(_SC_PAGESIZE);
    const long processors = sysconf(_SC_NPROCESSORS_ONLN);
    *lpSystemInfo = SYSTEM_INFO{};
    lpSystemInfo->dwPageSize = pageSize > 0 ? static_cast<DWORD>(pageSize) : 4096;
    lpSystemInfo->dwNumberOfProcessors = processors > 0 ? static_cast<DWORD>(processors) : 1;
    lpSystemInfo->dwActiveProcessorMask = 1;
    lpSystemInfo->dwAllocationGranularity = VELQ_ALLOCATION_GRANULARITY;
}

}  // namespace plat
