#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "dbglog_test_support.h"
#include "diag/DbgLog.h"

namespace dbglog_test {
namespace {

const DbgLogSite kTraceSite{u"/src/app/VELQFileEncryptMain", 255, u" (_parseCmdLine)", u"", DBG_LEVEL_TRC};
const DbgLogSite kErrorSite{u"/src/app/VELQFileEncryptMain", 300, u" (_parseCmdLine)", u"", DBG_LEVEL_ERR};
const DbgLogSite kInfoSite{u"/src/app/VELQFileEncryptMain", 310, u" (_parseCmdLine)", u"", DBG_LEVEL_INF};

using DbgLogLines = DbgLogTest;

TEST_F(DbgLogLines, WithoutConfigurationNothingIsWritten) {
    useConfiguration(m_folder + "/missing.ini");
    EXPECT_EQ(dbgLogPrint(kErrorSite, u"Error Code: 0x%x", 5), 0);
    { DbgTrace trace(u"wWinMain", u"/src/x.cpp", 1, u"", DBG_LEVEL_TRC, u" (wWinMain)"); }
    EXPECT_TRUE(g_debuggerLines.empty());
}

TEST_F(DbgLogLines, LineFormatByteForByte) {
    configure("Level=3\nDestination=1\n");
    const std::u16string expected =
        u"14:03:07.045: VELQFileEncryptMain(255):  [TRC] (_parseCmdLine): lpCmdLine = 1::C:\\a\\b.txt::1\n";
    EXPECT_EQ(dbgLogPrint(kTraceSite, u"%s = %s", u"lpCmdLine", u"1::C:\\a\\b.txt::1"),
              static_cast<int>(expected.size()));
    ASSERT_EQ(g_debuggerLines.size(), 1u);
    EXPECT_EQ(g_debuggerLines[0], expected);
}

TEST_F(DbgLogLines, TimeStampForms) {
    configure("Level=3\nDestination=1\nTimeDateFormat=0\n");
    dbgLogPrint(kErrorSite, u"x");
    configure("Level=3\nDestination=1\nTimeDateFormat=2\n");
    dbgLogPrint(kErrorSite, u"x");
    configure("Level=3\nDestination=1\nTimeDateFormat=9\n");  // counts as 1
    dbgLogPrint(kErrorSite, u"x");
    configure("Level=3\nDestination=1\nTimeDateFormat=3\n");
    g_tick = 0xFFFFFF00u;  // the base, just before the counter wraps
    dbgLogPrint(kErrorSite, u"x");
    g_tick = 0xFFFFFF00u + 62345u;
    dbgLogPrint(kErrorSite, u"x");
    const std::u16string rest = u"VELQFileEncryptMain(300):  [ERR] (_parseCmdLine): x\n";
    ASSERT_EQ(g_debuggerLines.size(), 5u);
    EXPECT_EQ(g_debuggerLines[0], rest);
    EXPECT_EQ(g_debuggerLines[1], u"2024-03-05 14:03:07.045: " + rest);
    EXPECT_EQ(g_debuggerLines[2], u"14:03:07.045: " + rest);
    EXPECT_EQ(g_debuggerLines[3], u"0.000: " + rest);
    EXPECT_EQ(g_debuggerLines[4], u"62.345: " + rest);
}

TEST_F(DbgLogLines, SourceFileFormats) {
    const DbgLogSite site{u"/work/src/engine/Encrypt.cpp", 7, u" (f)", u"", DBG_LEVEL_ERR};
    for (const char* value : {"0", "1", "2", "-1"}) {
        configure(std::string("Destination=1\nTimeDateFormat=0\nSourceFileFormat=") + value + "\n");
        dbgLogPrint(site, u"m");
    }
    ASSERT_EQ(g_debuggerLines.size(), 4u);
    EXPECT_EQ(g_debuggerLines[0], u"Encrypt.cpp(7):  [ERR] (f): m\n");
    EXPECT_EQ(g_debuggerLines[1], u"/work/src/engine/Encrypt.cpp(7):  [ERR] (f): m\n");
    EXPECT_EQ(g_debuggerLines[2], g_debuggerLines[0]);
    EXPECT_EQ(g_debuggerLines[3], g_debuggerLines[0]);
}

TEST_F(DbgLogLines, AMessageOf600CharactersIsCutAt510) {
    configure("Destination=1\n");
    const std::u16string message(600, u'm');
    EXPECT_EQ(dbgLogPrint(kErrorSite, u"%s", message.c_str()), 512);
    ASSERT_EQ(g_debuggerLines.size(), 1u);
    const std::u16string& line = g_debuggerLines[0];
    ASSERT_EQ(line.size(), 511u);
    EXPECT_EQ(line[510], u'\n');
    EXPECT_EQ(line[509], u'm');
    EXPECT_EQ(line.substr(0, 14), u"14:03:07.045: ");
}

TEST_F(DbgLogLines, ALineOfExactly511UnitsCountsAsCut) {
    configure("Destination=1\nTimeDateFormat=0\n");
    const std::u16string prefix = u"VELQFileEncryptMain(300):  [ERR] (_parseCmdLine): ";
    const std::u16string fits(510 - prefix.size(), u'a');  // 510 units: room for the line feed
    EXPECT_EQ(dbgLogPrint(kErrorSite, u"%s", fits.c_str()), 511);
    const std::u16string full = fits + u"a";  // 511 units: the line feed takes the last one
    EXPECT_EQ(dbgLogPrint(kErrorSite, u"%s", full.c_str()), 512);
    ASSERT_EQ(g_debuggerLines.size(), 2u);
    EXPECT_EQ(g_debuggerLines[0], prefix + fits + u"\n");
    EXPECT_EQ(g_debuggerLines[1], prefix + fits.substr(1) + u"a\n");
}

TEST_F(DbgLogLines, PercentInsideAnArgumentStaysLiteral) {
    configure("Destination=1\nTimeDateFormat=0\n");
    dbgLogPrint(kErrorSite, u"### Processing file: %s. ###", u"/home/u/%s%d%n.txt");
    ASSERT_EQ(g_debuggerLines.size(), 1u);
    EXPECT_EQ(
        g_debuggerLines[0],
        u"VELQFileEncryptMain(300):  [ERR] (_parseCmdLine): ### Processing file: /home/u/%s%d%n.txt. ###\n");
}

TEST_F(DbgLogLines, ABadFormatStillEndsTheLine) {
    configure("Destination=1\nTimeDateFormat=0\n");
    EXPECT_EQ(dbgLogPrint(kErrorSite, u"half %"), 512);
    ASSERT_EQ(g_debuggerLines.size(), 1u);
    EXPECT_EQ(g_debuggerLines[0].back(), u'\n');
}

using DbgLogFilter = DbgLogTest;

// The levels the program uses (0, 2, 3) written under each "Level" value: ERR, INF, TRC as a mask.
int writtenMask(const std::vector<std::u16string>& lines) {
    int mask = 0;
    for (const std::u16string& line : lines) {
        mask |= line.find(u"[ERR]") != line.npos ? 1 : line.find(u"[INF]") != line.npos ? 2 : 4;
    }
    return mask;
}

class DbgLogLevels : public DbgLogTest {
protected:
    int maskFor(const std::string& level) {
        configure("Destination=1\nLevel=" + level + "\n");
        g_debuggerLines.clear();
        EXPECT_GT(dbgLogPrint(kErrorSite, u"e"), 0);
        dbgLogPrint(kInfoSite, u"i");
        dbgLogPrint(kTraceSite, u"t");
        return writtenMask(g_debuggerLines);
    }
};

TEST_F(DbgLogLevels, EachLevelWritesItsLinesAndOddValuesCountAsZero) {
    EXPECT_EQ(maskFor("0"), 1);
    EXPECT_EQ(maskFor("1"), 1);  // WRN: no call of the program uses it, so the same as 0
    EXPECT_EQ(maskFor("2"), 3);
    EXPECT_EQ(maskFor("3"), 7);
    EXPECT_EQ(maskFor("7"), 1);
    EXPECT_EQ(maskFor("-1"), 1);
    EXPECT_EQ(maskFor("abc"), 1);
}

TEST_F(DbgLogFilter, DestinationsOutOfRangeTurnTheLogOff) {
    for (const char* destination : {"0", "9", "-1", "5"}) {
        configure(std::string("Level=3\nDestination=") + destination + "\n");
        EXPECT_EQ(dbgLogPrint(kErrorSite, u"e"), 0) << destination;
    }
    EXPECT_TRUE(g_debuggerLines.empty());
}

TEST_F(DbgLogFilter, FilteredCallsFormatNothing) {
    configure("Destination=1\nLevel=0\n");
    // A format that would fail or crash if it were formatted: a %s with a bad pointer.
    EXPECT_EQ(dbgLogPrint(kTraceSite, u"%s", reinterpret_cast<const char16_t*>(1)), 0);
    EXPECT_TRUE(g_debuggerLines.empty());
}

TEST_F(DbgLogFilter, TraceWritesEnterAndLeaveWithTheConstructorsLine) {
    configure("Destination=1\nLevel=3\nTimeDateFormat=0\n");
    {
        VELQ_TRACE(u"VELQAssistant::initData", u" (VELQAssistant::initData)");
        VELQ_LOG(DBG_LEVEL_INF, u" (VELQAssistant::initData)", u"inside %d", 1);
    }
    ASSERT_EQ(g_debuggerLines.size(), 3u);
    const std::u16string& enter = g_debuggerLines[0];
    EXPECT_NE(enter.find(u"dbglog_test.cpp("), std::u16string::npos);
    EXPECT_NE(enter.find(u":  [TRC] (VELQAssistant::initData): ENTER VELQAssistant::initData\n"),
              std::u16string::npos);
    EXPECT_NE(g_debuggerLines[1].find(u"[INF] (VELQAssistant::initData): inside 1\n"), std::u16string::npos);
    const std::u16string& leave = g_debuggerLines[2];
    EXPECT_EQ(leave.substr(0, leave.find(u"LEAVE")), enter.substr(0, enter.find(u"ENTER")));
}

}  // namespace
}  // namespace dbglog_test
