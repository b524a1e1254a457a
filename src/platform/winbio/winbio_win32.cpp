// The WinBio backend of the Windows program: the framework's own calls in winbio.dll, reached through
// GetProcAddress with declarations of our own (the cross compiler ships no winbio.h). The layer's records
// (plat/winbio.h) have the framework's layout, so they pass through unchanged; only the callbacks need a
// hop, because the framework calls them with its calling convention (stdcall on 32-bit Windows) and the
// core's callbacks are plain functions.
#include "winbio/winbio_win32.h"

#include <map>
#include <mutex>

#include "plat/winbio.h"
#include "win32/wide.h"

namespace plat::winbio {

namespace {

// The framework's functions, as documented, in the layer's types (same sizes).
struct WinBioFunctions {
    void(WINAPI* getEnabledSetting)(BOOLEAN*, WINBIO_SETTING_SOURCE_TYPE*);
    HRESULT(WINAPI* enumBiometricUnits)(WINBIO_BIOMETRIC_TYPE, WINBIO_UNIT_SCHEMA**, SIZE_T*);
    HRESULT(WINAPI* openSession)
    (WINBIO_BIOMETRIC_TYPE, WINBIO_POOL_TYPE, WINBIO_SESSION_FLAGS, WINBIO_UNIT_ID*, SIZE_T, GUID*,
     WINBIO_SESSION_HANDLE*);
    HRESULT(WINAPI* closeSession)(WINBIO_SESSION_HANDLE);
    HRESULT(WINAPI* lockUnit)(WINBIO_SESSION_HANDLE, WINBIO_UNIT_ID);
    HRESULT(WINAPI* unlockUnit)(WINBIO_SESSION_HANDLE, WINBIO_UNIT_ID);
    HRESULT(WINAPI* identifyWithCallback)(WINBIO_SESSION_HANDLE, void*, void*);
    HRESULT(WINAPI* wait)(WINBIO_SESSION_HANDLE);
    HRESULT(WINAPI* cancel)(WINBIO_SESSION_HANDLE);
    HRESULT(WINAPI* free)(void*);
    HRESULT(WINAPI* enrollBegin)(WINBIO_SESSION_HANDLE, WINBIO_BIOMETRIC_SUBTYPE, WINBIO_UNIT_ID);
    HRESULT(WINAPI* enrollCaptureWithCallback)(WINBIO_SESSION_HANDLE, void*, void*);
    HRESULT(WINAPI* enrollDiscard)(WINBIO_SESSION_HANDLE);
    HRESULT(WINAPI* enumEnrollments)
    (WINBIO_SESSION_HANDLE, WINBIO_UNIT_ID, WINBIO_IDENTITY*, WINBIO_BIOMETRIC_SUBTYPE**, SIZE_T*);
    HRESULT(WINAPI* registerEventMonitor)(WINBIO_SESSION_HANDLE, WINBIO_EVENT_TYPE, void*, void*);
    HRESULT(WINAPI* unregisterEventMonitor)(WINBIO_SESSION_HANDLE);
};

template <typename Function>
bool find(::HMODULE library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
    return function != nullptr;
}

bool findAll(::HMODULE library, WinBioFunctions& f) {
    return find(library, "WinBioGetEnabledSetting", f.getEnabledSetting) &&
           find(library, "WinBioEnumBiometricUnits", f.enumBiometricUnits) &&
           find(library, "WinBioOpenSession", f.openSession) &&
           find(library, "WinBioCloseSession", f.closeSession) &&
           find(library, "WinBioLockUnit", f.lockUnit) && find(library, "WinBioUnlockUnit", f.unlockUnit) &&
           find(library, "WinBioIdentifyWithCallback", f.identifyWithCallback) &&
           find(library, "WinBioWait", f.wait) && find(library, "WinBioCancel", f.cancel) &&
           find(library, "WinBioFree", f.free) && find(library, "WinBioEnrollBegin", f.enrollBegin) &&
           find(library, "WinBioEnrollCaptureWithCallback", f.enrollCaptureWithCallback) &&
           find(library, "WinBioEnrollDiscard", f.enrollDiscard) &&
           find(library, "WinBioEnumEnrollments", f.enumEnrollments) &&
           find(library, "WinBioRegisterEventMonitor", f.registerEventMonitor) &&
           find(library, "WinBioUnregisterEventMonitor", f.unregisterEventMonitor);
}

// One armed callback of the core and its context. Identify and enrollment samples call back exactly
// once per arming, so their hop frees itself; an event monitor calls back until it goes.
template <typename Callback>
struct Armed {
    Callback callback;
    void* context;
};

void WINAPI identifyHop(void* hop, HRESULT status, WINBIO_UNIT_ID unit, WINBIO_IDENTITY* identity,
                        WINBIO_BIOMETRIC_SUBTYPE subFactor, WINBIO_REJECT_DETAIL rejectDetail) {
    const auto armed = *static_cast<Armed<PWINBIO_IDENTIFY_CALLBACK>*>(hop);
    delete static_cast<Armed<PWINBIO_IDENTIFY_CALLBACK>*>(hop);
    armed.callback(armed.context, status, unit, identity, subFactor, rejectDetail);
}

void WINAPI enrollHop(void* hop, HRESULT status, WINBIO_REJECT_DETAIL rejectDetail) {
    const auto armed = *static_cast<Armed<PWINBIO_ENROLL_CAPTURE_CALLBACK>*>(hop);
    delete static_cast<Armed<PWINBIO_ENROLL_CAPTURE_CALLBACK>*>(hop);
    armed.callback(armed.context, status, rejectDetail);
}

void WINAPI eventHop(void* hop, HRESULT status, WINBIO_EVENT* event) {
    const auto* armed = static_cast<Armed<PWINBIO_EVENT_CALLBACK>*>(hop);
    armed->callback(armed->context, status, event);
}

class WinBioDllBackend final : public Backend {
public:
    WinBioDllBackend(::HMODULE library, const WinBioFunctions& functions)
        : m_hLibrary(library), m_f(functions) {}
    ~WinBioDllBackend() override { ::FreeLibrary(m_hLibrary); }
    WinBioDllBackend(const WinBioDllBackend&) = delete;
    WinBioDllBackend& operator=(const WinBioDllBackend&) = delete;

