// The fingerprint gate on the simulated sensor: what the person sees and what the caller is told.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "bio/FPWaitDialog.h"
#include "bio/VELQVerifyUser.h"
#include "bio/recording_ui.h"
#include "plat/messages.h"
#include "plat/security.h"
#include "plat/strings.h"
#include "plat/ui.h"
#include "plat/windows.h"
#include "temp_folder.h"
#include "test_environment.h"
#include "winbio/backend.h"
#include "winbio/sim_script.h"

namespace {

using velq_test::boxEvent;
using velq_test::ScopedRecordingUi;
using Events = std::vector<std::string>;

// Only a guard against a hang: no test relies on how long anything takes.
constexpr auto kHangGuard = std::chrono::seconds(60);

struct Outcome {
    plat::BOOL initialised = plat::FALSE;
    plat::BOOL result = plat::FALSE;
    plat::BOOL cancelled = plat::FALSE;
    plat::BOOL verified = plat::FALSE;
};

class VerifyUserTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // The gate reads the owner's records: keep them in a folder of this test program.
        s_home = velq_test::makeTempFolder("velq-bio-test-");
        setEnvironment("VELQ_DATA_HOME", velq_test::utf8Of(s_home).c_str());
    }
    static void TearDownTestSuite() {
        setEnvironment("VELQ_DATA_HOME", nullptr);
        if (!s_home.empty()) {
            velq_test::removeTree(s_home);
        }
    }
    void TearDown() override {
        if (m_bInstalled) {
            plat::winbio::installBackend(std::move(m_previous));
        }
    }

    void useSensor(const std::string& script) {
        plat::winbio::SimScript parsed;
        std::string error;
        ASSERT_TRUE(plat::winbio::parseSimScript(script, parsed, error)) << error;
        std::unique_ptr<plat::winbio::Backend> sim = plat::winbio::makeSimBackend(parsed, error);
        if (!sim) {
            GTEST_SKIP() << error;
        }
        m_previous = plat::winbio::installBackend(std::move(sim));
        m_bInstalled = true;
    }

    // The gate as the program runs it: construct, open, verify, stop. A wait that does not end within the
    // hang guard is a failure, and the window is then closed so that the test can end.
    Outcome runGate() {
        Outcome outcome;
        VELQVerifyUser gate(nullptr, true);
        outcome.initialised = gate.initBIODevice();
        if (!outcome.initialised) {
            return outcome;
        }
        std::future<void> wait = std::async(std::launch::async, [&] {
            outcome.result = gate.verifyUser(&outcome.cancelled, &outcome.verified);
        });
        if (wait.wait_for(kHangGuard) != std::future_status::ready) {
            ADD_FAILURE() << "the wait did not end";
            plat::PostMessageW(gate.getWaitDialog()->getWindow(), plat::WM_CLOSE, 0, 0);
        }
        wait.get();
        gate.stopBIODevice();
        return outcome;
    }

    static void expectPassed(const Outcome& outcome) {
        EXPECT_TRUE(outcome.initialised);
        EXPECT_TRUE(outcome.result);
        EXPECT_FALSE(outcome.cancelled);
        EXPECT_TRUE(outcome.verified);
    }
    static void expectRefusedAfterWait(const Outcome& outcome) {
        EXPECT_TRUE(outcome.initialised);
        EXPECT_TRUE(outcome.result);
        EXPECT_TRUE(outcome.cancelled);
        EXPECT_FALSE(outcome.verified);
    }
    Events events() { return m_recording.ui().events(); }
    long count(const std::string& event) {
        const Events all = events();
        return std::count(all.begin(), all.end(), event);
    }

    static inline std::filesystem::path s_home;
    ScopedRecordingUi m_recording;
    std::unique_ptr<plat::winbio::Backend> m_previous;
    bool m_bInstalled = false;
};

// An account other than the process owner (on Windows the owner's SID is never one of these two).
std::string otherUserSid() {
    return plat::toUtf8(plat::processOwnerSidText()) == "S-1-22-1-0" ? "S-1-22-1-1" : "S-1-22-1-0";
}

TEST_F(VerifyUserTest, OwnersFingerShowsTheTickAndPasses) {
    useSensor("enrolled self 2\ntouch self\n");
    expectPassed(runGate());
    EXPECT_EQ(events(), (Events{"show", "image 509", "image 504", "hide", "close"}));
}

