// The simulated sensor and the sensor-less backend, driven through the plat::WinBio calls.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "plat/messages.h"
#include "plat/security.h"
#include "plat/sensor_sim.h"
#include "plat/strings.h"
#include "plat/winbio.h"
#include "temp_folder.h"
#include "test_environment.h"
#include "winbio/backend.h"

namespace plat::winbio {
namespace {

// Only a guard against a hang: no test relies on how long anything takes.
constexpr auto kHangGuard = std::chrono::seconds(60);

class WinBioBackendTest : public ::testing::Test {
protected:
    void TearDown() override { installBackend(std::move(m_previous)); }

    void useSim(std::string_view text) {
        SimScript script;
        std::string error;
        ASSERT_TRUE(parseSimScript(text, script, error)) << error;
        std::unique_ptr<Backend> sim = makeSimBackend(script, error);
        if (!sim) {
            GTEST_SKIP() << error;
        }
        m_previous = installBackend(std::move(sim));
    }

    WINBIO_SESSION_HANDLE openSession() {
        WINBIO_SESSION_HANDLE session = 0;
        EXPECT_EQ(WinBioOpenSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, WINBIO_FLAG_DEFAULT, nullptr,
                                    0, WINBIO_DB_DEFAULT, &session),
                  S_OK);
        EXPECT_NE(session, 0u);
        return session;
    }

    std::unique_ptr<Backend> m_previous;
};

// What an identify callback saw.
struct Seen {
    std::mutex mutex;
    std::vector<HRESULT> statuses;
    std::vector<std::string> sids;
    std::vector<std::thread::id> threads;
    WINBIO_SESSION_HANDLE cancelFromInside = 0;
};

void recordIdentify(void* context, HRESULT status, WINBIO_UNIT_ID, WINBIO_IDENTITY* identity,
                    WINBIO_BIOMETRIC_SUBTYPE, WINBIO_REJECT_DETAIL) {
    auto* seen = static_cast<Seen*>(context);
    std::string sid;
    LPWSTR text = nullptr;
    if (identity != nullptr && identity->Type == WINBIO_ID_TYPE_SID &&
        ConvertSidToStringSidW(identity->Value.AccountSid.Data, &text)) {
        sid = toUtf8(text);
        LocalFree(text);
    }
    std::lock_guard<std::mutex> lock(seen->mutex);
    seen->statuses.push_back(status);
    seen->sids.push_back(sid);
    seen->threads.push_back(std::this_thread::get_id());
    if (seen->cancelFromInside != 0) {
        WinBioCancel(seen->cancelFromInside);
    }
}

HRESULT identifyOnce(WINBIO_SESSION_HANDLE session, Seen& seen) {
    const HRESULT armed = WinBioIdentifyWithCallback(session, recordIdentify, &seen);
    return FAILED(armed) ? armed : WinBioWait(session);
}

// Whose "self" is: the process owner's SID on every system (its form is pinned down by the layer's own
// tests of processOwnerSidText).
std::string selfSid() {
    return toUtf8(processOwnerSidText());
}

TEST_F(WinBioBackendTest, EnabledSettingFollowsTheScript) {
    BOOLEAN value = 0;
    WINBIO_SETTING_SOURCE_TYPE source = WINBIO_SETTING_SOURCE_INVALID;
    useSim("");
    EXPECT_EQ(WinBioGetEnabledSetting(&value, &source), S_OK);
    EXPECT_EQ(value, 1);
    EXPECT_NE(source, WINBIO_SETTING_SOURCE_INVALID);
    installBackend(std::move(m_previous));
    useSim("enabled 0");
    EXPECT_EQ(WinBioGetEnabledSetting(&value, &source), S_OK);
    EXPECT_EQ(value, 0);
    EXPECT_NE(source, WINBIO_SETTING_SOURCE_INVALID);
}

TEST_F(WinBioBackendTest, EnumerationListsTheUnitsAndZeroMeansNone) {
    useSim("units 3");
    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T count = 0;
    ASSERT_EQ(WinBioEnumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count), S_OK);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(units[0].UnitId, 1u);
    EXPECT_EQ(units[2].UnitId, 3u);
    EXPECT_EQ(units[2].BiometricFactor, WINBIO_TYPE_FINGERPRINT);
    EXPECT_EQ(WinBioFree(units), S_OK);
    EXPECT_EQ(WinBioEnumBiometricUnits(0x10, &units, &count), WINBIO_E_UNSUPPORTED_FACTOR);