    HRESULT getEnabledSetting(BOOLEAN* value, WINBIO_SETTING_SOURCE_TYPE* source) override {
        if (value == nullptr || source == nullptr) {
            return E_POINTER;
        }
        m_f.getEnabledSetting(value, source);
        return S_OK;
    }
    HRESULT enumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** units,
                               SIZE_T* count) override {
        return m_f.enumBiometricUnits(factor, units, count);
    }
    HRESULT openSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE pool, WINBIO_SESSION_FLAGS flags,
                        WINBIO_UNIT_ID* unitArray, SIZE_T unitCount, GUID* databaseId,
                        WINBIO_SESSION_HANDLE* session) override {
        return m_f.openSession(factor, pool, flags, unitArray, unitCount, databaseId, session);
    }
    HRESULT closeSession(WINBIO_SESSION_HANDLE session) override {
        const HRESULT result = m_f.closeSession(session);
        forgetMonitor(session);
        return result;
    }
    HRESULT lockUnit(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unit) override {
        return m_f.lockUnit(session, unit);
    }
    HRESULT unlockUnit(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unit) override {
        return m_f.unlockUnit(session, unit);
    }
    HRESULT identifyWithCallback(WINBIO_SESSION_HANDLE session, PWINBIO_IDENTIFY_CALLBACK callback,
                                 void* context) override {
        auto* hop = new Armed<PWINBIO_IDENTIFY_CALLBACK>{callback, context};
        const HRESULT result = m_f.identifyWithCallback(session, reinterpret_cast<void*>(&identifyHop), hop);
        if (FAILED(result)) {
            delete hop;
        }
        return result;
    }
    HRESULT wait(WINBIO_SESSION_HANDLE session) override { return m_f.wait(session); }
    HRESULT cancel(WINBIO_SESSION_HANDLE session) override { return m_f.cancel(session); }
    HRESULT free(void* address) override { return address == nullptr ? E_POINTER : m_f.free(address); }
    HRESULT enrollBegin(WINBIO_SESSION_HANDLE session, WINBIO_BIOMETRIC_SUBTYPE subFactor,
                        WINBIO_UNIT_ID unit) override {
        return m_f.enrollBegin(session, subFactor, unit);
    }
    HRESULT enrollCaptureWithCallback(WINBIO_SESSION_HANDLE session, PWINBIO_ENROLL_CAPTURE_CALLBACK callback,
                                      void* context) override {
        auto* hop = new Armed<PWINBIO_ENROLL_CAPTURE_CALLBACK>{callback, context};
        const HRESULT result =
            m_f.enrollCaptureWithCallback(session, reinterpret_cast<void*>(&enrollHop), hop);
        if (FAILED(result)) {
            delete hop;
        }
        return result;
    }
    HRESULT enrollDiscard(WINBIO_SESSION_HANDLE session) override { return m_f.enrollDiscard(session); }
    HRESULT enumEnrollments(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unit, WINBIO_IDENTITY* identity,
                            WINBIO_BIOMETRIC_SUBTYPE** subFactors, SIZE_T* count) override {
        return m_f.enumEnrollments(session, unit, identity, subFactors, count);
    }
    HRESULT registerEventMonitor(WINBIO_SESSION_HANDLE session, WINBIO_EVENT_TYPE mask,
                                 PWINBIO_EVENT_CALLBACK callback, void* context) override {
        auto hop =
            std::make_unique<Armed<PWINBIO_EVENT_CALLBACK>>(Armed<PWINBIO_EVENT_CALLBACK>{callback, context});
        const HRESULT result =
            m_f.registerEventMonitor(session, mask, reinterpret_cast<void*>(&eventHop), hop.get());
        if (SUCCEEDED(result)) {
            const std::lock_guard lock(m_mutex);
            m_monitors[session] = std::move(hop);
        }
        return result;
    }
    HRESULT unregisterEventMonitor(WINBIO_SESSION_HANDLE session) override {
        const HRESULT result = m_f.unregisterEventMonitor(session);
        forgetMonitor(session);
        return result;
    }
    std::uint64_t subscribeWindowEvents(sensor::WindowEventProc, void*) override { return 0; }
    void unsubscribeWindowEvents(std::uint64_t) override {}

private:
    // After the framework has ended the monitor: no callback of it runs any more.
    void forgetMonitor(WINBIO_SESSION_HANDLE session) {
        const std::lock_guard lock(m_mutex);
        m_monitors.erase(session);
    }

    ::HMODULE m_hLibrary;
    const WinBioFunctions m_f;
    std::mutex m_mutex;
    std::map<WINBIO_SESSION_HANDLE, std::unique_ptr<Armed<PWINBIO_EVENT_CALLBACK>>> m_monitors;
};

}  // namespace

bool winbioDllBackendBuiltIn() {
    return true;
}

std::unique_ptr<Backend> makeWinBioDllBackend(const char16_t* dllName) {
    // Only the system folder: a winbio.dll planted beside the program is never loaded.
    ::HMODULE library = ::LoadLibraryExW(win32::wide(dllName), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library == nullptr) {
        return makeNoneBackend();
    }
    WinBioFunctions functions{};
    if (!findAll(library, functions)) {
        ::FreeLibrary(library);
        return makeNoneBackend();
    }
    return std::make_unique<WinBioDllBackend>(library, functions);
}

}  // namespace plat::winbio
