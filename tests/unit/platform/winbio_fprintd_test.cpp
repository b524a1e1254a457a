// The fprintd backend's mapping table (docs/FPRINTD.md), its identities, its choice, and a machine whose
// system bus has no daemon. The backend against the real daemon is tested end to end
// (tests/e2e/fprintd_test.py).
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "plat/strings.h"
#include "winbio/backend.h"
#include "winbio/fprintd_identity.h"
#include "winbio/fprintd_map.h"

namespace {

using namespace plat;
using namespace plat::winbio;
using fprintd::Call;

TEST(FprintdMap, VerifyResultsFollowTheTable) {
    EXPECT_EQ(fprintd::verifyOutcome("verify-match").status, S_OK);
    EXPECT_EQ(fprintd::verifyOutcome("verify-no-match").status, WINBIO_E_NO_MATCH);
    const struct {
        const char* result;
        WINBIO_REJECT_DETAIL detail;
    } retries[] = {{"verify-retry-scan", WINBIO_FP_POOR_QUALITY},
                   {"verify-swipe-too-short", WINBIO_FP_TOO_SHORT},
                   {"verify-finger-not-centered", WINBIO_FP_TOO_SKEWED},
                   {"verify-remove-and-retry", WINBIO_FP_TOO_FAST}};
    for (const auto& retry : retries) {
        const fprintd::StatusOutcome outcome = fprintd::verifyOutcome(retry.result);
        EXPECT_EQ(outcome.status, WINBIO_E_BAD_CAPTURE) << retry.result;
        EXPECT_EQ(outcome.rejectDetail, retry.detail) << retry.result;
        EXPECT_FALSE(fprintd::endsVerification(retry.result)) << retry.result;
    }
    // A failure, and anything the table does not know, is a device error: never a pass.
    for (const char* failure :
         {"verify-disconnected", "verify-unknown-error", "verify-matchx", "", "enroll-completed"}) {
        EXPECT_EQ(fprintd::verifyOutcome(failure).status, WINBIO_E_DEVICE_FAILURE) << failure;
        EXPECT_TRUE(fprintd::endsVerification(failure)) << failure;
    }
    EXPECT_TRUE(fprintd::endsVerification("verify-match"));
    EXPECT_TRUE(fprintd::endsVerification("verify-no-match"));
}

TEST(FprintdMap, EnrollResultsFollowTheTable) {
    EXPECT_EQ(fprintd::enrollOutcome("enroll-completed").status, S_OK);
    EXPECT_EQ(fprintd::enrollOutcome("enroll-stage-passed").status, WINBIO_I_MORE_DATA);
    EXPECT_EQ(fprintd::enrollOutcome("enroll-retry-scan").status, WINBIO_E_BAD_CAPTURE);
    EXPECT_EQ(fprintd::enrollOutcome("enroll-swipe-too-short").rejectDetail, WINBIO_FP_TOO_SHORT);
    EXPECT_EQ(fprintd::enrollOutcome("enroll-duplicate").status, WINBIO_E_DUPLICATE_ENROLLMENT);
    EXPECT_EQ(fprintd::enrollOutcome("enroll-data-full").status, WINBIO_E_DATABASE_FULL);
    EXPECT_EQ(fprintd::enrollOutcome("enroll-failed").status, WINBIO_E_DEVICE_FAILURE);
    EXPECT_EQ(fprintd::enrollOutcome("enroll-disconnected").status, WINBIO_E_DEVICE_FAILURE);
    EXPECT_EQ(fprintd::enrollOutcome("verify-retry-scan").status, WINBIO_E_DEVICE_FAILURE);
}

TEST(FprintdMap, AlreadyInUseMeansAnEnrollmentOnlyWhereItIsOne) {
    const std::string inUse = "net.reactivated.Fprint.Error.AlreadyInUse";
    EXPECT_EQ(fprintd::errorCode(Call::ListEnrolledFingers, inUse), WINBIO_E_ENROLLMENT_IN_PROGRESS);
    EXPECT_EQ(fprintd::errorCode(Call::EnrollStart, inUse), WINBIO_E_ENROLLMENT_IN_PROGRESS);
    EXPECT_EQ(fprintd::errorCode(Call::Claim, inUse), WINBIO_E_DEVICE_BUSY);
    EXPECT_EQ(fprintd::errorCode(Call::VerifyStart, inUse), WINBIO_E_DEVICE_BUSY);
}

TEST(FprintdMap, OtherErrorsFollowTheTable) {
    EXPECT_EQ(fprintd::errorCode(Call::Claim, "net.reactivated.Fprint.Error.PermissionDenied"),
              E_ACCESSDENIED);
    EXPECT_EQ(fprintd::errorCode(Call::ListEnrolledFingers, "net.reactivated.Fprint.Error.NoEnrolledPrints"),
              WINBIO_E_DATABASE_NO_RESULTS);
    EXPECT_EQ(fprintd::errorCode(Call::Claim, "net.reactivated.Fprint.Error.NoSuchDevice"),
              WINBIO_E_INVALID_UNIT);
    EXPECT_EQ(fprintd::errorCode(Call::Other, "org.freedesktop.DBus.Error.ServiceUnknown"),
              WINBIO_E_INVALID_UNIT);
    EXPECT_EQ(fprintd::errorCode(Call::Other, "org.freedesktop.DBus.Error.NameHasNoOwner"),
              WINBIO_E_INVALID_UNIT);
    EXPECT_EQ(fprintd::errorCode(Call::VerifyStart, "org.freedesktop.DBus.Error.Timeout"),
              WINBIO_E_DEVICE_FAILURE);
    EXPECT_EQ(fprintd::errorCode(Call::VerifyStart, "net.reactivated.Fprint.Error.Internal"),
              WINBIO_E_DEVICE_FAILURE);
    // The prefix alone, or a look-alike of another service, is not one of the daemon's errors.
    EXPECT_EQ(fprintd::errorCode(Call::Claim, "net.reactivated.Fprint.Error."), WINBIO_E_DEVICE_FAILURE);
    EXPECT_EQ(fprintd::errorCode(Call::Claim, "com.example.Error.PermissionDenied"), WINBIO_E_DEVICE_FAILURE);
}

TEST(FprintdMap, FingerNamesAndSubFactorsGoBothWays) {
    for (WINBIO_BIOMETRIC_SUBTYPE subFactor = 1; subFactor <= 10; ++subFactor) {
        const std::string_view finger = fprintd::fingerOfSubFactor(subFactor);
        EXPECT_EQ(fprintd::subFactorOfFinger(finger), subFactor) << finger;
    }
    EXPECT_EQ(fprintd::fingerOfSubFactor(WINBIO_ANSI_381_POS_RH_INDEX_FINGER), "right-index-finger");
    EXPECT_EQ(fprintd::fingerOfSubFactor(6), "left-thumb");
    EXPECT_EQ(fprintd::fingerOfSubFactor(0), "any");
    EXPECT_EQ(fprintd::fingerOfSubFactor(11), "any");
    EXPECT_EQ(fprintd::fingerOfSubFactor(WINBIO_SUBTYPE_ANY), "any");
    EXPECT_EQ(fprintd::subFactorOfFinger("right-index"), WINBIO_SUBTYPE_NO_INFORMATION);
    EXPECT_EQ(fprintd::subFactorOfFinger(""), WINBIO_SUBTYPE_NO_INFORMATION);
}

TEST(FprintdIdentity, TheOwnersIdentityNamesTheOwnersAccount) {
    const passwd* entry = ::getpwuid(::getuid());
    if (entry == nullptr) {
        GTEST_SKIP() << "the process owner has no account entry here";
    }
    WINBIO_IDENTITY identity{};
    ASSERT_TRUE(identityOfOwner(identity));
    EXPECT_EQ(identity.Type, WINBIO_ID_TYPE_SID);
    std::string name;
    ASSERT_TRUE(userNameOfIdentity(identity, name));
    EXPECT_EQ(name, entry->pw_name);
}

TEST(FprintdIdentity, OtherIdentitiesNameNoAccount) {
    std::string name = "unchanged";
    WINBIO_IDENTITY identity{};
    identity.Type = WINBIO_ID_TYPE_WILDCARD;
    EXPECT_FALSE(userNameOfIdentity(identity, name));
    PSID sid = nullptr;
    ASSERT_NE(ConvertStringSidToSidW(u"S-1-5-18", &sid), FALSE);  // not a user of this machine
    identity.Type = WINBIO_ID_TYPE_SID;
    identity.Value.AccountSid.Size = GetLengthSid(sid);
    std::memcpy(identity.Value.AccountSid.Data, sid, identity.Value.AccountSid.Size);
    LocalFree(sid);
    EXPECT_FALSE(userNameOfIdentity(identity, name));
    identity.Value.AccountSid.Size = SECURITY_MAX_SID_SIZE + 1;
    EXPECT_FALSE(userNameOfIdentity(identity, name));
    EXPECT_EQ(name, "unchanged");
}

TEST(FprintdChoice, FprintdIsTheDefaultOfABuildWithIt) {
    std::string warning;
    EXPECT_EQ(chooseBackendName(nullptr, true, true, warning), "fprintd");
    EXPECT_EQ(chooseBackendName("", false, true, warning), "fprintd");
    EXPECT_EQ(chooseBackendName("fprintd", true, true, warning), "fprintd");
    EXPECT_TRUE(warning.empty());
    EXPECT_EQ(chooseBackendName("sim", true, true, warning), "sim");
    EXPECT_EQ(chooseBackendName("none", true, true, warning), "none");
    EXPECT_TRUE(warning.empty());
    EXPECT_EQ(chooseBackendName("fprintd", true, false, warning), "none");
    EXPECT_NE(warning.find("fprintd"), std::string::npos);
    EXPECT_EQ(chooseBackendName(nullptr, true, false, warning), "none");
}

// A system bus without the daemon (here: no bus at all) is a machine without a reader: no unit, no session.
TEST(FprintdBackend, WithoutTheDaemonThereIsNoUnit) {
    if (!fprintdBackendBuiltIn()) {
        GTEST_SKIP() << "built without the fprintd backend (GLib not found)";
    }
    const char* previous = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    const std::string saved = previous != nullptr ? previous : "";
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/velq-test-bus", 1);
    std::unique_ptr<Backend> backend = makeFprintdBackend();
    if (previous != nullptr) {
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", saved.c_str(), 1);
    } else {
        ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }
    ASSERT_NE(backend, nullptr);
    BOOLEAN enabled = 0;
    WINBIO_SETTING_SOURCE_TYPE source = WINBIO_SETTING_SOURCE_INVALID;
    EXPECT_EQ(backend->getEnabledSetting(&enabled, &source), S_OK);
    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T count = 7;
    EXPECT_EQ(backend->enumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count), S_OK);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(units, nullptr);
    WINBIO_SESSION_HANDLE session = 5;
    EXPECT_EQ(backend->openSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, WINBIO_FLAG_DEFAULT, nullptr,
                                   0, WINBIO_DB_DEFAULT, &session),
              WINBIO_E_INVALID_UNIT);
    EXPECT_EQ(session, 0U);
    EXPECT_EQ(backend->cancel(1), E_HANDLE);
    EXPECT_EQ(backend->wait(1), E_HANDLE);
    EXPECT_EQ(backend->subscribeWindowEvents(nullptr, nullptr), 0U);
}

}  // namespace
