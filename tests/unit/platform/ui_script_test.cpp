#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "plat/errors.h"
#include "plat/ui.h"
#include "plat/windows.h"
#include "test_environment.h"
#include "ui/backend_choice.h"
#include "ui/script_answers.h"
#include "ui/script_backend.h"
#include "ui_test_support.h"

namespace {

using namespace plat;
using plat::ui::ScriptAnswers;
using plat::ui::ScriptBackend;
using velq_test::parseTranscriptLine;

const std::vector<std::string> kMessageBoxFields = {"ui",    "text",   "caption", "flags",
                                                    "owner", "answer", "default"};

// ---- Reading the answers ----

std::vector<std::string> allAnswers(std::string text) {
    std::vector<std::string> answers;
    while (auto line = ui::takeAnswerLine(text, true)) {
        answers.push_back(*line);
    }
    EXPECT_TRUE(text.empty());
    return answers;
}

TEST(ScriptAnswerLines, SkipsBlankLinesAndComments) {
    EXPECT_EQ(allAnswers("# first the question\n\nyes\n   \n\t\n#no\nno\n"),
              (std::vector<std::string>{"yes", "no"}));
}

TEST(ScriptAnswerLines, OnlyALeadingHashMakesAComment) {
    EXPECT_EQ(allAnswers(" #x\nexport /a#b\tpw#\n"), (std::vector<std::string>{" #x", "export /a#b\tpw#"}));
}

TEST(ScriptAnswerLines, CrLfLineEndsAndALastLineWithoutLineEnd) {
    EXPECT_EQ(allAnswers("yes\r\nno\r\ncancel"), (std::vector<std::string>{"yes", "no", "cancel"}));
}

TEST(ScriptAnswerLines, AnUnfinishedLineWaitsForMoreUnlessAtTheEnd) {
    std::string pending = "# c\nye";
    EXPECT_FALSE(ui::takeAnswerLine(pending, false).has_value());
    EXPECT_EQ(pending, "ye");
    pending += "s\n";
    EXPECT_EQ(ui::takeAnswerLine(pending, false), "yes");
    EXPECT_TRUE(pending.empty());
}

TEST(ScriptAnswerLines, MessageBoxWordsAreExact) {
    EXPECT_EQ(ui::messageBoxAnswerOf("yes"), IDYES);
    EXPECT_EQ(ui::messageBoxAnswerOf("no"), IDNO);
    EXPECT_EQ(ui::messageBoxAnswerOf("ok"), IDOK);
    EXPECT_EQ(ui::messageBoxAnswerOf("cancel"), IDCANCEL);
    for (const char* misfit : {"Yes", "yes ", "y", "copy", "close", "", "export /a\tb"}) {
        EXPECT_EQ(ui::messageBoxAnswerOf(misfit), 0) << misfit;
    }
}

TEST(ScriptAnswerLines, PathAndPasswordAnswers) {
    const auto answer = ui::pathPasswordAnswerOf("export /media/k ey.bak\tp w\td", "export");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->path, u"/media/k ey.bak");
    EXPECT_EQ(answer->password, u"p w\td");
    const auto emptyPassword = ui::pathPasswordAnswerOf("import /k\t", "import");
    ASSERT_TRUE(emptyPassword.has_value());
    EXPECT_TRUE(emptyPassword->password.empty());
    EXPECT_EQ(ui::pathPasswordAnswerOf("import /k\tpw", "import")->path, u"/k");
    for (const char* misfit : {"export /k\tpw", "import\t/k\tpw", "import /k", "import \tpw", "importx /k\tp",
                               "cancel", "import"}) {
        EXPECT_FALSE(ui::pathPasswordAnswerOf(misfit, "import").has_value()) << misfit;
    }
}

class ScriptFiles : public ::testing::Test {
protected:
    void SetUp() override {
        if (!m_dir.ok()) {
            GTEST_SKIP() << "no temporary folder";
        }
        m_szScript = m_dir.file("answers.txt");
        m_szTranscript = m_dir.file("transcript.jsonl");
    }

    std::vector<velq_test::JsonObject> transcriptLines() {
        std::vector<velq_test::JsonObject> objects;
        for (const std::string& line : velq_test::splitLines(velq_test::readFile(m_szTranscript))) {
            auto object = parseTranscriptLine(line);
            EXPECT_TRUE(object.has_value()) << line;
            if (object) {
                objects.push_back(*object);
            }
        }
        return objects;
    }

    velq_test::TempDir m_dir;
    std::string m_szScript;
    std::string m_szTranscript;
};

TEST_F(ScriptFiles, AnswersAreTakenInOrderAndOnlyOnce) {
    velq_test::writeFile(m_szScript, "# answers\nyes\n\nno\n");
    ScriptAnswers answers(m_szScript);
    EXPECT_EQ(answers.next(), "yes");
    EXPECT_EQ(answers.next(), "no");
    EXPECT_FALSE(answers.next().has_value());
    EXPECT_EQ(answers.taken(), 2u);
}

