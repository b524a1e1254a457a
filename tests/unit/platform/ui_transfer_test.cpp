// The password dialogs and the search window in the scripted UI and at a terminal (POSIX only: the terminal
// UI is not built for Windows).
#ifndef _WIN32
#include <pty.h>
#include <unistd.h>
#endif

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "plat/ui.h"
#include "ui/script_backend.h"
#include "ui/transfer_kinds.h"
#include "ui_test_support.h"
#ifndef _WIN32
#include "pty_person.h"
#endif

namespace {

using namespace plat;
using plat::ui::KeyFileAnswer;
using plat::ui::KeyFileRequest;

KeyFileRequest exportRequest() {
    KeyFileRequest request;
    request.bExport = true;
    request.defaultExtension = u"key";
    request.typeName = u"Key File(*.key)";
    request.startPath = u"/home/p/velq-key-backup.key";
    request.nMinPassword = 1;
    request.nMaxPassword = 50;
    return request;
}

class ScriptTransfer : public ::testing::Test {
protected:
    void SetUp() override {
        if (!m_dir.ok()) {
            GTEST_SKIP() << "no temporary folder";
        }
        m_szScript = m_dir.file("answers.txt");
        m_szTranscript = m_dir.file("transcript.jsonl");
    }
    std::string transcript() { return velq_test::readFile(m_szTranscript); }
    // The transcript's lines without their line ends.
    std::vector<std::string> lines() {
        std::vector<std::string> all = velq_test::splitLines(transcript());
        for (std::string& line : all) {
            if (!line.empty() && line.back() == '\n') {
                line.pop_back();
            }
        }
        return all;
    }

    velq_test::TempDir m_dir;
    std::string m_szScript;
    std::string m_szTranscript;
};

TEST_F(ScriptTransfer, ExportAndImportTakeTheirOwnVerbAndNeverRecordThePassword) {
    velq_test::writeFile(m_szScript,
                         "export /m/backup\tsecret one\nimport /m/backup.key\tsecret two\n"
                         "import /m/x.key\tsecret three\nexport /m/y\t\ncancel\n");
    ui::ScriptBackend backend(m_szScript, m_szTranscript);
    KeyFileRequest importRequest;
    KeyFileAnswer answer;
    EXPECT_EQ(backend.keyFileDialog().ask(nullptr, exportRequest(), answer), IDOK);
    EXPECT_EQ(answer.path, u"/m/backup.key");  // the extension added to a name without one
    EXPECT_EQ(answer.password, u"secret one");
    EXPECT_EQ(backend.keyFileDialog().ask(nullptr, importRequest, answer), IDOK);
    EXPECT_EQ(answer.path, u"/m/backup.key");
    EXPECT_EQ(answer.password, u"secret two");
    // An import answer to the export dialog, and an empty password below its limit, do not fit.
    EXPECT_EQ(backend.keyFileDialog().ask(nullptr, exportRequest(), answer), IDCANCEL);
    EXPECT_EQ(backend.keyFileDialog().ask(nullptr, exportRequest(), answer), IDCANCEL);
    EXPECT_EQ(backend.keyFileDialog().ask(nullptr, importRequest, answer), IDCANCEL);
    EXPECT_EQ(backend.keyFileDialog().ask(nullptr, importRequest, answer), IDCANCEL);  // none left

    const std::string text = transcript();
    EXPECT_EQ(text.find("secret"), std::string::npos);
    const auto lines = this->lines();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[0], R"({"ui":"export","answer":"ok","path":"/m/backup.key"})");
    EXPECT_EQ(lines[1], R"({"ui":"import","answer":"ok","path":"/m/backup.key"})");
    EXPECT_EQ(lines[2], R"({"ui":"export","answer":"cancel","default":true})");
    EXPECT_EQ(lines[3], R"({"ui":"export","answer":"cancel","default":true})");
    EXPECT_EQ(lines[4], R"({"ui":"import","answer":"cancel"})");
    EXPECT_EQ(lines[5], R"({"ui":"import","answer":"cancel","default":true})");
}

TEST_F(ScriptTransfer, TheSearchWindowIsOneLineWithItsResults) {
    ui::ScriptBackend backend("", m_szTranscript);
    backend.searchWindow().show(u"search-ms:query=*.lqvz&crumb=location:/a%20b",
                                {u"/a b/x.lqvz", u"/a b/\"q\".lqvz"});
    backend.searchWindow().show(u"search-ms:query=*.lqvz", {});
    const auto lines = this->lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], R"({"ui":"search","query":"search-ms:query=*.lqvz&crumb=location:/a%20b",)"
                        R"("results":["/a b/x.lqvz","/a b/\"q\".lqvz"]})");
    EXPECT_EQ(lines[1], R"({"ui":"search","query":"search-ms:query=*.lqvz","results":[]})");
}

