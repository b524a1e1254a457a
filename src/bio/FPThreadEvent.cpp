// The notification lock of the biometric engine.
#include "bio/FPThreadEvent.h"

#include <random>

#include "diag/DbgLog.h"
#include "plat/format.h"
#include "plat/guid.h"
#include "plat/handle.h"
#include "plat/named.h"
#include "plat/sync.h"
#include "plat/threads.h"

using namespace plat;

namespace {

// A fresh random GUID (version 4). The name only has to be unique on the machine; COM's GUID maker is
// not needed for that, and the system's random device is what it would use here anyway.
bool makeRandomGuid(GUID& guid) {
    std::random_device device;
    std::uniform_int_distribution<unsigned> byteOf(0, 255);
    BYTE bytes[16];
    for (BYTE& byte : bytes) {
        byte = static_cast<BYTE>(byteOf(device));
    }
    bytes[6] = static_cast<BYTE>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<BYTE>((bytes[8] & 0x3F) | 0x80);
    guid.Data1 = (DWORD{bytes[0]} << 24) | (DWORD{bytes[1]} << 16) | (DWORD{bytes[2]} << 8) | bytes[3];
    guid.Data2 = static_cast<WORD>((bytes[4] << 8) | bytes[5]);
    guid.Data3 = static_cast<WORD>((bytes[6] << 8) | bytes[7]);
    for (int i = 0; i < 8; ++i) {
        guid.Data4[i] = bytes[8 + i];
    }
    return true;
}

}  // namespace

// COM needs no preparation on POSIX, so the constructor and destructor only manage the handle.
CFPThreadEvent::CFPThreadEvent() : m_hMutex(nullptr) {}

CFPThreadEvent::~CFPThreadEvent() {
    closeMutex();
}

bool CFPThreadEvent::createMutex() {
    closeMutex();
    char16_t name[64] = u"00000000-0000-0000-0000-000000000000";
    GUID guid{};
    if (makeRandomGuid(guid)) {
        format16(name, 64, u"%08X-%04X-%04x-%02X%02X-%02X%02X%02X%02X%02X%02X", guid.Data1, guid.Data2,
                 guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4],
                 guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    }
    m_hMutex = CreateMutexW(nullptr, FALSE, name);
    return m_hMutex != nullptr;
}

void CFPThreadEvent::closeMutex() {
    if (m_hMutex != nullptr) {
        CloseHandle(m_hMutex);
        m_hMutex = nullptr;
    }
}

bool CFPThreadEvent::Lock(DWORD preDelayMs, DWORD timeoutMs) {
    if (m_hMutex == nullptr) {
        if (!createMutex()) {
            return false;
        }
    } else if (preDelayMs != 0) {
        Sleep(preDelayMs);
    }
    const bool held = WaitForSingleObject(m_hMutex, timeoutMs) == WAIT_OBJECT_0;
    VELQ_LOG(DBG_LEVEL_INF, u" (CFPThreadEvent::Lock)", u"Lock");
    return held;
}

BOOL CFPThreadEvent::Unlock() {
    VELQ_LOG(DBG_LEVEL_INF, u" (CFPThreadEvent::Unlock)", u"Unlock");
    if (m_hMutex == nullptr) {
        return TRUE;
    }
    return ReleaseMutex(m_hMutex);
}
