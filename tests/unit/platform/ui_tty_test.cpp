#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "plat/errors.h"
#include "plat/ui.h"
#include "pty_person.h"
#include "ui/tty_backend.h"

namespace {

using namespace plat;
using plat::ui::TtyBackend;

// A pseudo-terminal: the backend gets the terminal side by its path, the test plays the person at the
// other side.
class TtyMessageBoxTest : public ::testing::Test {
protected:
    void SetUp() override {
        int person = -1;
        int terminal = -1;
        if (::openpty(&person, &terminal, nullptr, nullptr, nullptr) != 0) {
            GTEST_SKIP() << "no pseudo-terminals here";
        }
        m_person.attach(person);
        char name[256] = {};
        const bool named = ::ttyname_r(terminal, name, sizeof name) == 0;
        // The backend opens its own descriptor; this one only keeps the terminal alive until then.
        m_pBackend = named ? std::make_unique<TtyBackend>(name) : nullptr;
        ::close(terminal);
        if (!m_pBackend) {
            GTEST_SKIP() << "the pseudo-terminal has no name";
        }
    }

    void TearDown() override { m_pBackend.reset(); }

    std::string readUntil(const std::string& marker) { return m_person.readUntil(marker); }
    void type(const std::string& keys) { m_person.type(keys); }

    // Asks on a thread of its own, answers with `keys` once the prompt is up, and gives the answer.
    int ask(std::u16string text, std::u16string caption, UINT flags, const std::string& keys,
            std::string* shown = nullptr) {
        int answer = -1;
        std::thread asker([&] { answer = m_pBackend->messageBox().show(nullptr, text, caption, flags); });
        const std::string question = readUntil("? ");
        type(keys);
        asker.join();
        if (shown != nullptr) {
            *shown = question;
        }
        return answer;
    }