TEST_F(VerifyUserTest, EveryRefusedReadShowsTheCrossAndTheSensorReadsOn) {
    useSensor(
        "enrolled self 1\ntouch nomatch\ntouch unknown\ntouch bad\ntouch nomatch\ntouch nomatch\n"
        "touch self\n");
    expectPassed(runGate());
    EXPECT_EQ(count("image 505"), 5);
    EXPECT_EQ(count("image 509"), 6);  // once at the start, again after each refusal
    EXPECT_EQ(events().back(), "close");
    EXPECT_EQ(count("image 504"), 1);
}

TEST_F(VerifyUserTest, AnotherEnrolledUsersFingerIsRefusedAndTheWaitGoesOn) {
    const std::string other = otherUserSid();
    useSensor("enrolled self 1\nenrolled " + other + " 1\ntouch " + other + "\ntouch " + other +
              "\ntouch self\n");
    expectPassed(runGate());
    EXPECT_EQ(count("image 505"), 2);
}

TEST_F(VerifyUserTest, ADeviceErrorEndsTheWaitWithoutAMessage) {
    useSensor("enrolled self 1\ntouch error 0x80098036\n");
    expectRefusedAfterWait(runGate());
    for (const std::string& event : events()) {
        EXPECT_NE(event.rfind("box", 0), 0u) << event;
    }
    EXPECT_EQ(count("close"), 1);
}

struct WindowEnd {
    const char* statement;
    bool endsTheWait;
};

class VerifyUserWindowTest : public VerifyUserTest, public ::testing::WithParamInterface<WindowEnd> {};

TEST_P(VerifyUserWindowTest, TheWindowGoingAwayCancelsOnlyForTheClosingCodes) {
    const WindowEnd end = GetParam();
    // A closing code ends the wait by itself; without one, the owner's finger that follows passes the gate
    // (after a pause in which a wrong close would already have ended the wait).
    useSensor(std::string("enrolled self 1\n") + end.statement +
              (end.endsTheWait ? "\n" : "\npause 300\ntouch self\n"));
    const Outcome outcome = runGate();
    if (end.endsTheWait) {
        expectRefusedAfterWait(outcome);
        EXPECT_EQ(count("image 504"), 0);
    } else {
        expectPassed(outcome);
    }
    EXPECT_EQ(count("close"), 1);
}

INSTANTIATE_TEST_SUITE_P(Statements, VerifyUserWindowTest,
                         ::testing::Values(WindowEnd{"close-window", true}, WindowEnd{"session 1", false},
                                           WindowEnd{"session 2", true}, WindowEnd{"session 5", true},
                                           WindowEnd{"session 6", true}, WindowEnd{"session 7", true},
                                           WindowEnd{"session 8", true}, WindowEnd{"power 4", true},
                                           WindowEnd{"power 5", true}, WindowEnd{"power 6", true},
                                           WindowEnd{"power 7", false}, WindowEnd{"power 18", true}));

TEST_F(VerifyUserTest, NoEnrolledFingerShowsMessage1060AndNoWindow) {
    useSensor("touch self\n");
    const Outcome outcome = runGate();
    EXPECT_TRUE(outcome.initialised);
    EXPECT_FALSE(outcome.result);
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_FALSE(outcome.verified);
    EXPECT_EQ(events(), (Events{boxEvent(VELQVerifyUser::kMsgEnrollFingers, plat::MB_ICONERROR)}));
}

TEST_F(VerifyUserTest, AnotherEnrollmentRunningShowsMessage1065WhateverTheCount) {
    useSensor("enrolled self 3\nenrolling\ntouch self\n");
    const Outcome outcome = runGate();
    EXPECT_FALSE(outcome.result);
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_FALSE(outcome.verified);
    EXPECT_EQ(events(), (Events{boxEvent(VELQVerifyUser::kMsgEnrollmentBusy, plat::MB_ICONWARNING)}));
}

TEST_F(VerifyUserTest, DisabledBiometricsOrNoUnitCannotOpenTheSensor) {
    for (const char* script : {"enabled 0\nenrolled self 1\n", "units 0\nenrolled self 1\n",
                               "enrolled self 1\nfail WinBioOpenSession 0x80098004\n"}) {
        SCOPED_TRACE(script);
        useSensor(script);
        EXPECT_FALSE(runGate().initialised);
        plat::winbio::installBackend(std::move(m_previous));
        m_bInstalled = false;
    }
    EXPECT_TRUE(events().empty());
}

TEST_F(VerifyUserTest, StopWithoutAVerificationIsHarmless) {
    useSensor("enrolled self 1\n");
    VELQVerifyUser gate(nullptr, true);
    ASSERT_TRUE(gate.initBIODevice());
    EXPECT_TRUE(gate.stopBIODevice());
    EXPECT_TRUE(events().empty());
}

}  // namespace
