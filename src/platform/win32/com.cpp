// COM's start and end on a thread, and fresh GUIDs: the API's own calls. CoCreateInstance of the progress
// dialog is in ui/win32_progress.cpp: the layer's IProgressDialog is an interface of its own, not the
// shell's COM interface, and which object stands behind it depends on the UI backend.
#include "plat/progress.h"
#include "wide.h"
// After wide.h: COM's header needs <windows.h> first.
#include <objbase.h>

#include <cstring>

namespace plat {

bool operator==(const GUID& left, const GUID& right) {
    return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}

HRESULT CoInitialize(void* pvReserved) {
    return ::CoInitialize(pvReserved);
}

void CoUninitialize() {
    ::CoUninitialize();
}

// The layer's GUID has the API's layout (four fields of 4, 2, 2 and 8 bytes).
HRESULT CoCreateGuid(GUID* pguid) {
    if (pguid == nullptr) {
        return E_POINTER;
    }
    return ::CoCreateGuid(reinterpret_cast<::GUID*>(pguid));
}

}  // namespace plat
