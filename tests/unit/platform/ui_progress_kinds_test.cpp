// The progress dialog, the error list and the clipboard as the script and tty backends show them (the
// terminal's texts on POSIX only: the terminal UI is not built for Windows).
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "plat/clipboard.h"
#include "plat/dialogs.h"
#include "plat/windows.h"
#include "test_environment.h"
#include "ui/list_turn.h"
#include "ui/script_backend.h"
#include "ui_test_support.h"
#ifndef _WIN32
#include "ui/tty_kinds.h"
#endif

namespace {

using namespace plat;
using plat::ui::ScriptBackend;

class ScriptKindsTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!m_dir.ok()) {
            GTEST_SKIP() << "no temporary folder";
        }
        m_szScript = m_dir.file("answers.txt");
        m_szTranscript = m_dir.file("transcript.jsonl");
        m_szCancel = m_dir.file("cancel");
    }

    std::unique_ptr<ScriptBackend> backend(const std::string& answers) {
        velq_test::writeFile(m_szScript, answers);
        const ScopedEnv cancelFile("VELQ_UI_CANCEL_FILE", m_szCancel.c_str());
        return std::make_unique<ScriptBackend>(m_szScript, m_szTranscript);
    }

    std::vector<std::string> transcript() {
        std::vector<std::string> lines = velq_test::splitLines(velq_test::readFile(m_szTranscript));
        for (std::string& line : lines) {
            if (!line.empty() && line.back() == '\n') {
                line.pop_back();
            }
        }
        return lines;
    }

    velq_test::TempDir m_dir;
    std::string m_szScript;
    std::string m_szTranscript;
    std::string m_szCancel;
};

TEST_F(ScriptKindsTest, ProgressWritesEachOperationAndSkipsAnUnchangedBar) {
    auto script = backend("");
    ui::ProgressUi& progress = script->progress();
    progress.title(u"Encrypt Files");
    progress.line(2, u"Starting, please wait...   1 / 3", true);
    progress.cancelMessage(u"Canceled...");
    progress.started();
    progress.progress(50, 100);
    progress.progress(50, 100);
    progress.timeLeft(42);
    progress.stopped();
    EXPECT_EQ(
        transcript(),
        (std::vector<std::string>{
            R"({"ui":"progress","op":"title","text":"Encrypt Files"})",
            R"({"ui":"progress","op":"line","line":2,"text":"Starting, please wait...   1 / 3"})",
            R"({"ui":"progress","op":"cancelmsg","text":"Canceled..."})", R"({"ui":"progress","op":"start"})",
            R"({"ui":"progress","op":"set","completed":50,"total":100})",
            R"({"ui":"progress","op":"stop"})"}));
}

TEST_F(ScriptKindsTest, CancelFromTheMomentTheFileExists) {
    auto script = backend("");
    EXPECT_FALSE(script->progress().cancelRequested());
    velq_test::writeFile(m_szCancel, "");
    EXPECT_TRUE(script->progress().cancelRequested());
}

// The test's error list: Copy puts two rows on the clipboard, the close box destroys the list.
LRESULT listProc(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    if (message == WM_COMMAND && LOWORD(wParam) == IDC_ERROR_COPY) {
        const std::u16string text = u"/a: one\n/b: two\n";
        OpenClipboard(dialog);
        EmptyClipboard();
        HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * 2);
        std::char_traits<char16_t>::copy(static_cast<char16_t*>(GlobalLock(memory)), text.c_str(),
                                         text.size() + 1);
        SetClipboardData(CF_UNICODETEXT, memory);
        CloseClipboard();
        return TRUE;
    }
    if (message == WM_CLOSE) {
        DestroyWindow(dialog);
        return TRUE;
    }
    return message == WM_INITDIALOG ? TRUE : FALSE;
}

TEST_F(ScriptKindsTest, AListShownAfterTheBatchTakesCopyThenClose) {
    auto previous = ui::installBackend(backend("copy\nclose\n"));
    HWND dialog = CreateDialogParamW(nullptr, IDD_ERROR_LIST, nullptr, listProc, 0);
    ShowWindow(dialog, SW_RESTORE);  // no progress is open: the person's turn comes at once
    EXPECT_FALSE(IsWindow(dialog));
    ui::installBackend(std::move(previous));
    EXPECT_EQ(transcript(),
              (std::vector<std::string>{R"({"ui":"errorlist","op":"show"})",
                                        R"({"ui":"errorlist","op":"copy","text":"/a: one\n/b: two\n"})",
                                        R"({"ui":"errorlist","op":"close","default":false})"}));
}

TEST_F(ScriptKindsTest, AnAnswerThatDoesNotFitClosesTheListByDefault) {
    auto previous = ui::installBackend(backend("yes\n"));
    HWND dialog = CreateDialogParamW(nullptr, IDD_ERROR_LIST, nullptr, listProc, 0);
    ShowWindow(dialog, SW_RESTORE);
    EXPECT_FALSE(IsWindow(dialog));
    ui::installBackend(std::move(previous));
    ASSERT_FALSE(transcript().empty());
    EXPECT_EQ(transcript().back(), R"({"ui":"errorlist","op":"close","default":true})");
}

TEST(ListTurn, AListShownDuringABatchWaitsForItsEnd) {
    std::vector<HWND> acted;
    ui::ListTurn turn([&acted](HWND dialog) { acted.push_back(dialog); });
    const auto one = reinterpret_cast<HWND>(std::uintptr_t{1});
    const auto two = reinterpret_cast<HWND>(std::uintptr_t{2});
    turn.progressOpened();
    turn.listShown(one);
    turn.listShown(two);
    turn.listClosed(two);  // closed by the person while the batch ran
    EXPECT_TRUE(acted.empty());
    turn.progressClosed();
    EXPECT_EQ(acted, std::vector<HWND>{one});
    turn.progressClosed();  // a second end does not act again
    EXPECT_EQ(acted.size(), 1U);
    turn.listShown(two);
    EXPECT_EQ(acted, (std::vector<HWND>{one, two})) << "without a batch the turn comes at once";
}

#ifndef _WIN32
TEST(TtyKindsText, APathIsShortenedInItsMiddle) {
    EXPECT_EQ(ui::compactText(u"/home/user/file.txt", 40), u"/home/user/file.txt");
    EXPECT_EQ(ui::compactText(u"/home/user/documents/file.txt", 13), u"/home...e.txt");
    EXPECT_EQ(ui::compactText(u"/home/user", 2), u"..");
}

TEST(TtyKindsText, TheBarShowsItsShareThePercentAndTheTimeLeft) {
    EXPECT_EQ(ui::barLine(50, 100, -1, 10), "[#####-----]  50 %");
    EXPECT_EQ(ui::barLine(120, 100, 75, 4), "[####] 100 %  1:15 left");
    EXPECT_EQ(ui::barLine(0, 0, -1, 2), "[--]   0 %");
}

TEST(TtyKindsText, TheClipboardEscapeCarriesBase64OfUtf8) {
    EXPECT_EQ(ui::clipboardEscape(u"a\n"), "\x1b]52;c;YQo=\x07");
    EXPECT_EQ(ui::clipboardEscape(u"\u00e9"), "\x1b]52;c;w6k=\x07");
}

#endif  // !_WIN32

}  // namespace