    installBackend(std::move(m_previous));
    useSim("units 0");
    ASSERT_EQ(WinBioEnumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(units, nullptr);
    const WINBIO_SESSION_HANDLE session = openSession();
    EXPECT_EQ(WinBioLockUnit(session, 1), WINBIO_E_INVALID_UNIT);
    EXPECT_EQ(WinBioCloseSession(session), S_OK);
}

// The sensor chosen on first use from VELQ_WINBIO=sim follows the script file that VELQ_WINBIO_SIM names,
// also in a folder whose name has letters outside ASCII (a profile "Jürgen", a Greek "Σ"). Unread, the
// file would leave no sensor and so no units.
TEST_F(WinBioBackendTest, TheScriptFileNamedByTheEnvironmentIsReadWhateverLettersItsPathHas) {
    if (!simBackendBuiltIn()) {
        GTEST_SKIP() << "the simulated sensor is not built in";
    }
    const velq_test::TempFolder folder("velq-winbio-");
    ASSERT_FALSE(folder.path().empty());
    const std::filesystem::path file =
        folder.path() / std::filesystem::path(u"J\u00FCrgen \u03A3 sensor.txt");
    std::ofstream(file, std::ios::binary) << "units 2\n";
    const std::u8string name = file.u8string();
    const ScopedEnv chosen("VELQ_WINBIO", "sim");
    const ScopedEnv script("VELQ_WINBIO_SIM", std::string(name.begin(), name.end()).c_str());
    m_previous = installBackend(nullptr);  // the next call chooses from the environment

    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T count = 0;
    ASSERT_EQ(WinBioEnumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count), S_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(WinBioFree(units), S_OK);
}

TEST_F(WinBioBackendTest, EnrolledTemplatesCountPerSidWithSelfAsTheProcessOwner) {
    useSim("enrolled self 3\nenrolled S-1-22-1-4242 1");
    const WINBIO_SESSION_HANDLE session = openSession();
    auto templatesOf = [&](const std::string& sidText) {
        WINBIO_IDENTITY identity{};
        PSID sid = nullptr;
        EXPECT_TRUE(ConvertStringSidToSidW(fromUtf8(sidText).c_str(), &sid));
        identity.Type = WINBIO_ID_TYPE_SID;
        identity.Value.AccountSid.Size = GetLengthSid(sid);
        std::memcpy(identity.Value.AccountSid.Data, sid, identity.Value.AccountSid.Size);
        LocalFree(sid);
        WINBIO_BIOMETRIC_SUBTYPE* subFactors = nullptr;
        SIZE_T count = 99;
        EXPECT_EQ(WinBioEnumEnrollments(session, 1, &identity, &subFactors, &count), S_OK);
        if (subFactors != nullptr) {
            WinBioFree(subFactors);
        }
        return count;
    };
    EXPECT_EQ(templatesOf(selfSid()), 3u);
    EXPECT_EQ(templatesOf("S-1-22-1-4242"), 1u);
    EXPECT_EQ(templatesOf("S-1-22-1-4243"), 0u);
    EXPECT_EQ(WinBioCloseSession(session), S_OK);
}

TEST_F(WinBioBackendTest, AnotherEnrollmentMakesEnrollmentCallsReportItInProgress) {
    useSim("enrolling");
    const WINBIO_SESSION_HANDLE session = openSession();
    WINBIO_IDENTITY identity{};
    identity.Type = WINBIO_ID_TYPE_SID;
    WINBIO_BIOMETRIC_SUBTYPE* subFactors = nullptr;
    SIZE_T count = 0;
    EXPECT_EQ(WinBioEnumEnrollments(session, 1, &identity, &subFactors, &count),
              WINBIO_E_ENROLLMENT_IN_PROGRESS);
    EXPECT_EQ(WinBioEnrollBegin(session, WINBIO_ANSI_381_POS_RH_INDEX_FINGER, 1),
              WINBIO_E_ENROLLMENT_IN_PROGRESS);
    EXPECT_EQ(WinBioCloseSession(session), S_OK);
}

TEST_F(WinBioBackendTest, FailStatementsMakeThatCallFailWithTheCode) {
    useSim(
        "fail WinBioWait 0x8009800F\nfail WinBioLockUnit 0x80098010\nfail WinBioGetEnabledSetting "
        "0x80004005");
    const WINBIO_SESSION_HANDLE session = openSession();
    EXPECT_EQ(WinBioLockUnit(session, 1), WINBIO_E_DEVICE_BUSY);
    EXPECT_EQ(WinBioWait(session), WINBIO_E_INVALID_DEVICE_STATE);
    BOOLEAN value = 1;
    WINBIO_SETTING_SOURCE_TYPE source = WINBIO_SETTING_SOURCE_DEFAULT;
    EXPECT_EQ(WinBioGetEnabledSetting(&value, &source), E_FAIL);
    EXPECT_EQ(source, WINBIO_SETTING_SOURCE_INVALID);
    EXPECT_EQ(WinBioUnlockUnit(session, 1), WINBIO_E_INVALID_OPERATION);
    EXPECT_EQ(WinBioCloseSession(session), S_OK);

    installBackend(std::move(m_previous));
    useSim("fail WinBioOpenSession 0x80098036");
    WINBIO_SESSION_HANDLE none = 0;
    EXPECT_EQ(WinBioOpenSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, WINBIO_FLAG_DEFAULT, nullptr, 0,
                                WINBIO_DB_DEFAULT, &none),
              WINBIO_E_DEVICE_FAILURE);
}

