// The WinBio backends behind the calls of plat/winbio.h and plat/sensor_sim.h. Each call of those
// headers forwards to the process's backend, chosen once from VELQ_WINBIO.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "plat/sensor_sim.h"
#include "plat/winbio.h"
#include "winbio/sim_script.h"

namespace plat::winbio {

class Backend {
public:
    Backend() = default;
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;
    virtual ~Backend() = default;

    virtual HRESULT getEnabledSetting(BOOLEAN* value, WINBIO_SETTING_SOURCE_TYPE* source) = 0;
    virtual HRESULT enumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** units,
                                       SIZE_T* count) = 0;
    virtual HRESULT openSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE pool,
                                WINBIO_SESSION_FLAGS flags, WINBIO_UNIT_ID* unitArray, SIZE_T unitCount,
                                GUID* databaseId, WINBIO_SESSION_HANDLE* session) = 0;
    virtual HRESULT closeSession(WINBIO_SESSION_HANDLE session) = 0;
    virtual HRESULT lockUnit(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unit) = 0;
    virtual HRESULT unlockUnit(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unit) = 0;
    virtual HRESULT identifyWithCallback(WINBIO_SESSION_HANDLE session, PWINBIO_IDENTIFY_CALLBACK callback,
                                         void* context) = 0;
    virtual HRESULT wait(WINBIO_SESSION_HANDLE session) = 0;
    virtual HRESULT cancel(WINBIO_SESSION_HANDLE session) = 0;
    virtual HRESULT free(void* address) = 0;
    virtual HRESULT enrollBegin(WINBIO_SESSION_HANDLE session, WINBIO_BIOMETRIC_SUBTYPE subFactor,
                                WINBIO_UNIT_ID unit) = 0;
    virtual HRESULT enrollCaptureWithCallback(WINBIO_SESSION_HANDLE session,
                                              PWINBIO_ENROLL_CAPTURE_CALLBACK callback, void* context) = 0;
    virtual HRESULT enrollDiscard(WINBIO_SESSION_HANDLE session) = 0;
    virtual HRESULT enumEnrollments(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unit,
                                    WINBIO_IDENTITY* identity, WINBIO_BIOMETRIC_SUBTYPE** subFactors,
                                    SIZE_T* count) = 0;
    virtual HRESULT registerEventMonitor(WINBIO_SESSION_HANDLE session, WINBIO_EVENT_TYPE mask,
                                         PWINBIO_EVENT_CALLBACK callback, void* context) = 0;
    virtual HRESULT unregisterEventMonitor(WINBIO_SESSION_HANDLE session) = 0;

    // plat/sensor_sim.h; backends without a timeline deliver nothing and give 0.
    virtual std::uint64_t subscribeWindowEvents(sensor::WindowEventProc proc, void* context) = 0;
    virtual void unsubscribeWindowEvents(std::uint64_t id) = 0;
};

// The process's backend, chosen on first use (see chooseBackendName); never destroyed once chosen.
Backend& currentBackend();
// Replaces the process's backend (for tests) and gives the previous one, null if none was chosen yet.
// Nothing may be using the previous one any more when the caller destroys it.
std::unique_ptr<Backend> installBackend(std::unique_ptr<Backend> backend);

// The backend for `requested` (VELQ_WINBIO, null when unset): "sim" or "fprintd" when asked and built in;
// unset (or empty) gives "fprintd" when built in, else "none". A request that cannot be met sets a
// one-line `warning` for stderr and gives "none".
std::string_view chooseBackendName(const char* requested, bool simBuiltIn, bool fprintdBuiltIn,
                                   std::string& warning);
// The same with the Windows biometric framework: "winbio" when asked and built in, and for an unset (or
// empty) request when built in; a Windows build holds it and never fprintd.
std::string_view chooseBackendName(const char* requested, bool simBuiltIn, bool fprintdBuiltIn,
                                   bool winbioDllBuiltIn, std::string& warning);
// The same for a build without fprintd.
std::string_view chooseBackendName(const char* requested, bool simBuiltIn, std::string& warning);

// The backend of a machine without a sensor.
std::unique_ptr<Backend> makeNoneBackend();

// True when the simulated sensor is built in (VELQ_WITH_SIM_SENSOR).
bool simBackendBuiltIn();
// The simulated sensor for `script`; it starts its thread at once and joins it when destroyed. Without
// the build option: null and `error` says so.
std::unique_ptr<Backend> makeSimBackend(const SimScript& script, std::string& error);

// True when the fprintd backend is built in (VELQ_WITH_FPRINTD, GLib found).
bool fprintdBackendBuiltIn();
// The backend of the fprintd daemon on the system bus (docs/FPRINTD.md); without a bus or a daemon it
// finds no unit. Null in a build without it.
std::unique_ptr<Backend> makeFprintdBackend();

// True when the backend over the system's winbio.dll is built in (Windows builds; winbio_win32.h).
bool winbioDllBackendBuiltIn();

// The line printed on stderr whenever the simulated sensor is active.
inline constexpr std::string_view kSimWarning =
    "warning: simulated fingerprint sensor active (VELQ_WINBIO=sim)";

}  // namespace plat::winbio
