// A private VELQ_DATA_HOME for one test: a fresh temp folder, set in the environment for the test's life
// and removed with everything in it afterwards.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>

class ScopedDataHome {
public:
    ScopedDataHome() {
        std::string pattern = (std::filesystem::temp_directory_path() / "velq-common-XXXXXX").string();
        m_root = ::mkdtemp(pattern.data()) ? pattern : std::string();
        const char* previous = std::getenv("VELQ_DATA_HOME");
        m_bHadPrevious = previous != nullptr;
        m_previous = previous ? previous : "";
        use(m_root + "/data");
    }
    ~ScopedDataHome() {
        if (m_bHadPrevious) {
            ::setenv("VELQ_DATA_HOME", m_previous.c_str(), 1);
        } else {
            ::unsetenv("VELQ_DATA_HOME");
        }
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }
    ScopedDataHome(const ScopedDataHome&) = delete;
    ScopedDataHome& operator=(const ScopedDataHome&) = delete;

    // Points VELQ_DATA_HOME at `path` (for a second "machine" inside the same test).
    void use(const std::string& path) { ::setenv("VELQ_DATA_HOME", path.c_str(), 1); }
    const std::string& root() const { return m_root; }

private:
    std::string m_root;
    std::string m_previous;
    bool m_bHadPrevious = false;
};

inline unsigned permissionsOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0xFFFFu;
}
