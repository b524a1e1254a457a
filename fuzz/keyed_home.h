// What the .lqvz fuzz targets share: a private folder with a data home holding a root key of the process
// owner (made with cheap scrypt parameters: the targets never open it by password) and a temporary
// folder, both set in the environment for the engine.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"

namespace velq_fuzz {

// The private folder's path, named after `prefix`; empty when it or the key could not be made.
inline std::string makeKeyedHome(const char* prefix) {
    std::string root = (std::filesystem::temp_directory_path() / (std::string(prefix) + "-XXXXXX")).string();
    if (::mkdtemp(root.data()) == nullptr) {
        return {};
    }
    ::setenv("VELQ_DATA_HOME", (root + "/data").c_str(), 1);
    ::setenv("TMPDIR", (root + "/tmp").c_str(), 1);
    if (createVELQAppUserDirectory() != 0) {
        return {};
    }
    const std::u16string keyPath = getUserRootKeyFilePath(velqdir::currentAccountName(), u"", u"");
    VELQKey* key = nullptr;
    long result = VELQCrypt::createVELQKey(&key);
    if (result == 0) {
        result = key->saveToFile(keyPath, u"password", velqkeyfile::ScryptParams{10, 8, 1});
    }
    VELQKey::freeVELQKey(&key);
    return result == 0 ? root : std::string();
}

}  // namespace velq_fuzz
