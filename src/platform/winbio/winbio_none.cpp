// The backend of a machine without a sensor: biometrics are enabled, no unit is found, and every call
// that needs a unit or a session fails.
#include <cstdlib>

#include "winbio/backend.h"

namespace plat::winbio {

namespace {

class NoneBackend final : public Backend {
public:
    HRESULT getEnabledSetting(BOOLEAN* value, WINBIO_SETTING_SOURCE_TYPE* source) override {
        if (value == nullptr || source == nullptr) {
            return E_POINTER;
        }
        *value = 1;
        *source = WINBIO_SETTING_SOURCE_DEFAULT;
        return S_OK;
    }
    HRESULT enumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** units,
                               SIZE_T* count) override {
        if (units == nullptr || count == nullptr) {
            return E_POINTER;
        }
        *units = nullptr;
        *count = 0;
        return (factor & WINBIO_TYPE_FINGERPRINT) == 0 ? WINBIO_E_UNSUPPORTED_FACTOR : S_OK;
    }
    HRESULT openSession(WINBIO_BIOMETRIC_TYPE, WINBIO_POOL_TYPE, WINBIO_SESSION_FLAGS, WINBIO_UNIT_ID*,
                        SIZE_T, GUID*, WINBIO_SESSION_HANDLE* session) override {
        if (session == nullptr) {
            return E_POINTER;
        }
        *session = 0;
        return WINBIO_E_INVALID_UNIT;
    }
    HRESULT closeSession(WINBIO_SESSION_HANDLE) override { return E_HANDLE; }
    HRESULT lockUnit(WINBIO_SESSION_HANDLE, WINBIO_UNIT_ID) override { return E_HANDLE; }
    HRESULT unlockUnit(WINBIO_SESSION_HANDLE, WINBIO_UNIT_ID) override { return E_HANDLE; }
    HRESULT identifyWithCallback(WINBIO_SESSION_HANDLE, PWINBIO_IDENTIFY_CALLBACK, void*) override {
        return E_HANDLE;
    }
    HRESULT wait(WINBIO_SESSION_HANDLE) override { return E_HANDLE; }
    HRESULT cancel(WINBIO_SESSION_HANDLE) override { return E_HANDLE; }
    HRESULT free(void* address) override {
        // Nothing is ever handed out here, but memory of an earlier backend is still plain heap memory.
        if (address == nullptr) {
            return E_POINTER;
        }
        std::free(address);
        return S_OK;
    }
    HRESULT enrollBegin(WINBIO_SESSION_HANDLE, WINBIO_BIOMETRIC_SUBTYPE, WINBIO_UNIT_ID) override {
        return E_HANDLE;
    }
    HRESULT enrollCaptureWithCallback(WINBIO_SESSION_HANDLE, PWINBIO_ENROLL_CAPTURE_CALLBACK,
                                      void*) override {
        return E_HANDLE;
    }
    HRESULT enrollDiscard(WINBIO_SESSION_HANDLE) override { return E_HANDLE; }
    HRESULT enumEnrollments(WINBIO_SESSION_HANDLE, WINBIO_UNIT_ID, WINBIO_IDENTITY*,
                            WINBIO_BIOMETRIC_SUBTYPE**, SIZE_T*) override {
        return E_HANDLE;
    }
    HRESULT registerEventMonitor(WINBIO_SESSION_HANDLE, WINBIO_EVENT_TYPE, PWINBIO_EVENT_CALLBACK,
                                 void*) override {
        return E_HANDLE;
    }
    HRESULT unregisterEventMonitor(WINBIO_SESSION_HANDLE) override { return E_HANDLE; }
    std::uint64_t subscribeWindowEvents(sensor::WindowEventProc, void*) override { return 0; }
    void unsubscribeWindowEvents(std::uint64_t) override {}
};

}  // namespace

std::unique_ptr<Backend> makeNoneBackend() {
    return std::make_unique<NoneBackend>();
}

}  // namespace plat::winbio
