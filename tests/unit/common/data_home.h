// A private VELQ_DATA_HOME for one test: a fresh temp folder, set in the environment for the test's life
// and removed with everything in it afterwards; and the owner-only check of the common tests on every
// system.
#pragma once

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "../temp_folder.h"
#include "../test_environment.h"

class ScopedDataHome {
public:
    ScopedDataHome() {
        const std::filesystem::path root = velq_test::makeTempFolder("velq-common-");
        m_root = root.empty() ? std::string() : velq_test::utf8Of(root.generic_u8string());
        use(m_root + "/data");
    }
    ~ScopedDataHome() {
        setEnvironment("VELQ_DATA_HOME", m_previous ? m_previous->c_str() : nullptr);
        if (!m_root.empty()) {
            velq_test::removeTree(velq_test::pathOfUtf8(m_root));
        }
    }
    ScopedDataHome(const ScopedDataHome&) = delete;
    ScopedDataHome& operator=(const ScopedDataHome&) = delete;

    // Points VELQ_DATA_HOME at `path` (for a second "machine" inside the same test).
    void use(const std::string& path) { setEnvironment("VELQ_DATA_HOME", path.c_str()); }
    const std::string& root() const { return m_root; }

private:
    std::string m_root;
    // Read before the constructor's body points the variable at the new folder.
    std::optional<std::string> m_previous = plat::environmentValue("VELQ_DATA_HOME");
};

// The permission bits of `path`, 0xFFFF when it cannot be read. POSIX only: on Windows a file in the
// user's profile is private through the folder's access list, not through modes.
#ifndef _WIN32
inline unsigned permissionsOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0xFFFFu;
}
#endif

// The owner-only promise of a file or folder: mode `mode` on POSIX; on Windows, where the profile's access
// list keeps it private, that it is there.
inline void expectOwnerOnly(const std::string& path, [[maybe_unused]] unsigned mode) {
#ifdef _WIN32
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
#else
    EXPECT_EQ(permissionsOf(path), mode) << path;
#endif
}