TEST_F(ScriptFiles, AnswersAppendedLaterAreStillTaken) {
    velq_test::writeFile(m_szScript, "yes\n");
    ScriptAnswers answers(m_szScript);
    EXPECT_EQ(answers.next(), "yes");
    EXPECT_FALSE(answers.next().has_value());
    velq_test::writeFile(m_szScript, "cancel\n", true);
    EXPECT_EQ(answers.next(), "cancel");
}

TEST_F(ScriptFiles, AMissingFileOrNoPathHoldsNoAnswers) {
    ScriptAnswers missing(m_dir.file("none.txt"));
    EXPECT_FALSE(missing.next().has_value());
    EXPECT_FALSE(missing.next().has_value());
    ScriptAnswers unset("");
    EXPECT_FALSE(unset.next().has_value());
}

// The script and the transcript that the environment names, with letters outside ASCII in their names (a
// user's profile "Jürgen", a Greek "Σ"): the answers come from those very files and are recorded there.
TEST_F(ScriptFiles, FilesNamedByTheEnvironmentWithLettersOutsideAsciiAreTheOnesUsed) {
    m_szScript = m_dir.file("J\xC3\xBCrgen \xCE\xA3 answers.txt");
    m_szTranscript = m_dir.file("J\xC3\xBCrgen \xCE\xA3 transcript.jsonl");
    velq_test::writeFile(m_szScript, "yes\n");  // not the box's default answer, which is "no"
    const ScopedEnv script("VELQ_UI_SCRIPT", m_szScript.c_str());
    const ScopedEnv transcript("VELQ_UI_TRANSCRIPT", m_szTranscript.c_str());
    const std::unique_ptr<ScriptBackend> backend = ScriptBackend::fromEnvironment();
    EXPECT_EQ(backend->messageBox().show(nullptr, u"t", u"c", MB_YESNO), IDYES);
    const auto lines = transcriptLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].number("answer"), IDYES);
}

// ---- Message boxes ----

TEST_F(ScriptFiles, FittingAnswersAreRecordedWithTheDocumentedFieldsOnly) {
    velq_test::writeFile(m_szScript, "yes\nok\ncancel\nno\n");
    ScriptBackend backend(m_szScript, m_szTranscript);
    auto& box = backend.messageBox();
    EXPECT_EQ(box.show(nullptr, u"Recover?", u"Information", 36), IDYES);
    EXPECT_EQ(box.show(nullptr, u"Created", u"Information", MB_OK | MB_ICONINFORMATION), IDOK);
    EXPECT_EQ(box.show(nullptr, u"Replace?", u"Warning", 0x40021), IDCANCEL);
    EXPECT_EQ(box.show(nullptr, u"Go on?", u"Question", MB_YESNOCANCEL), IDNO);

    const auto lines = transcriptLines();
    ASSERT_EQ(lines.size(), 4u);
    const std::vector<long long> answers = {6, 1, 2, 7};
    const std::vector<long long> flags = {36, 64, 0x40021, 3};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].keys, kMessageBoxFields);
        EXPECT_EQ(lines[i].text("ui"), "messagebox");
        EXPECT_EQ(lines[i].number("answer"), answers[i]);
        EXPECT_EQ(lines[i].number("flags"), flags[i]);
        EXPECT_FALSE(lines[i].flag("owner"));
        EXPECT_FALSE(lines[i].flag("default"));
    }
    EXPECT_EQ(lines[0].text("text"), "Recover?");
    EXPECT_EQ(lines[0].text("caption"), "Information");
}

TEST_F(ScriptFiles, WithNoAnswerLeftNothingIsConfirmed) {
    ScriptBackend backend("", m_szTranscript);
    auto& box = backend.messageBox();
    EXPECT_EQ(box.show(nullptr, u"q", u"c", MB_YESNO | MB_ICONQUESTION), IDNO);
    EXPECT_EQ(box.show(nullptr, u"q", u"c", MB_OKCANCEL), IDCANCEL);
    EXPECT_EQ(box.show(nullptr, u"q", u"c", MB_YESNOCANCEL), IDCANCEL);
    EXPECT_EQ(box.show(nullptr, u"q", u"c", MB_OK | MB_ICONERROR), IDOK);
    const auto lines = transcriptLines();
    ASSERT_EQ(lines.size(), 4u);
    for (const auto& line : lines) {
        EXPECT_TRUE(line.flag("default"));
    }
}