    velq_test::PersonAtTerminal m_person;
    std::unique_ptr<TtyBackend> m_pBackend;
};

TEST_F(TtyMessageBoxTest, ShowsIconCaptionTextAndButtonsAndReadsTheKey) {
    std::string shown;
    EXPECT_EQ(ask(u"Your key file cannot be found, do you want to recover it from the backup?",
                  u"Information", 36, "n\n", &shown),
              IDNO);
    EXPECT_NE(shown.find("[Question] Information"), std::string::npos) << shown;
    EXPECT_NE(shown.find("do you want to recover it from the backup?"), std::string::npos);
    EXPECT_NE(shown.find("[Y]es / [N]o"), std::string::npos);
    EXPECT_EQ(m_pBackend->name(), "tty");
}

TEST_F(TtyMessageBoxTest, KeysAndWordsInAnyCase) {
    EXPECT_EQ(ask(u"t", u"c", MB_YESNO, "Y\n"), IDYES);
    EXPECT_EQ(ask(u"t", u"c", MB_YESNO, "  No \n"), IDNO);
    EXPECT_EQ(ask(u"t", u"c", MB_OKCANCEL, "cancel\n"), IDCANCEL);
    EXPECT_EQ(ask(u"t", u"c", MB_OKCANCEL, "o\n"), IDOK);
    EXPECT_EQ(ask(u"t", u"c", MB_YESNOCANCEL, "C\n"), IDCANCEL);
}

TEST_F(TtyMessageBoxTest, EnterPressesTheFirstButton) {
    EXPECT_EQ(ask(u"t", u"c", MB_YESNO | MB_ICONQUESTION, "\n"), IDYES);
    EXPECT_EQ(ask(u"t", u"c", MB_OKCANCEL, "\n"), IDOK);
    EXPECT_EQ(ask(u"t", u"Error", MB_OK | MB_ICONERROR, "\n"), IDOK);
}

TEST_F(TtyMessageBoxTest, AKeyOfNoButtonAsksAgain) {
    int answer = -1;
    std::thread asker([&] { answer = m_pBackend->messageBox().show(nullptr, u"t", u"c", MB_YESNO); });
    readUntil("? ");
    type("ok\n");  // no OK button on a Yes/No box
    readUntil("? ");
    type("maybe\n");
    readUntil("? ");
    type("y\n");
    asker.join();
    EXPECT_EQ(answer, IDYES);
}

TEST_F(TtyMessageBoxTest, EndOfInputConfirmsNothing) {
    EXPECT_EQ(ask(u"t", u"c", MB_YESNO, "\x04"), IDNO);
    EXPECT_EQ(ask(u"t", u"c", MB_OKCANCEL, "\x04"), IDCANCEL);
    EXPECT_EQ(ask(u"t", u"c", MB_OK, "\x04"), IDOK);
}

TEST_F(TtyMessageBoxTest, ControlCharactersOfTextsNeverReachTheTerminal) {
    std::string shown;
    ask(u"/home/a/\x1b]0;owned\x07\x1b[2J.txt", u"Err\x1bor", MB_OK, "\n", &shown);
    EXPECT_EQ(shown.find('\x1b'), std::string::npos) << shown;
    EXPECT_EQ(shown.find('\x07'), std::string::npos);
    EXPECT_NE(shown.find("/home/a/\uFFFD]0;owned\uFFFD\uFFFD[2J.txt"), std::string::npos) << shown;
}

TEST_F(TtyMessageBoxTest, QuestionsOfTwoThreadsComeOneAfterTheOther) {
    int answers[2] = {-1, -1};
    std::thread first(
        [&] { answers[0] = m_pBackend->messageBox().show(nullptr, u"first?", u"c", MB_YESNO); });
    std::thread second(
        [&] { answers[1] = m_pBackend->messageBox().show(nullptr, u"second?", u"c", MB_YESNO); });
    const std::string one = readUntil("? ");
    const bool firstAsked = one.find("first?") != std::string::npos;
    // Only one question is up until it has its answer.
    EXPECT_NE(one.find(firstAsked ? "first?" : "second?"), std::string::npos);
    EXPECT_EQ(one.find(firstAsked ? "second?" : "first?"), std::string::npos);
    type("y\n");
    const std::string two = readUntil("? ");
    EXPECT_NE(two.find(firstAsked ? "second?" : "first?"), std::string::npos) << two;
    type("n\n");
    first.join();
    second.join();
    EXPECT_EQ(answers[firstAsked ? 0 : 1], IDYES);
    EXPECT_EQ(answers[firstAsked ? 1 : 0], IDNO);
}

TEST_F(TtyMessageBoxTest, AButtonSetWeDoNotShowFails) {
    SetLastError(0);
    EXPECT_EQ(m_pBackend->messageBox().show(nullptr, u"t", u"c", 0x5), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(TtyWithoutTerminal, QuestionsGoToTheFallbackAndConfirmNothing) {
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    {
        TtyBackend backend("/nonexistent/velq-tty", pipeFds[1]);
        EXPECT_EQ(backend.messageBox().show(nullptr, u"Replace?", u"Warning", 0x40021), IDCANCEL);
        EXPECT_EQ(backend.messageBox().show(nullptr, u"Decrypt?", u"Information", 36), IDNO);
        backend.cursor().show(IDC_WAIT);  // nothing to show on a terminal, and nothing fails
    }
    ::close(pipeFds[1]);
    std::string shown;
    char chunk[512];
    ssize_t count = 0;
    while ((count = ::read(pipeFds[0], chunk, sizeof chunk)) > 0) {
        shown.append(chunk, static_cast<std::size_t>(count));
    }
    ::close(pipeFds[0]);
    EXPECT_NE(shown.find("Replace?"), std::string::npos) << shown;
    EXPECT_NE(shown.find("(no answer: Cancel)"), std::string::npos) << shown;
    EXPECT_NE(shown.find("(no answer: No)"), std::string::npos) << shown;
}

}  // namespace
