#include "winbio/backend.h"

#include <cstdio>
#include <mutex>
#include <optional>

#include "plat/streams.h"
#include "plat/strings.h"
#include "plat/system.h"
#include "winbio/winbio_win32.h"

namespace plat::winbio {

namespace {

std::mutex g_backendMutex;
// Never destroyed once chosen: callbacks and waits of other threads may outlive static destructors.
Backend* g_pBackend = nullptr;

// The sensor that VELQ_WINBIO_SIM describes; null (with the reason on stderr) when it cannot be read.
std::unique_ptr<Backend> simFromEnvironment() {
    const std::string path = environmentValue("VELQ_WINBIO_SIM").value_or(std::string());
    std::string text;
    if (!path.empty() && !readWhole(fromUtf8(path), text)) {
        std::fprintf(stderr, "VELQ_WINBIO_SIM=%s cannot be read; no sensor.\n", path.c_str());
        return nullptr;
    }
    SimScript script;
    std::string error;
    if (!parseSimScript(text, script, error)) {
        std::fprintf(stderr, "VELQ_WINBIO_SIM=%s: %s; no sensor.\n", path.c_str(), error.c_str());
        return nullptr;
    }
    std::unique_ptr<Backend> sim = makeSimBackend(script, error);
    if (!sim) {
        std::fprintf(stderr, "%s; no sensor.\n", error.c_str());
    }
    return sim;
}

std::unique_ptr<Backend> makeBackendFromEnvironment() {
    std::string warning;
    const std::optional<std::string> requested = environmentValue("VELQ_WINBIO");
    const std::string_view name =
        chooseBackendName(requested ? requested->c_str() : nullptr, simBackendBuiltIn(),
                          fprintdBackendBuiltIn(), winbioDllBackendBuiltIn(), warning);
    if (!warning.empty()) {
        std::fprintf(stderr, "%s\n", warning.c_str());
    }
    std::unique_ptr<Backend> backend = name == "sim"       ? simFromEnvironment()
                                       : name == "fprintd" ? makeFprintdBackend()
                                       : name == "winbio"  ? makeWinBioDllBackend()
                                                           : nullptr;
    return backend ? std::move(backend) : makeNoneBackend();
}

}  // namespace

std::string_view chooseBackendName(const char* requested, bool simBuiltIn, std::string& warning) {
    return chooseBackendName(requested, simBuiltIn, false, warning);
}

std::string_view chooseBackendName(const char* requested, bool simBuiltIn, bool fprintdBuiltIn,
                                   std::string& warning) {
    return chooseBackendName(requested, simBuiltIn, fprintdBuiltIn, false, warning);
}

std::string_view chooseBackendName(const char* requested, bool simBuiltIn, bool fprintdBuiltIn,
                                   bool winbioDllBuiltIn, std::string& warning) {
    warning.clear();
    const std::string_view asked = requested == nullptr ? std::string_view() : std::string_view(requested);
    if (asked == "sim" && simBuiltIn) {
        return "sim";
    }
    if ((asked == "winbio" || asked.empty()) && winbioDllBuiltIn) {
        return "winbio";
    }
    if ((asked == "fprintd" || asked.empty()) && fprintdBuiltIn) {
        return "fprintd";
    }
    if (!asked.empty() && asked != "none") {
        warning = "VELQ_WINBIO=" + std::string(asked) + " is not available in this build; using none.";
    }
    return "none";
}

Backend& currentBackend() {
    std::lock_guard<std::mutex> lock(g_backendMutex);
    if (g_pBackend == nullptr) {
        g_pBackend = makeBackendFromEnvironment().release();
    }
    return *g_pBackend;
}

std::unique_ptr<Backend> installBackend(std::unique_ptr<Backend> backend) {
    std::lock_guard<std::mutex> lock(g_backendMutex);
    std::unique_ptr<Backend> previous(g_pBackend);
    g_pBackend = backend.release();
    return previous;
}

}  // namespace plat::winbio

