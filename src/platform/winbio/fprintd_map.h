// How the fprintd daemon's answers become the framework's codes (docs/FPRINTD.md holds the same table).
// Pure functions, so that every row of the table is tested without a daemon.
#pragma once

#include <string_view>

#include "plat/winbio.h"

namespace plat::winbio::fprintd {

// What one VerifyStatus or EnrollStatus result means for the armed callback.
struct StatusOutcome {
    HRESULT status;                     // the callback's operation status
    WINBIO_REJECT_DETAIL rejectDetail;  // why a capture was bad; 0 otherwise
};

// A VerifyStatus result: "verify-match" gives S_OK (the claiming user's identity), "verify-no-match"
// WINBIO_E_NO_MATCH, the four retry results WINBIO_E_BAD_CAPTURE with their reject detail,
// "verify-disconnected" and "verify-unknown-error" (and any result this table does not know)
// WINBIO_E_DEVICE_FAILURE.
StatusOutcome verifyOutcome(std::string_view result);

// An EnrollStatus result: "enroll-completed" S_OK, "enroll-stage-passed" WINBIO_I_MORE_DATA, the retry
// results WINBIO_E_BAD_CAPTURE, "enroll-duplicate" WINBIO_E_DUPLICATE_ENROLLMENT, "enroll-data-full"
// WINBIO_E_DATABASE_FULL; anything else WINBIO_E_DEVICE_FAILURE.
StatusOutcome enrollOutcome(std::string_view result);

// Where a D-Bus error of the daemon (its name, e.g. "net.reactivated.Fprint.Error.AlreadyInUse") is
// met, which decides what AlreadyInUse means.
enum class Call { Claim, ListEnrolledFingers, VerifyStart, EnrollStart, Other };

// The framework's code for a failed call: PermissionDenied E_ACCESSDENIED; AlreadyInUse
// WINBIO_E_ENROLLMENT_IN_PROGRESS for ListEnrolledFingers and EnrollStart (another client enrolls),
// WINBIO_E_DEVICE_BUSY elsewhere (another client holds the reader); NoEnrolledPrints
// WINBIO_E_DATABASE_NO_RESULTS; NoSuchDevice and an absent daemon WINBIO_E_INVALID_UNIT; time-outs and
// everything else WINBIO_E_DEVICE_FAILURE.
HRESULT errorCode(Call call, std::string_view dbusErrorName);

// The daemon's finger names and the framework's sub-factors (the ANSI 381 positions 1 to 10: right
// thumb to right little finger, then left thumb to left little finger). Unknown names give
// WINBIO_SUBTYPE_NO_INFORMATION; sub-factors outside 1 to 10 give "any".
WINBIO_BIOMETRIC_SUBTYPE subFactorOfFinger(std::string_view finger);
std::string_view fingerOfSubFactor(WINBIO_BIOMETRIC_SUBTYPE subFactor);

// True for the verify results after which the daemon has ended the verification itself (done).
bool endsVerification(std::string_view result);

}  // namespace plat::winbio::fprintd
