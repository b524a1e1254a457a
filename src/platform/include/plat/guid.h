// The 128-bit identifier record of the Windows API (GUID), with its field layout.
#pragma once

#include "plat/types.h"

namespace plat {

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};

}  // namespace plat
