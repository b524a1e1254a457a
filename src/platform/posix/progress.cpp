// COM's start and end, fresh GUIDs and the one class that CoCreateInstance makes: the progress dialog,
// which on this system is always the UI backend's (ui/backend_progress.cpp).
#include "plat/progress.h"

#include <sys/random.h>

#include <cstring>

#include "ui/backend_progress.h"

namespace plat {

bool operator==(const GUID& left, const GUID& right) {
    return left.Data1 == right.Data1 && left.Data2 == right.Data2 && left.Data3 == right.Data3 &&
           std::memcmp(left.Data4, right.Data4, sizeof(left.Data4)) == 0;
}

HRESULT CoInitialize(void*) {
    return S_OK;
}

void CoUninitialize() {}

HRESULT CoCreateGuid(GUID* pguid) {
    if (pguid == nullptr) {
        return E_POINTER;
    }
    BYTE bytes[16];
    if (::getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) {
        return E_FAIL;  // the system gives no random bytes
    }
    bytes[6] = static_cast<BYTE>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<BYTE>((bytes[8] & 0x3F) | 0x80);  // the RFC 4122 variant
    pguid->Data1 = static_cast<DWORD>(bytes[0]) << 24 | static_cast<DWORD>(bytes[1]) << 16 |
                   static_cast<DWORD>(bytes[2]) << 8 | bytes[3];
    pguid->Data2 = static_cast<WORD>(bytes[4] << 8 | bytes[5]);
    pguid->Data3 = static_cast<WORD>(bytes[6] << 8 | bytes[7]);
    std::memcpy(pguid->Data4, bytes + 8, 8);
    return S_OK;
}

HRESULT CoCreateInstance(const CLSID& rclsid, void* pUnkOuter, DWORD, const IID& riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (pUnkOuter != nullptr || !(rclsid == CLSID_ProgressDialog)) {
        return REGDB_E_CLASSNOTREG;
    }
    if (!(riid == IID_IProgressDialog)) {
        return E_NOINTERFACE;
    }
    *ppv = ui::newBackendProgressDialog();
    return *ppv != nullptr ? S_OK : E_OUTOFMEMORY;
}

}  // namespace plat