namespace plat {

using winbio::currentBackend;

HRESULT WinBioGetEnabledSetting(BOOLEAN* value, WINBIO_SETTING_SOURCE_TYPE* source) {
    return currentBackend().getEnabledSetting(value, source);
}
HRESULT WinBioEnumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** unitSchemaArray,
                                 SIZE_T* unitCount) {
    return currentBackend().enumBiometricUnits(factor, unitSchemaArray, unitCount);
}
HRESULT WinBioOpenSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE poolType, WINBIO_SESSION_FLAGS flags,
                          WINBIO_UNIT_ID* unitArray, SIZE_T unitCount, GUID* databaseId,
                          WINBIO_SESSION_HANDLE* sessionHandle) {
    return currentBackend().openSession(factor, poolType, flags, unitArray, unitCount, databaseId,
                                        sessionHandle);
}
HRESULT WinBioCloseSession(WINBIO_SESSION_HANDLE sessionHandle) {
    return currentBackend().closeSession(sessionHandle);
}
HRESULT WinBioLockUnit(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_UNIT_ID unitId) {
    return currentBackend().lockUnit(sessionHandle, unitId);
}
HRESULT WinBioUnlockUnit(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_UNIT_ID unitId) {
    return currentBackend().unlockUnit(sessionHandle, unitId);
}
HRESULT WinBioIdentifyWithCallback(WINBIO_SESSION_HANDLE sessionHandle, PWINBIO_IDENTIFY_CALLBACK callback,
                                   void* context) {
    return currentBackend().identifyWithCallback(sessionHandle, callback, context);
}
HRESULT WinBioWait(WINBIO_SESSION_HANDLE sessionHandle) {
    return currentBackend().wait(sessionHandle);
}
HRESULT WinBioCancel(WINBIO_SESSION_HANDLE sessionHandle) {
    return currentBackend().cancel(sessionHandle);
}
HRESULT WinBioFree(void* address) {
    return currentBackend().free(address);
}
HRESULT WinBioEnrollBegin(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_BIOMETRIC_SUBTYPE subFactor,
                          WINBIO_UNIT_ID unitId) {
    return currentBackend().enrollBegin(sessionHandle, subFactor, unitId);
}
HRESULT WinBioEnrollCaptureWithCallback(WINBIO_SESSION_HANDLE sessionHandle,
                                        PWINBIO_ENROLL_CAPTURE_CALLBACK callback, void* context) {
    return currentBackend().enrollCaptureWithCallback(sessionHandle, callback, context);
}
HRESULT WinBioEnrollDiscard(WINBIO_SESSION_HANDLE sessionHandle) {
    return currentBackend().enrollDiscard(sessionHandle);
}
HRESULT WinBioEnumEnrollments(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_UNIT_ID unitId,
                              WINBIO_IDENTITY* identity, WINBIO_BIOMETRIC_SUBTYPE** subFactorArray,
                              SIZE_T* subFactorCount) {
    return currentBackend().enumEnrollments(sessionHandle, unitId, identity, subFactorArray, subFactorCount);
}
HRESULT WinBioRegisterEventMonitor(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_EVENT_TYPE eventMask,
                                   PWINBIO_EVENT_CALLBACK callback, void* context) {
    return currentBackend().registerEventMonitor(sessionHandle, eventMask, callback, context);
}
HRESULT WinBioUnregisterEventMonitor(WINBIO_SESSION_HANDLE sessionHandle) {
    return currentBackend().unregisterEventMonitor(sessionHandle);
}

namespace sensor {
std::uint64_t subscribeWindowEvents(WindowEventProc proc, void* context) {
    return proc == nullptr ? 0 : currentBackend().subscribeWindowEvents(proc, context);
}
void unsubscribeWindowEvents(std::uint64_t id) {
    if (id != 0) {
        currentBackend().unsubscribeWindowEvents(id);
    }
}
}  // namespace sensor

}  // namespace plat