TEST(TransferHelpers, DefaultExtensionAndPasswordLimits) {
    EXPECT_EQ(ui::withDefaultExtension(u"/m/backup", u"key"), u"/m/backup.key");
    EXPECT_EQ(ui::withDefaultExtension(u"/m.d/backup", u"key"), u"/m.d/backup.key");
    EXPECT_EQ(ui::withDefaultExtension(u"/m/backup.bin", u"key"), u"/m/backup.bin");
    EXPECT_EQ(ui::withDefaultExtension(u"/m/backup", u""), u"/m/backup");
    const KeyFileRequest request = exportRequest();
    EXPECT_FALSE(ui::passwordFits(request, u""));
    EXPECT_TRUE(ui::passwordFits(request, u"a"));
    EXPECT_TRUE(ui::passwordFits(request, std::u16string(50, u'x')));
    EXPECT_FALSE(ui::passwordFits(request, std::u16string(51, u'x')));
    EXPECT_TRUE(ui::passwordFits(KeyFileRequest{}, u""));
}

#ifndef _WIN32
// A pseudo-terminal: the dialog reads and writes the terminal side, the test plays the person.
class TtyTransferTest : public ::testing::Test {
protected:
    void SetUp() override {
        int person = -1;
        if (::openpty(&person, &m_nTerminal, nullptr, nullptr, nullptr) != 0) {
            GTEST_SKIP() << "no pseudo-terminals here";
        }
        m_person.attach(person);
    }
    void TearDown() override {
        if (m_nTerminal >= 0) {
            ::close(m_nTerminal);
        }
    }
    std::string readUntil(const std::string& marker) { return m_person.readUntil(marker); }
    void type(const std::string& keys) { m_person.type(keys); }

    velq_test::PersonAtTerminal m_person;
    int m_nTerminal = -1;
};

TEST_F(TtyTransferTest, ExportOffersItsFileAndAsksThePasswordTwiceWithoutEcho) {
    ui::TtyTransfer dialog(m_nTerminal, m_nTerminal);
    KeyFileAnswer answer;
    int button = 0;
    std::thread asking([&] { button = dialog.ask(nullptr, exportRequest(), answer); });
    EXPECT_NE(readUntil("[/home/p/velq-key-backup.key]: ").find("Key File(*.key)"), std::string::npos);
    type("\n");
    readUntil("Password: ");
    type("first\n");
    readUntil("Password again: ");
    type("other\n");
    EXPECT_NE(readUntil("Password: ").find("differ"), std::string::npos);
    type("same one\n");
    readUntil("Password again: ");
    type("same one\n");
    asking.join();
    EXPECT_EQ(button, IDOK);
    EXPECT_EQ(answer.path, u"/home/p/velq-key-backup.key");
    EXPECT_EQ(answer.password, u"same one");
    // Nothing typed as a password came back on the screen.
    for (const char* typed : {"first", "other", "same one"}) {
        EXPECT_EQ(m_person.everythingShown().find(typed), std::string::npos) << typed;
    }
}

TEST_F(TtyTransferTest, ImportTakesATypedPathAndEndOfInputCancels) {
    ui::TtyTransfer dialog(m_nTerminal, m_nTerminal);
    KeyFileAnswer answer;
    int button = 0;
    KeyFileRequest request;
    std::thread asking([&] { button = dialog.ask(nullptr, request, answer); });
    readUntil("File: ");
    type("/media/usb/k.key\n");
    readUntil("Password: ");
    type("pw\n");
    asking.join();
    EXPECT_EQ(button, IDOK);
    EXPECT_EQ(answer.path, u"/media/usb/k.key");  // no extension added for an import
    EXPECT_EQ(answer.password, u"pw");

    request.startPath = u"/media/usb/k.key";
    std::thread cancelling([&] { button = dialog.ask(nullptr, request, answer); });
    readUntil("[/media/usb/k.key]: ");
    type("\x04");  // Ctrl-D at the start of a line: end of input
    cancelling.join();
    EXPECT_EQ(button, IDCANCEL);
}

TEST_F(TtyTransferTest, TheSearchIsAListWithoutControlCharacters) {
    ui::TtyTransfer dialog(m_nTerminal, m_nTerminal);
    dialog.show(u"search-ms:query=*.lqvz", {u"/a/x.lqvz", u"/a/\x1b[2Jy.lqvz"});
    const std::string shown = readUntil("files found.");
    EXPECT_NE(shown.find("  /a/x.lqvz"), std::string::npos);
    EXPECT_EQ(shown.find('\x1b'), std::string::npos);
    EXPECT_NE(shown.find("2 files found."), std::string::npos);
}

TEST(TtyTransferWithoutTerminal, CancelsWithoutAsking) {
    ui::TtyTransfer dialog(-1, 2);
    KeyFileAnswer answer;
    EXPECT_EQ(dialog.ask(nullptr, exportRequest(), answer), IDCANCEL);
    EXPECT_TRUE(answer.path.empty());
}

#endif  // !_WIN32

}  // namespace
