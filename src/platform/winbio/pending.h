// What the WinBio backends share about the operation armed on a session: its kind and callback, the call
// of that callback with one result, and the subscribers of window events.
#pragma once

#include <cstdlib>

#include "plat/sensor_sim.h"
#include "plat/winbio.h"

namespace plat::winbio {

// The operation armed on a session, with its callback.
struct Pending {
    enum class Kind { None, Identify, Enroll, Monitor };
    Kind kind = Kind::None;
    PWINBIO_IDENTIFY_CALLBACK identify = nullptr;
    PWINBIO_ENROLL_CAPTURE_CALLBACK enroll = nullptr;
    PWINBIO_EVENT_CALLBACK event = nullptr;
    void* context = nullptr;
};

// One result for the armed operation.
struct Result {
    HRESULT status = S_OK;
    WINBIO_IDENTITY identity{};  // of an identification; empty otherwise
    WINBIO_BIOMETRIC_SUBTYPE subFactor = WINBIO_SUBTYPE_NO_INFORMATION;
    WINBIO_REJECT_DETAIL rejectDetail = 0;
};

// The checks of WinBioOpenSession's arguments that every backend makes the same way: a session to fill
// (cleared first), the fingerprint factor, the system pool. S_OK when the session may be opened.
inline HRESULT checkOpenSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE pool,
                                WINBIO_SESSION_HANDLE* session) {
    if (session == nullptr) {
        return E_POINTER;
    }
    *session = 0;
    if ((factor & WINBIO_TYPE_FINGERPRINT) == 0) {
        return WINBIO_E_UNSUPPORTED_FACTOR;
    }
    return pool == WINBIO_POOL_SYSTEM ? S_OK : E_INVALIDARG;
}

// A subscriber of window events (plat/sensor_sim.h).
struct Subscriber {
    sensor::WindowEventProc proc;
    void* context;
};

namespace detail {

inline void deliverEvent(const Pending& pending, const Result& result) {
    auto* event = static_cast<WINBIO_EVENT*>(std::calloc(1, sizeof(WINBIO_EVENT)));
    if (event == nullptr) {
        return;
    }
    const bool error = result.status == WINBIO_E_CANCELED || result.status == WINBIO_E_DEVICE_FAILURE;
    event->Type = error ? WINBIO_EVENT_ERROR : WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY;
    event->Parameters.UnclaimedIdentify.ErrorCode = result.status;
    if (!error) {
        event->Parameters.UnclaimedIdentify.Identity = result.identity;
        event->Parameters.UnclaimedIdentify.SubFactor = result.subFactor;
        event->Parameters.UnclaimedIdentify.RejectDetail = result.rejectDetail;
    }
    pending.event(pending.context, result.status, event);
}

}  // namespace detail

// Calls the armed operation's callback with `result` on `unit`; nothing for Kind::None. An event monitor
// gets an event that this call allocates and the callback frees with WinBioFree: an error event for a
// cancellation or a device failure, an unclaimed identification otherwise (nothing when memory is short).
// Called without the backend's lock: the callback may call the backend again.
inline void deliverResult(const Pending& pending, const Result& result, WINBIO_UNIT_ID unit) {
    WINBIO_IDENTITY identity = result.identity;
    switch (pending.kind) {
        case Pending::Kind::Identify:
            pending.identify(pending.context, result.status, unit, &identity, result.subFactor,
                             result.rejectDetail);
            break;
        case Pending::Kind::Enroll:
            pending.enroll(pending.context, result.status, result.rejectDetail);
            break;
        case Pending::Kind::Monitor:
            detail::deliverEvent(pending, result);
            break;
        case Pending::Kind::None:
            break;
    }
}

}  // namespace plat::winbio
