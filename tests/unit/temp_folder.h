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

// The text of `path` in UTF-8, as the platform layer's fromUtf8 takes it (std::filesystem's string() is the
// ANSI code page on Windows, which a profile such as C:\Users\Jürgen does not fit).
inline std::string utf8Of(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// The path that the UTF-8 `text` names.
inline std::filesystem::path pathOfUtf8(const std::string& text) {
    return std::u8string(text.begin(), text.end());
}

// Removes `folder` with everything in it, read-only files too: Windows deletes none of those (encrypted
// files are read-only), so their attribute goes first.
inline void removeTree(const std::filesystem::path& folder) {
    std::error_code ignored;
    for (auto it = std::filesystem::recursive_directory_iterator(folder, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add, ignored);
    }
    std::filesystem::remove_all(folder, ignored);
}

// A temporary folder for the life of the object.
class TempFolder {
public:
    explicit TempFolder(const std::string& prefix) : m_path(makeTempFolder(prefix)) {}
    ~TempFolder() {
        if (!m_path.empty()) {
            removeTree(m_path);
        }
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

}  // namespace velq_test
