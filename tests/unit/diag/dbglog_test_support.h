// A configuration of the log for one test: its own folder, DbgLog.ini, a fixed clock, a tick source the
// test moves, and the lines sent to the system log kept in memory.
#pragma once

#include <gtest/gtest.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "diag/DbgLog.h"
#include "plat/strings.h"

namespace dbglog_test {

inline std::vector<std::u16string> g_debuggerLines;
inline plat::DWORD g_tick = 0;

inline void captureDebugString(const char16_t* line) {
    g_debuggerLines.emplace_back(line);
}
inline plat::DWORD fakeTickCount() {
    return g_tick;
}
inline void fixedLocalTime(plat::SYSTEMTIME* t) {
    *t = plat::SYSTEMTIME{2024, 3, 2, 5, 14, 3, 7, 45};
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

class DbgLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::random_device random;
        const std::filesystem::path folder =
            std::filesystem::temp_directory_path() / ("velq-dbglog-" + std::to_string(random()));
        ASSERT_TRUE(std::filesystem::create_directory(folder));
        m_folder = folder.generic_string();
        g_debuggerLines.clear();
        g_tick = 0;
    }
    void TearDown() override {
        dbgLogReset(DbgLogEnvironment{});  // closes a held-open file before its folder goes
        std::error_code error;
        std::filesystem::remove_all(m_folder, error);
        ASSERT_FALSE(error) << error.message();
    }

    // Writes DbgLog.ini with `lines` under [LOG] and makes the log read it at the next call.
    void configure(const std::string& lines) {
        std::ofstream(m_folder + "/DbgLog.ini") << "[LOG]\n" << lines;
        useConfiguration(m_folder + "/DbgLog.ini");
    }
    void useConfiguration(const std::string& path) {
        DbgLogEnvironment environment;
        environment.configPath = plat::fromUtf8(path);
        environment.getLocalTime = fixedLocalTime;
        environment.getTickCount = fakeTickCount;
        environment.outputDebugString = captureDebugString;
        dbgLogReset(environment);
    }
    std::string logPath() const { return m_folder + "/log.txt"; }

    std::string m_folder;
};

}  // namespace dbglog_test