TEST_F(ScriptFiles, AMisfitAnswerIsUsedUpAndGivesTheDefault) {
    velq_test::writeFile(m_szScript, "yes\ncopy\nok\nexport /k\tsecret-pw\nyes\n");
    ScriptBackend backend(m_szScript, m_szTranscript);
    auto& box = backend.messageBox();
    EXPECT_EQ(box.show(nullptr, u"only OK", u"c", MB_OK), IDOK);    // "yes" does not fit
    EXPECT_EQ(box.show(nullptr, u"yes/no", u"c", MB_YESNO), IDNO);  // "copy" is no box answer
    EXPECT_EQ(box.show(nullptr, u"yes/no", u"c", MB_YESNO), IDNO);  // "ok" does not fit Yes/No
    EXPECT_EQ(box.show(nullptr, u"ok/cancel", u"c", MB_OKCANCEL), IDCANCEL);
    EXPECT_EQ(box.show(nullptr, u"yes/no", u"c", MB_YESNO), IDYES);  // the next answer is intact
    EXPECT_EQ(backend.answers().taken(), 5u);

    const auto lines = transcriptLines();
    ASSERT_EQ(lines.size(), 5u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(lines[i].flag("default")) << i;
        EXPECT_EQ(lines[i].keys, kMessageBoxFields);
    }
    EXPECT_FALSE(lines[4].flag("default"));
    EXPECT_EQ(velq_test::readFile(m_szTranscript).find("secret-pw"), std::string::npos);
}

TEST_F(ScriptFiles, TextsAreEscapedAndTheOwnerIsMarked) {
    ScriptBackend backend("", m_szTranscript);
    const std::u16string text = u"The key is invalid.\nRecover \"it\" from C:\\keys\\Ünï 日本?";
    backend.messageBox().show(reinterpret_cast<HWND>(0x1234), text, u"Wärning\t!", 0x40024);
    const auto lines = transcriptLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text("text"), plat::toUtf8(text));
    EXPECT_EQ(lines[0].text("caption"), "Wärning\t!");
    EXPECT_TRUE(lines[0].flag("owner"));
    EXPECT_EQ(lines[0].number("flags"), 0x40024);
    EXPECT_EQ(lines[0].number("answer"), IDNO);
}

TEST_F(ScriptFiles, AButtonSetWeDoNotShowFailsWithoutTakingAnAnswer) {
    velq_test::writeFile(m_szScript, "ok\n");
    ScriptBackend backend(m_szScript, m_szTranscript);
    SetLastError(0);
    EXPECT_EQ(backend.messageBox().show(nullptr, u"abort?", u"c", 0x2), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(backend.answers().taken(), 0u);
    EXPECT_TRUE(velq_test::readFile(m_szTranscript).empty());
}

TEST_F(ScriptFiles, TwoThreadsAskingAtOnceTakeEachAnswerOnce) {
    constexpr int kPerThread = 200;
    std::string script;
    for (int i = 0; i < 2 * kPerThread; ++i) {
        script += i % 3 == 0 ? "no\n" : "yes\n";
    }
    velq_test::writeFile(m_szScript, script);
    ScriptBackend backend(m_szScript, m_szTranscript);
    std::vector<int> answers[2];
    const auto ask = [&backend, &answers](int who) {
        const std::u16string text(300, who == 0 ? u'a' : u'b');
        for (int i = 0; i < kPerThread; ++i) {
            answers[who].push_back(backend.messageBox().show(nullptr, text, u"c", MB_YESNO));
        }
    };
    std::thread first(ask, 0);
    std::thread second(ask, 1);
    first.join();
    second.join();

    EXPECT_EQ(backend.answers().taken(), static_cast<unsigned>(2 * kPerThread));
    const auto lines = transcriptLines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(2 * kPerThread));
    // The transcript shows the answers in the script's order, and each thread got its own in that order.
    std::vector<int> fromThreads[2];
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const long long expected = i % 3 == 0 ? IDNO : IDYES;
        EXPECT_EQ(lines[i].number("answer"), expected) << i;
        EXPECT_FALSE(lines[i].flag("default"));
        const std::string& text = lines[i].text("text");
        ASSERT_EQ(text.size(), 300u);
        fromThreads[text[0] == 'a' ? 0 : 1].push_back(static_cast<int>(expected));
    }
    EXPECT_EQ(fromThreads[0], answers[0]);
    EXPECT_EQ(fromThreads[1], answers[1]);
}

TEST_F(ScriptFiles, CursorLines) {
    ScriptBackend backend("", m_szTranscript);
    backend.cursor().show(IDC_WAIT);
    backend.cursor().show(IDC_ARROW);
    EXPECT_EQ(velq_test::readFile(m_szTranscript),
              "{\"ui\":\"cursor\",\"id\":32514}\n{\"ui\":\"cursor\",\"id\":32512}\n");
}

// ---- The Windows-named calls through the process's backend ----

