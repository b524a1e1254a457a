// The command line: the choice of road, the cutting of the single-file form, and what each road does up
// to the fingerprint gate (which, until it is built, stops every request as a missing sensor does).
#include <gtest/gtest.h>

#include "app/VELQAssistant.h"
#include "app/VELQFileEncryptMain.h"
#include "app_test_support.h"
#include "crypt_batch_double.h"
#include "plat/foreground.h"
#include "ui/ResourceHelper.h"

namespace {

using app_test::ScopedEnv;
using app_test::ScopedRecordingBackend;
using app_test::TempDir;

TEST(CmdLineRoad, PlainPathWheneverThereIsNoDoubleColon) {
    EXPECT_EQ(chooseCmdLineRoad(u""), CmdLineRoad::ConfirmDecrypt);
    EXPECT_EQ(chooseCmdLineRoad(u"\"C:\\a b\\c.lqvz\""), CmdLineRoad::ConfirmDecrypt);
    EXPECT_EQ(chooseCmdLineRoad(u"1:C:\\a.txt:1"), CmdLineRoad::ConfirmDecrypt);
    EXPECT_EQ(chooseCmdLineRoad(u":"), CmdLineRoad::ConfirmDecrypt);
}

TEST(CmdLineRoad, FirstCharacterOneOrColonMeansSingleFile) {
    EXPECT_EQ(chooseCmdLineRoad(u"1::C:\\a\\b.txt::1"), CmdLineRoad::SingleFile);
    EXPECT_EQ(chooseCmdLineRoad(u":x::2"), CmdLineRoad::SingleFile);
    EXPECT_EQ(chooseCmdLineRoad(u"::"), CmdLineRoad::SingleFile);
    // A set of one character, not the prefix "1::": "::" may stand much later.
    EXPECT_EQ(chooseCmdLineRoad(u"1abcdefghijklmnop/q.txt::1"), CmdLineRoad::SingleFile);
}

TEST(CmdLineRoad, AnyOtherFirstCharacterMeansHandOff) {
    EXPECT_EQ(chooseCmdLineRoad(u"MapName::EventName::1024::1"), CmdLineRoad::MultiFiles);
    EXPECT_EQ(chooseCmdLineRoad(u"2::C:\\a.txt::1"), CmdLineRoad::MultiFiles);
    EXPECT_EQ(chooseCmdLineRoad(u" 1::a::1"), CmdLineRoad::MultiFiles);
}

struct SplitCase {
    std::u16string line;
    std::u16string path;
    plat::UINT uMenuType;
};

class SingleFileSplit : public testing::TestWithParam<SplitCase> {};

TEST_P(SingleFileSplit, CutsPathAndReadsLastDigit) {
    const SingleFileRequest request = splitSingleFileCmdLine(GetParam().line);
    EXPECT_EQ(request.path, GetParam().path);
    EXPECT_EQ(request.uMenuType, GetParam().uMenuType);
}

INSTANTIATE_TEST_SUITE_P(
    Examples, SingleFileSplit,
    testing::Values(SplitCase{u"1::C:\\a\\b.txt::1", u"C:\\a\\b.txt", 1},
                    SplitCase{u"1::C:\\a\\b.txt::2", u"C:\\a\\b.txt", 2},
                    SplitCase{u"1::C:\\a\\b.txt::4", u"C:\\a\\b.txt", 4},
                    SplitCase{u"1::C:\\a\\b.txt::3", u"C:\\a\\b.txt", 3},
                    // Only the last character counts in this form.
                    SplitCase{u"1::C:\\a\\b.txt::12", u"C:\\a\\b.txt", 2},
                    // Leading "1" and ":" are skipped as a set.
                    SplitCase{u"1::11.txt::1", u".txt", 1},
                    // The end is found from the back, so colons inside the path do no harm.
                    SplitCase{u"1::/m:n/o::p.txt::2", u"/m:n/o::p.txt", 2},
                    // A closing quote is not stripped: it stands where the menu type should.
                    SplitCase{u"1::\"/a.txt\"::1\"", u"\"/a.txt\"", 0},
                    SplitCase{u"1::/a.txt::x", u"/a.txt", 0}, SplitCase{u"1::1", u"", 1},
                    SplitCase{u"::", u"", 0}));

// Each road run in-process with a recording UI and private named objects and data.
class Roads : public testing::Test {
protected:
    void SetUp() override { cryptBatchDouble() = CryptBatchDouble(); }