TEST_F(WinBioBackendTest, TouchesArriveInOrderOnTheSensorsThreadWhileTheCallerWaits) {
    useSim("touch self\ntouch unknown\ntouch nomatch\ntouch bad\ntouch error 0x80098036\ntouch S-1-22-1-7");
    const WINBIO_SESSION_HANDLE session = openSession();
    ASSERT_EQ(WinBioLockUnit(session, 1), S_OK);
    Seen seen;
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(identifyOnce(session, seen), S_OK);
    }
    EXPECT_EQ(WinBioUnlockUnit(session, 1), S_OK);
    EXPECT_EQ(WinBioCloseSession(session), S_OK);
    const std::vector<HRESULT> expected = {
        S_OK, WINBIO_E_UNKNOWN_ID, WINBIO_E_NO_MATCH, WINBIO_E_BAD_CAPTURE, WINBIO_E_DEVICE_FAILURE, S_OK};
    EXPECT_EQ(seen.statuses, expected);
    EXPECT_EQ(seen.sids.front(), selfSid());
    EXPECT_EQ(seen.sids.back(), "S-1-22-1-7");
    for (const std::thread::id& id : seen.threads) {
        EXPECT_NE(id, std::this_thread::get_id());
    }
}

TEST_F(WinBioBackendTest, CancelFromAnotherThreadEndsTheWaitAndThePendingCallbackHearsCanceled) {
    useSim("");  // no touch ever comes
    const WINBIO_SESSION_HANDLE session = openSession();
    Seen seen;
    ASSERT_EQ(WinBioIdentifyWithCallback(session, recordIdentify, &seen), S_OK);
    std::atomic<bool> waited{false};
    std::thread worker([&] {
        EXPECT_EQ(WinBioWait(session), S_OK);
        waited = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(waited) << "the wait ended without a touch or a cancel";
    EXPECT_EQ(WinBioCancel(session), S_OK);
    worker.join();
    ASSERT_EQ(seen.statuses.size(), 1u);
    EXPECT_EQ(seen.statuses[0], WINBIO_E_CANCELED);
    EXPECT_EQ(WinBioCancel(session), S_OK) << "a cancel with nothing pending is no failure";
    EXPECT_EQ(WinBioCloseSession(session), S_OK);
    EXPECT_EQ(WinBioCancel(session), E_HANDLE);
}

TEST_F(WinBioBackendTest, AfterTheTimelineTheSensorWaitsUntilCancelledEvenFromItsOwnCallback) {
    useSim("touch self");
    const WINBIO_SESSION_HANDLE session = openSession();
    Seen seen;
    ASSERT_EQ(identifyOnce(session, seen), S_OK);
    ASSERT_EQ(WinBioIdentifyWithCallback(session, recordIdentify, &seen), S_OK);
    std::thread canceller([&] { EXPECT_EQ(WinBioCancel(session), S_OK); });
    EXPECT_EQ(WinBioWait(session), S_OK);
    canceller.join();
    EXPECT_EQ(seen.statuses, (std::vector<HRESULT>{S_OK, WINBIO_E_CANCELED}));

    // A callback that cancels, as the verification does at a match, must not hang the sensor.
    installBackend(std::move(m_previous));
    useSim("touch self\ntouch self");
    const WINBIO_SESSION_HANDLE second = openSession();
    Seen inside;
    inside.cancelFromInside = second;
    EXPECT_EQ(identifyOnce(second, inside), S_OK);
    EXPECT_EQ(identifyOnce(second, inside), S_OK);
    EXPECT_EQ(inside.statuses, (std::vector<HRESULT>{S_OK, S_OK}));
    EXPECT_EQ(WinBioCloseSession(second), S_OK);
}

TEST_F(WinBioBackendTest, ASecondOperationOnABusySessionIsRefusedAndClosingCancelsThePendingOne) {
    useSim("");
    const WINBIO_SESSION_HANDLE session = openSession();
    Seen seen;
    ASSERT_EQ(WinBioIdentifyWithCallback(session, recordIdentify, &seen), S_OK);
    EXPECT_EQ(WinBioIdentifyWithCallback(session, recordIdentify, &seen), WINBIO_E_SESSION_BUSY);
    EXPECT_EQ(WinBioIdentifyWithCallback(session, nullptr, &seen), E_POINTER);
    EXPECT_EQ(WinBioCloseSession(session), S_OK);
    // Closing cancels what was pending, and its callback has run by the time the close returns.
    EXPECT_EQ(seen.statuses, (std::vector<HRESULT>{WINBIO_E_CANCELED}));
    EXPECT_EQ(WinBioWait(session), E_HANDLE);
}

// Window statements, as the wait window's backend receives them.
struct WindowLog {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<UINT, WPARAM>> events;

    bool waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, kHangGuard, [&] { return events.size() >= count; });
    }
};

