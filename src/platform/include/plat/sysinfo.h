// The system's information as the crypt engine needs it: the allocation granularity of mapped views.
#pragma once

#include "plat/types.h"

namespace plat {

// The fields of Windows' SYSTEM_INFO that the core reads; the others are filled with plain values so
// that code written against the full record still reads something sensible.
struct SYSTEM_INFO {
    DWORD dwPageSize;
    void* lpMinimumApplicationAddress;
    void* lpMaximumApplicationAddress;
    std::uintptr_t dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};
using LPSYSTEM_INFO = SYSTEM_INFO*;

// The allocation granularity of every platform: big files place their data at this offset, so it must
// be the same wherever a file is written and read.
inline constexpr DWORD VELQ_ALLOCATION_GRANULARITY = 65536;

// Fills `lpSystemInfo`: dwAllocationGranularity is always 65536 (see above), dwPageSize the system's page
// size, dwNumberOfProcessors the processors online (at least 1). Cannot fail; a null pointer is ignored.
void GetSystemInfo(LPSYSTEM_INFO lpSystemInfo);

}  // namespace plat
