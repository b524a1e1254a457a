// A fresh folder under the system's temporary folder for one test, on every system (std::filesystem in
// place of mkdtemp), and one removed with everything in it when its object goes.
#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace velq_test {

// Creates a new folder named `prefix` and a random number under the temporary folder; an empty path when
// none could be made. A name that exists already is not taken, so two tests never share a folder.
inline std::filesystem::path makeTempFolder(const std::string& prefix) {
    std::random_device random;
    std::error_code error;
    const std::filesystem::path base = std::filesystem::temp_directory_path(error);
    if (error) {
        return {};
    }
    for (int attempt = 0; attempt < 16; ++attempt) {
        const std::filesystem::path folder = base / (prefix + std::to_string(random()));
        if (std::filesystem::create_directory(folder, error)) {
            return folder;
        }
    }
    return {};
}

// A temporary folder for the life of the object.
class TempFolder {
public:
    explicit TempFolder(const std::string& prefix) : m_path(makeTempFolder(prefix)) {}
    ~TempFolder() {
        std::error_code ignored;
        if (!m_path.empty()) {
            std::filesystem::remove_all(m_path, ignored);
        }
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

}  // namespace velq_test