    // True when the only interactions were the gate's: the arrow cursor and message 1059, owned by the
    // window in front. That is none on POSIX; on Windows it is the system's (under Wine, its desktop's).
    bool onlyGateShown() {
        const auto& boxes = m_ui->boxes;
        return boxes.size() == 1 && boxes[0].text == ResourceHelper::getStrFromRes(1059, nullptr) &&
               boxes[0].caption == ResourceHelper::getStrFromRes(1018, nullptr) && boxes[0].flags == 16 &&
               boxes[0].owner == plat::GetForegroundWindow() &&
               m_ui->cursors == std::vector<plat::DWORD>{plat::IDC_ARROW};
    }

    TempDir m_dir;
    ScopedEnv m_runtime{"VELQ_RUNTIME_DIR", m_dir.path() + "/run"};
    ScopedEnv m_data{"VELQ_DATA_HOME", m_dir.path() + "/data"};
    ScopedEnv m_noSensor{"VELQ_WINBIO", "none"};  // the gate's sensor: none, whatever the system has
    ScopedRecordingBackend m_ui;
};

TEST_F(Roads, NullCommandLineIsInvalidArgumentAndShowsNothing) {
    EXPECT_EQ(_parseCmdLine(nullptr), plat::E_INVALIDARG);
    EXPECT_EQ(wWinMain(nullptr, nullptr, nullptr, 1), plat::E_INVALIDARG);
    EXPECT_EQ(_doConfirmDecrypt(nullptr), plat::E_INVALIDARG);
    EXPECT_EQ(_doSingleFileProcess(nullptr), plat::E_INVALIDARG);
    EXPECT_EQ(_doSingleFileProcess(u""), plat::E_INVALIDARG);
    EXPECT_TRUE(m_ui->boxes.empty());
}

TEST_F(Roads, GateWithoutSensorShowsMessage1059AndFails) {
    EXPECT_EQ(_showFPVerifyDlg(), plat::E_FAIL);
    EXPECT_TRUE(onlyGateShown());
}

TEST_F(Roads, EveryRoadThatReachesTheGateStopsThere) {
    for (const char16_t* line : {u"", u"\"/x/a b.lqvz\"", u"1::/x/b.txt::1", u"1::/x/b.txt::2",
                                 u"1::/x/b.txt::3", u"1::/x/b.txt::4"}) {
        SCOPED_TRACE(plat::toUtf8(line));
        m_ui->boxes.clear();
        m_ui->cursors.clear();
        std::u16string text(line);
        EXPECT_EQ(wWinMain(nullptr, nullptr, text.data(), 1), plat::E_FAIL);
        EXPECT_TRUE(onlyGateShown());
    }
    // The fingerprint comes first: the question "decrypt?" is never asked, no batch ever runs.
    EXPECT_TRUE(cryptBatchDouble().calls.empty());
}

TEST_F(Roads, HandOffFailsQuietlyUntilItIsBuilt) {
    EXPECT_EQ(_parseCmdLine(u"MapName::EventName::1024::1"), plat::E_FAIL);
    EXPECT_TRUE(m_ui->boxes.empty());
}

TEST_F(Roads, GuardHitEndsAtOnceWithoutMessage) {
    VELQAssistant first;
    ASSERT_FALSE(first.isExistInstance(u"/x/b.txt"));
    EXPECT_EQ(_parseCmdLine(u"1::/x/b.txt::1"), plat::E_FAIL);
    // The guard looks at the path alone: a decrypt of the same path, or the plain path, is the same request.
    EXPECT_EQ(_parseCmdLine(u"1::/x/b.txt::2"), plat::E_FAIL);
    EXPECT_EQ(_parseCmdLine(u"\"/x/b.txt\""), plat::E_FAIL);
    EXPECT_TRUE(m_ui->boxes.empty());
    // Another path is another request, which goes on to the gate.
    EXPECT_EQ(_parseCmdLine(u"1::/x/c.txt::1"), plat::E_FAIL);
    EXPECT_TRUE(onlyGateShown());
}

TEST_F(Roads, GuardIsFreedWhenTheRoadEnds) {
    EXPECT_EQ(_parseCmdLine(u"1::/x/b.txt::1"), plat::E_FAIL);
    VELQAssistant later;
    EXPECT_FALSE(later.isExistInstance(u"/x/b.txt"));
}

}  // namespace
