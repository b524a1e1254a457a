#include "winbio/fprintd_map.h"

#include <array>

namespace plat::winbio::fprintd {

namespace {

constexpr std::string_view kErrorPrefix = "net.reactivated.Fprint.Error.";

constexpr std::array<std::string_view, 10> kFingers = {
    "right-thumb", "right-index-finger", "right-middle-finger", "right-ring-finger", "right-little-finger",
    "left-thumb",  "left-index-finger",  "left-middle-finger",  "left-ring-finger",  "left-little-finger",
};

// The retry results, shared by verification and enrollment ("verify-" or "enroll-" before them).
bool retryDetail(std::string_view tail, WINBIO_REJECT_DETAIL& detail) {
    if (tail == "retry-scan") {
        detail = WINBIO_FP_POOR_QUALITY;
    } else if (tail == "swipe-too-short") {
        detail = WINBIO_FP_TOO_SHORT;
    } else if (tail == "finger-not-centered") {
        detail = WINBIO_FP_TOO_SKEWED;
    } else if (tail == "remove-and-retry") {
        detail = WINBIO_FP_TOO_FAST;
    } else {
        return false;
    }
    return true;
}

}  // namespace

StatusOutcome verifyOutcome(std::string_view result) {
    if (result == "verify-match") {
        return {S_OK, 0};
    }
    if (result == "verify-no-match") {
        return {WINBIO_E_NO_MATCH, 0};
    }
    WINBIO_REJECT_DETAIL detail = 0;
    if (result.starts_with("verify-") && retryDetail(result.substr(7), detail)) {
        return {WINBIO_E_BAD_CAPTURE, detail};
    }
    return {WINBIO_E_DEVICE_FAILURE, 0};
}

StatusOutcome enrollOutcome(std::string_view result) {
    if (result == "enroll-completed") {
        return {S_OK, 0};
    }
    if (result == "enroll-stage-passed") {
        return {WINBIO_I_MORE_DATA, 0};
    }
    if (result == "enroll-duplicate") {
        return {WINBIO_E_DUPLICATE_ENROLLMENT, 0};
    }
    if (result == "enroll-data-full") {
        return {WINBIO_E_DATABASE_FULL, 0};
    }
    WINBIO_REJECT_DETAIL detail = 0;
    if (result.starts_with("enroll-") && retryDetail(result.substr(7), detail)) {
        return {WINBIO_E_BAD_CAPTURE, detail};
    }
    return {WINBIO_E_DEVICE_FAILURE, 0};
}

HRESULT errorCode(Call call, std::string_view dbusErrorName) {
    if (!dbusErrorName.starts_with(kErrorPrefix)) {
        // The bus itself: no daemon behind the name, or no answer in time.
        if (dbusErrorName == "org.freedesktop.DBus.Error.ServiceUnknown" ||
            dbusErrorName == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
            dbusErrorName == "org.freedesktop.DBus.Error.UnknownObject") {
            return WINBIO_E_INVALID_UNIT;
        }
        return WINBIO_E_DEVICE_FAILURE;
    }
    const std::string_view name = dbusErrorName.substr(kErrorPrefix.size());
    if (name == "PermissionDenied") {
        return E_ACCESSDENIED;
    }
    if (name == "AlreadyInUse") {
        return call == Call::ListEnrolledFingers || call == Call::EnrollStart
                   ? WINBIO_E_ENROLLMENT_IN_PROGRESS
                   : WINBIO_E_DEVICE_BUSY;
    }
    if (name == "NoEnrolledPrints") {
        return WINBIO_E_DATABASE_NO_RESULTS;
    }
    if (name == "NoSuchDevice") {
        return WINBIO_E_INVALID_UNIT;
    }
    return WINBIO_E_DEVICE_FAILURE;
}

WINBIO_BIOMETRIC_SUBTYPE subFactorOfFinger(std::string_view finger) {
    for (std::size_t i = 0; i < kFingers.size(); ++i) {
        if (kFingers[i] == finger) {
            return static_cast<WINBIO_BIOMETRIC_SUBTYPE>(i + 1);
        }
    }
    return WINBIO_SUBTYPE_NO_INFORMATION;
}

std::string_view fingerOfSubFactor(WINBIO_BIOMETRIC_SUBTYPE subFactor) {
    if (subFactor >= 1 && subFactor <= kFingers.size()) {
        return kFingers[subFactor - 1U];
    }
    return "any";
}

bool endsVerification(std::string_view result) {
    return result == "verify-match" || result == "verify-no-match" || result == "verify-disconnected" ||
           result == "verify-unknown-error" || verifyOutcome(result).status == WINBIO_E_DEVICE_FAILURE;
}

}  // namespace plat::winbio::fprintd