class InstalledScriptBackend : public ScriptFiles {
protected:
    void SetUp() override {
        ScriptFiles::SetUp();
        if (IsSkipped()) {
            return;
        }
        velq_test::writeFile(m_szScript, "yes\n");
        m_pPrevious = ui::installBackend(std::make_unique<ScriptBackend>(m_szScript, m_szTranscript));
    }
    void TearDown() override {
        if (!IsSkipped()) {
            ui::installBackend(std::move(m_pPrevious));
        }
    }
    std::unique_ptr<ui::Backend> m_pPrevious;
};

TEST_F(InstalledScriptBackend, MessageBoxWShowsNullTextsAsWindowsDoes) {
    EXPECT_EQ(ui::currentBackend().name(), "script");
    EXPECT_EQ(MessageBoxW(nullptr, nullptr, nullptr, MB_YESNO), IDYES);
    EXPECT_EQ(MessageBoxW(nullptr, u"t", u"c", MB_OK), IDOK);
    const auto lines = transcriptLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text("text"), "");
    EXPECT_EQ(lines[0].text("caption"), "Error");
    EXPECT_EQ(lines[1].text("text"), "t");
    EXPECT_TRUE(lines[1].flag("default"));
}

TEST_F(InstalledScriptBackend, SystemCursorsLoadAndShow) {
    const HCURSOR wait = LoadCursorW(nullptr, IDC_WAIT);
    EXPECT_EQ(wait, HCURSOR{32514});
    SetLastError(0);
    EXPECT_EQ(LoadCursorW(nullptr, 4711), HCURSOR{0});
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(LoadCursorW(reinterpret_cast<HINSTANCE>(0x10), IDC_ARROW), HCURSOR{0});

    const HCURSOR arrow = LoadCursorW(nullptr, IDC_ARROW);
    SetCursor(arrow);
    EXPECT_EQ(SetCursor(wait), arrow);
    EXPECT_EQ(SetCursor(arrow), wait);
    const std::string text = velq_test::readFile(m_szTranscript);
    EXPECT_NE(text.find("{\"ui\":\"cursor\",\"id\":32512}\n{\"ui\":\"cursor\",\"id\":32514}\n"
                        "{\"ui\":\"cursor\",\"id\":32512}\n"),
              std::string::npos);
}

// ---- Choosing the backend ----

TEST(BackendChoice, AskedForByName) {
    std::string warning;
    EXPECT_EQ(ui::chooseBackendName("script", true, true, warning), "script");
    EXPECT_EQ(ui::chooseBackendName("tty", false, false, warning), "tty");
    EXPECT_TRUE(warning.empty());
}

TEST(BackendChoice, UnsetTakesTheTerminalOnlyWhenStdinAndStderrAreTerminals) {
    std::string warning;
    EXPECT_EQ(ui::chooseBackendName(nullptr, true, true, warning), "tty");
    EXPECT_EQ(ui::chooseBackendName(nullptr, false, true, warning), "script");
    EXPECT_EQ(ui::chooseBackendName(nullptr, true, false, warning), "script");
    EXPECT_EQ(ui::chooseBackendName("", true, true, warning), "tty");
    EXPECT_TRUE(warning.empty());
}

TEST(BackendChoice, UnavailableNamesFallBackWithOneWarningLine) {
    std::string warning;
    EXPECT_EQ(ui::chooseBackendName("gtk", false, false, warning), "script");
    EXPECT_NE(warning.find("gtk"), std::string::npos);
    EXPECT_EQ(warning.find('\n'), std::string::npos);
    EXPECT_EQ(ui::chooseBackendName("Script", true, true, warning), "tty");
    EXPECT_FALSE(warning.empty());
}

}  // namespace

namespace {

using namespace plat;

LRESULT defaultProcedure(HWND hWnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(hWnd, msg, wParam, lParam);
}

TEST_F(InstalledScriptBackend, TheOwnerMustBeALiveWindow) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = defaultProcedure;
    windowClass.lpszClassName = u"VelqUiScriptTestOwner";
    RegisterClassW(&windowClass);  // may already be registered by an earlier repetition
    const HWND owner = CreateWindowExW(0, u"VelqUiScriptTestOwner", u"owner", 0, 0, 0, 10, 10, nullptr,
                                       nullptr, nullptr, nullptr);
    ASSERT_NE(owner, nullptr);
    EXPECT_EQ(MessageBoxW(owner, u"owned", u"c", MB_YESNO), IDYES);
    ASSERT_TRUE(DestroyWindow(owner));

    SetLastError(0);
    EXPECT_EQ(MessageBoxW(owner, u"gone", u"c", MB_OK), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    SetLastError(0);
    EXPECT_EQ(MessageBoxW(reinterpret_cast<HWND>(0x7777), u"never", u"c", MB_OK), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);

    const auto lines = transcriptLines();  // only the box that was shown
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text("text"), "owned");
    EXPECT_TRUE(lines[0].flag("owner"));
}

}  // namespace
