// Captures the debug log's lines for one test: a configuration that writes every error-level line to a
// temporary stream, switched back to the program's own (none: no log) when the object goes.
#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "diag/DbgLog.h"
#include "plat/strings.h"
#include "temp_folder.h"

namespace velq_test {

class LogCapture {
public:
    LogCapture() {
        m_folder = makeTempFolder("velq-ui-log-");
        const std::filesystem::path ini = m_folder / "DbgLog.ini";
        std::ofstream(ini) << "[LOG]\nLevel=0\nDestination=4\nTimeDateFormat=0\n";
        m_pStream = std::tmpfile();
        DbgLogEnvironment environment;
        environment.configPath = ini.u16string();
        environment.errorStream = m_pStream;
        dbgLogReset(environment);
    }
    ~LogCapture() {
        dbgLogReset(DbgLogEnvironment{});
        if (m_pStream != nullptr) {
            std::fclose(m_pStream);
        }
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    bool ready() const { return m_pStream != nullptr && !m_folder.empty(); }

    // Everything logged so far, as UTF-8.
    std::string text() const {
        std::string out;
        if (m_pStream == nullptr) {
            return out;
        }
        std::fflush(m_pStream);
        std::rewind(m_pStream);
        char chunk[512];
        std::size_t got = 0;
        while ((got = std::fread(chunk, 1, sizeof chunk, m_pStream)) > 0) {
            out.append(chunk, got);
        }
        std::fseek(m_pStream, 0, SEEK_END);
        return out;
    }

    // How many logged lines contain `needle`.
    int count(const std::string& needle) const {
        const std::string all = text();
        int found = 0;
        for (std::size_t at = all.find(needle); at != std::string::npos; at = all.find(needle, at + 1)) {
            ++found;
        }
        return found;
    }

private:
    std::filesystem::path m_folder;
    std::FILE* m_pStream = nullptr;
};

}  // namespace velq_test
