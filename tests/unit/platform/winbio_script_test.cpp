// Reading the simulated sensor's description: every statement, the defaults, and bad lines.
#include <gtest/gtest.h>

#include "winbio/sim_script.h"

namespace plat::winbio {
namespace {

SimScript parsed(std::string_view text) {
    SimScript script;
    std::string error;
    EXPECT_TRUE(parseSimScript(text, script, error)) << error;
    return script;
}

std::string errorOf(std::string_view text) {
    SimScript script;
    std::string error;
    EXPECT_FALSE(parseSimScript(text, script, error)) << "accepted: " << text;
    return error;
}

TEST(SimScriptSettings, EmptyTextGivesAnEnabledSensorWithOneUnitAndNoTimeline) {
    const SimScript script = parsed("");
    EXPECT_TRUE(script.enabled);
    EXPECT_EQ(script.units, 1u);
    EXPECT_TRUE(script.enrolled.empty());
    EXPECT_FALSE(script.enrolling);
    EXPECT_TRUE(script.failures.empty());
    EXPECT_TRUE(script.timeline.empty());
}

TEST(SimScriptSettings, ReadsEveryConfigurationStatement) {
    const SimScript script = parsed(
        "enabled 0\nunits 3\nenrolled self 2\nenrolled S-1-22-1-1234 4\nenrolling\n"
        "fail WinBioOpenSession 0x80098036\nfail WinBioWait 0X8009800f\n");
    EXPECT_FALSE(script.enabled);
    EXPECT_EQ(script.units, 3u);
    EXPECT_EQ(script.enrolled.at("self"), 2u);
    EXPECT_EQ(script.enrolled.at("S-1-22-1-1234"), 4u);
    EXPECT_TRUE(script.enrolling);
    EXPECT_EQ(script.failures.at("WinBioOpenSession"), static_cast<HRESULT>(0x80098036));
    EXPECT_EQ(script.failures.at("WinBioWait"), static_cast<HRESULT>(0x8009800F));
}

TEST(SimScriptSettings, LaterLinesForTheSameThingWin) {
    const SimScript script =
        parsed("units 4\nunits 0\nenrolled self 2\nenrolled self 0\nenabled 0\nenabled 1");
    EXPECT_EQ(script.units, 0u);
    EXPECT_EQ(script.enrolled.at("self"), 0u);
    EXPECT_TRUE(script.enabled);
}

TEST(SimScriptTimeline, TouchesCarryTheirStatusAndWhose) {
    const SimScript script = parsed(
        "touch self\ntouch S-1-22-1-77\ntouch unknown\ntouch nomatch\ntouch bad\ntouch error 0x80098036");
    ASSERT_EQ(script.timeline.size(), 6u);
    for (const SimStep& step : script.timeline) {
        EXPECT_EQ(step.kind, SimStep::Kind::Touch);
    }
    EXPECT_EQ(script.timeline[0].status, S_OK);
    EXPECT_EQ(script.timeline[0].sid, "self");
    EXPECT_EQ(script.timeline[1].sid, "S-1-22-1-77");
    EXPECT_EQ(script.timeline[2].status, static_cast<HRESULT>(0x80098003));
    EXPECT_EQ(script.timeline[3].status, static_cast<HRESULT>(0x80098005));
    EXPECT_EQ(script.timeline[4].status, static_cast<HRESULT>(0x80098008));
    EXPECT_EQ(script.timeline[5].status, static_cast<HRESULT>(0x80098036));
    EXPECT_TRUE(script.timeline[5].sid.empty());
}

TEST(SimScriptTimeline, WindowEventsAndPausesKeepTheirOrderAndValues) {
    const SimScript script = parsed("close-window\nsession 0x5\npower 4\npause 250\ntouch self");
    ASSERT_EQ(script.timeline.size(), 5u);
    EXPECT_EQ(script.timeline[0].kind, SimStep::Kind::CloseWindow);
    EXPECT_EQ(script.timeline[1].kind, SimStep::Kind::Session);
    EXPECT_EQ(script.timeline[1].value, 5u);
    EXPECT_EQ(script.timeline[2].kind, SimStep::Kind::Power);
    EXPECT_EQ(script.timeline[2].value, 4u);
    EXPECT_EQ(script.timeline[3].kind, SimStep::Kind::Pause);
    EXPECT_EQ(script.timeline[3].value, 250u);
    EXPECT_EQ(script.timeline[4].kind, SimStep::Kind::Touch);
}

TEST(SimScriptLayout, SkipsCommentsBlankLinesAndCarriageReturnsAndAcceptsTabs) {
    const SimScript script =
        parsed("# a sensor\r\n\r\n   \n\t# indented comment\nunits\t2\r\n  touch   self  \n");
    EXPECT_EQ(script.units, 2u);
    ASSERT_EQ(script.timeline.size(), 1u);
    EXPECT_EQ(script.timeline[0].sid, "self");
}

TEST(SimScriptErrors, NameTheLineAndWhatIsWrong) {
    EXPECT_EQ(errorOf("units 1\n# fine\nwiggle finger"), "line 3: unknown statement 'wiggle'");
    EXPECT_EQ(errorOf("\r\nenabled 2"), "line 2: enabled takes 0 or 1, not '2'");
    EXPECT_EQ(errorOf("touch"), "line 1: expected 'touch SID'");
    EXPECT_EQ(errorOf("fail WinBioFly 0x1"), "line 1: 'WinBioFly' is no WinBio call");
}

TEST(SimScriptErrors, RefuseBadNumbersCodesAndSids) {
    const char* bad[] = {"units -1",
                         "units 65",
                         "units 1 2",
                         "units x",
                         "enrolled self 11",
                         "enrolled bob 1",
                         "enrolled self",
                         "enrolling now",
                         "fail WinBioWait 5",
                         "fail WinBioWait 0x",
                         "fail WinBioWait 0x123456789",
                         "touch someone",
                         "touch S-1-22-1-",
                         "touch error",
                         "touch error 42",
                         "touch error 0x0",
                         "touch error 0x00000001",
                         "close-window now",
                         "session",
                         "power -4",
                         "pause 1.5",
                         "pause 0x10",
                         "Touch self"};
    for (const char* line : bad) {
        const std::string error = errorOf(line);
        EXPECT_EQ(error.rfind("line 1: ", 0), 0u) << line << " -> " << error;
    }
}

TEST(SimScriptNames, KnowEveryWinBioCallAndNothingElse) {
    EXPECT_TRUE(isWinBioCallName("WinBioIdentifyWithCallback"));
    EXPECT_TRUE(isWinBioCallName("WinBioUnregisterEventMonitor"));
    EXPECT_TRUE(isWinBioCallName("WinBioEnumEnrollments"));
    EXPECT_FALSE(isWinBioCallName("winbiowait"));
    EXPECT_FALSE(isWinBioCallName(""));
}

}  // namespace
}  // namespace plat::winbio