void recordWindowEvent(void* context, UINT message, WPARAM wParam) {
    auto* log = static_cast<WindowLog*>(context);
    std::lock_guard<std::mutex> lock(log->mutex);
    log->events.emplace_back(message, wParam);
    log->changed.notify_all();
}

TEST_F(WinBioBackendTest, WindowStatementsGoToTheShownWindowInOrder) {
    useSim("pause 5\nclose-window\nsession 7\npower 4");
    WindowLog log;
    const std::uint64_t id = sensor::subscribeWindowEvents(recordWindowEvent, &log);
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(log.waitFor(3));
    sensor::unsubscribeWindowEvents(id);
    const std::vector<std::pair<UINT, WPARAM>> expected = {
        {WM_CLOSE, 0}, {WM_WTSSESSION_CHANGE, 7}, {WM_POWERBROADCAST, 4}};
    EXPECT_EQ(log.events, expected);
}

TEST_F(WinBioBackendTest, AWindowStatementHoldsBackTheTimelineUntilAWindowShows) {
    useSim("touch self\nclose-window\ntouch unknown");
    const WINBIO_SESSION_HANDLE session = openSession();
    Seen seen;
    ASSERT_EQ(identifyOnce(session, seen), S_OK);
    ASSERT_EQ(WinBioIdentifyWithCallback(session, recordIdentify, &seen), S_OK);
    std::thread worker([&] { EXPECT_EQ(WinBioWait(session), S_OK); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    {
        std::lock_guard<std::mutex> lock(seen.mutex);
        EXPECT_EQ(seen.statuses.size(), 1u) << "the touch after close-window came before the window showed";
    }
    WindowLog log;
    const std::uint64_t id = sensor::subscribeWindowEvents(recordWindowEvent, &log);
    ASSERT_TRUE(log.waitFor(1));
    worker.join();
    sensor::unsubscribeWindowEvents(id);
    EXPECT_EQ(seen.statuses, (std::vector<HRESULT>{S_OK, WINBIO_E_UNKNOWN_ID}));
    EXPECT_EQ(log.events.front().first, WM_CLOSE);
    EXPECT_EQ(WinBioCloseSession(session), S_OK);
}

// An enrollment that asks for one more sample until the touch is good.
struct Enrollment {
    WINBIO_SESSION_HANDLE session = 0;
    std::vector<HRESULT> statuses;
};

void enrollSample(void* context, HRESULT status, WINBIO_REJECT_DETAIL) {
    auto* enrollment = static_cast<Enrollment*>(context);
    enrollment->statuses.push_back(status);
    if (status == WINBIO_E_BAD_CAPTURE) {
        EXPECT_EQ(WinBioEnrollCaptureWithCallback(enrollment->session, enrollSample, context), S_OK);
    }
}

TEST_F(WinBioBackendTest, EnrollmentSamplesArmedFromTheCallbackLastThroughOneWait) {
    useSim("touch bad\ntouch bad\ntouch self");
    Enrollment enrollment;
    enrollment.session = openSession();
    EXPECT_EQ(WinBioEnrollCaptureWithCallback(enrollment.session, enrollSample, &enrollment),
              WINBIO_E_INVALID_OPERATION);
    ASSERT_EQ(WinBioEnrollBegin(enrollment.session, WINBIO_ANSI_381_POS_RH_INDEX_FINGER, 1), S_OK);
    ASSERT_EQ(WinBioEnrollCaptureWithCallback(enrollment.session, enrollSample, &enrollment), S_OK);
    EXPECT_EQ(WinBioWait(enrollment.session), S_OK);
    EXPECT_EQ(enrollment.statuses, (std::vector<HRESULT>{WINBIO_E_BAD_CAPTURE, WINBIO_E_BAD_CAPTURE, S_OK}));
    EXPECT_EQ(WinBioEnrollDiscard(enrollment.session), S_OK);
    EXPECT_EQ(WinBioCloseSession(enrollment.session), S_OK);
}

struct Events {
    std::vector<std::pair<WINBIO_EVENT_TYPE, HRESULT>> seen;
    WINBIO_SESSION_HANDLE session = 0;
};

void monitorEvent(void* context, HRESULT status, WINBIO_EVENT* event) {
    auto* events = static_cast<Events*>(context);
    events->seen.emplace_back(event->Type, status);
    WinBioFree(event);
    if (events->seen.size() == 2) {
        WinBioCancel(events->session);
    }
}

TEST_F(WinBioBackendTest, EventMonitorGetsEveryTouchUntilCancelled) {
    useSim("touch self\ntouch unknown");
    Events events;
    events.session = openSession();
    ASSERT_EQ(
        WinBioRegisterEventMonitor(events.session, WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY, monitorEvent, &events),
        S_OK);
    EXPECT_EQ(
        WinBioRegisterEventMonitor(events.session, WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY, monitorEvent, &events),
        WINBIO_E_EVENT_MONITOR_ACTIVE);
    EXPECT_EQ(WinBioWait(events.session), S_OK);
    const std::vector<std::pair<WINBIO_EVENT_TYPE, HRESULT>> expected = {
        {WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY, S_OK},
        {WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY, WINBIO_E_UNKNOWN_ID},
        {WINBIO_EVENT_ERROR, WINBIO_E_CANCELED}};
    EXPECT_EQ(events.seen, expected);
    EXPECT_EQ(WinBioUnregisterEventMonitor(events.session), S_OK);
    EXPECT_EQ(WinBioCloseSession(events.session), S_OK);
}

TEST_F(WinBioBackendTest, WithoutASensorEveryCallFailsAsOnAMachineWithoutOne) {
    m_previous = installBackend(makeNoneBackend());
    BOOLEAN value = 0;
    WINBIO_SETTING_SOURCE_TYPE source = 0;
    EXPECT_EQ(WinBioGetEnabledSetting(&value, &source), S_OK);
    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T count = 5;
    EXPECT_EQ(WinBioEnumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count), S_OK);
    EXPECT_EQ(count, 0u);
    WINBIO_SESSION_HANDLE session = 0;
    EXPECT_TRUE(FAILED(WinBioOpenSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, WINBIO_FLAG_DEFAULT,
                                         nullptr, 0, WINBIO_DB_DEFAULT, &session)));
    EXPECT_EQ(WinBioLockUnit(1, 1), E_HANDLE);
    EXPECT_EQ(WinBioWait(1), E_HANDLE);
    EXPECT_EQ(WinBioCancel(1), E_HANDLE);
    EXPECT_EQ(WinBioCloseSession(1), E_HANDLE);
    EXPECT_EQ(sensor::subscribeWindowEvents(recordWindowEvent, nullptr), 0u);
}

