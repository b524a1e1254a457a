// Destinations 2, 3 and 4: the log file held open or opened per line, the error stream.
#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "dbglog_test_support.h"
#include "diag/DbgLog.h"
#include "../test_environment.h"

namespace dbglog_test {
namespace {

const DbgLogSite kErrorSite{u"/src/x/Unit.cpp", 12, u" (f)", u"", DBG_LEVEL_ERR};

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

using DbgLogFile = DbgLogTest;

TEST_F(DbgLogFile, HeldOpenFileStartsAnewAndGetsNoEnterLineAtLevel0) {
    std::ofstream(logPath()) << "old run\n";
    configure("Destination=2\nLevel=0\nTimeDateFormat=0\nLogFile=" + logPath() + "\n");
    {
        VELQ_TRACE(u"wWinMain", u" (wWinMain)");
        dbgLogPrint(kErrorSite, u"Error Code: 0x%x", 0x80004005u);
    }
    EXPECT_EQ(readFile(logPath()), "Unit.cpp(12):  [ERR] (f): Error Code: 0x80004005\n");
}

TEST_F(DbgLogFile, LogFileInAFolderThatDoesNotExistYet) {
    const std::string path = m_folder + "/new/deeper/log.txt";
    configure("Destination=2\nTimeDateFormat=0\nLogFile=" + path + "\n");
    dbgLogPrint(kErrorSite, u"first");
    EXPECT_EQ(readFile(path), "Unit.cpp(12):  [ERR] (f): first\n");
#ifndef _WIN32  // modes are POSIX's; on Windows the log file takes its folder's access list
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0077, 0u) << "log file is owner-only";
#endif
}

TEST_F(DbgLogFile, FlushFiveFlushesAndZeroLeavesTheBuffer) {
    configure("Destination=2\nFlush=5\nTimeDateFormat=0\nLogFile=" + logPath() + "\n");
    dbgLogPrint(kErrorSite, u"flushed");
    EXPECT_EQ(readFile(logPath()), "Unit.cpp(12):  [ERR] (f): flushed\n");

    configure("Destination=2\nFlush=0\nTimeDateFormat=0\nLogFile=" + logPath() + "\n");
    dbgLogPrint(kErrorSite, u"buffered");
    EXPECT_EQ(readFile(logPath()), "");  // still in the stream's buffer
    dbgLogReset(DbgLogEnvironment{});    // closing writes it
    EXPECT_EQ(readFile(logPath()), "Unit.cpp(12):  [ERR] (f): buffered\n");
}

TEST_F(DbgLogFile, EnvironmentVariablesInTheLogFileAreExpanded) {
    const ScopedEnv folder("VELQ_DBGLOG_TEST_DIR", m_folder.c_str());
    configure("Destination=3\nTimeDateFormat=0\nLogFile=%VELQ_DBGLOG_TEST_DIR%/expanded.txt\n");
    dbgLogPrint(kErrorSite, u"x");
    EXPECT_EQ(readFile(m_folder + "/expanded.txt"), "Unit.cpp(12):  [ERR] (f): x\n");
}

TEST_F(DbgLogFile, DefaultLogFileIsUnderTheUsersStateFolder) {
    {
        const ScopedEnv state("XDG_STATE_HOME", m_folder.c_str());
        configure("Destination=3\nTimeDateFormat=0\n");
        dbgLogPrint(kErrorSite, u"default");
    }
    EXPECT_EQ(readFile(m_folder + "/velq/log/log.txt"), "Unit.cpp(12):  [ERR] (f): default\n");
}

TEST_F(DbgLogFile, OpenedPerLineAppendsAndRetriesAfterAFailure) {
    std::ofstream(logPath(), std::ios::binary) << "kept\n";
    configure("Destination=3\nTimeDateFormat=0\nLogFile=" + logPath() + "\n");
    dbgLogPrint(kErrorSite, u"one");
    dbgLogPrint(kErrorSite, u"two \u00e9");  // non-ASCII goes out as UTF-8
    EXPECT_EQ(readFile(logPath()),
              "kept\nUnit.cpp(12):  [ERR] (f): one\nUnit.cpp(12):  [ERR] (f): two \xC3\xA9\n");

    // A file in the way of the folder: lines are dropped, and each line tries again.
    const std::string blocked = m_folder + "/blocker/log.txt";
    std::ofstream(m_folder + "/blocker") << "file";
    configure("Destination=3\nTimeDateFormat=0\nLogFile=" + blocked + "\n");
    EXPECT_GT(dbgLogPrint(kErrorSite, u"lost"), 0);
    ASSERT_EQ(std::remove((m_folder + "/blocker").c_str()), 0);
    dbgLogPrint(kErrorSite, u"found");
    EXPECT_EQ(readFile(blocked), "Unit.cpp(12):  [ERR] (f): found\n");
}

TEST_F(DbgLogFile, HeldOpenStreamIsTriedOnlyOnce) {
    const std::string blocked = m_folder + "/blocker/log.txt";
    std::ofstream(m_folder + "/blocker") << "file";
    configure("Destination=2\nTimeDateFormat=0\nLogFile=" + blocked + "\n");
    dbgLogPrint(kErrorSite, u"lost");
    ASSERT_EQ(std::remove((m_folder + "/blocker").c_str()), 0);
    dbgLogPrint(kErrorSite, u"also lost");
    EXPECT_EQ(readFile(blocked), "");
}

TEST_F(DbgLogFile, ErrorStreamDestination) {
    std::FILE* stream = std::tmpfile();
    ASSERT_NE(stream, nullptr);
    std::ofstream(m_folder + "/DbgLog.ini") << "[LOG]\nDestination=4\nTimeDateFormat=0\n";
    DbgLogEnvironment environment;
    environment.configPath = plat::fromUtf8(m_folder + "/DbgLog.ini");
    environment.errorStream = stream;
    dbgLogReset(environment);
    dbgLogPrint(kErrorSite, u"to stderr %d", 4);
    std::rewind(stream);
    char text[128] = {};
    ASSERT_NE(std::fgets(text, sizeof(text), stream), nullptr);
    EXPECT_STREQ(text, "Unit.cpp(12):  [ERR] (f): to stderr 4\n");
    std::fclose(stream);
}

TEST_F(DbgLogFile, FirstUseFromManyThreadsOpensOnceAndLosesNothing) {
    configure("Destination=2\nLevel=3\nTimeDateFormat=3\nLogFile=" + logPath() + "\n");
    constexpr int kThreads = 8;
    constexpr int kLinesEach = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            const DbgLogSite site{u"/src/T.cpp", t, u" (worker)", u"", DBG_LEVEL_TRC};
            for (int i = 0; i < kLinesEach; ++i) {
                dbgLogPrint(site, u"line %d of thread %d", i, t);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string content = readFile(logPath());
    // Every line is whole: a second open with truncation, or a lost setting, would lose or mix lines.
    EXPECT_EQ(countOf(content, "\n"), static_cast<std::size_t>(kThreads * kLinesEach));
    EXPECT_EQ(countOf(content, "0.000: T.cpp("), static_cast<std::size_t>(kThreads * kLinesEach));
    EXPECT_EQ(countOf(content, "[TRC] (worker): line 49 of thread "), static_cast<std::size_t>(kThreads));
}

TEST_F(DbgLogFile, ConfigurationBesideTheProgram) {
    char16_t program[4096];
    const plat::DWORD length = plat::GetModuleFileNameW(nullptr, program, 4096);
    ASSERT_GT(length, 0u);
    std::string ini = plat::toUtf8(std::u16string(program, length));
    ini = ini.substr(0, ini.find_last_of("/\\") + 1) + "DbgLog.ini";
    if (std::filesystem::exists(ini)) {
        GTEST_SKIP() << "a DbgLog.ini already lies beside the test program";
    }
    std::ofstream(ini) << "[LOG]\nDestination=3\nTimeDateFormat=0\nLogFile=" << logPath() << "\n";
    DbgLogEnvironment environment;  // no configuration path: the one beside the program
    dbgLogReset(environment);
    dbgLogPrint(kErrorSite, u"beside");
    std::remove(ini.c_str());
    EXPECT_EQ(readFile(logPath()), "Unit.cpp(12):  [ERR] (f): beside\n");
}

}  // namespace
}  // namespace dbglog_test