TEST(WinBioBackendChoice, SimOnlyWhenAskedAndBuiltInAnythingElseIsNoneWithAWarningForUnknownNames) {
    std::string warning;
    EXPECT_EQ(chooseBackendName("sim", true, warning), "sim");
    EXPECT_TRUE(warning.empty());
    EXPECT_EQ(chooseBackendName(nullptr, true, warning), "none");
    EXPECT_TRUE(warning.empty());
    EXPECT_EQ(chooseBackendName("none", true, warning), "none");
    EXPECT_TRUE(warning.empty());
    EXPECT_EQ(chooseBackendName("fprintd", true, warning), "none");
    EXPECT_NE(warning.find("fprintd"), std::string::npos);
    EXPECT_EQ(chooseBackendName("sim", false, warning), "none");
    EXPECT_NE(warning.find("sim"), std::string::npos);
}

TEST(WinBioSimWarning, IsPrintedOnStderrWhenTheSimulatedSensorStarts) {
    std::string error;
    ::testing::internal::CaptureStderr();
    std::unique_ptr<Backend> sim = makeSimBackend(SimScript{}, error);
    const std::string printed = ::testing::internal::GetCapturedStderr();
    if (!sim) {
        GTEST_SKIP() << error;
    }
    EXPECT_NE(printed.find(std::string(kSimWarning)), std::string::npos);
}

}  // namespace
}  // namespace plat::winbio
