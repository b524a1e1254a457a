// What the tests of one file's work share: the recorded doubles of progress and message boxes, and a
// keyed fixture with a private folder for files and a private temporary folder (TMPDIR).
#pragma once

#ifndef _WIN32
#include <unistd.h>
#endif

#include <cstdlib>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "../../test_environment.h"
#include "../format/format_fixture.h"
#include "common/VELQUserInfo.h"
#include "plat/strings.h"

namespace files_test {

using format_test::Bytes;
using format_test::readAll;
using format_test::writeAll;

// What the doubles saw and how they answer; reset by each test.
struct Doubles {
    int nCancelAfterPolls = -1;  // Cancel is pressed after this many polls; -1 never
    bool bCancelAtBox = false;   // Cancel is pressed in the progress dialog while a message box stands
    std::deque<int> boxAnswers;  // answers of message boxes; IDCANCEL once used up
    std::vector<std::string> boxes;
    int nProgressUpdates = 0;
    std::vector<float> percents;  // m_fPercent of the current record at each update
    std::function<void(int)> onProgress;
};

Doubles& doubles();
void resetDoubles();

// A byte pattern that no block repeats, so that a block in the wrong place shows.
inline Bytes patternBytes(std::size_t size, unsigned seed = 1) {
    Bytes bytes(size);
    std::uint32_t x = seed * 2654435761u + 1;
    for (auto& b : bytes) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<unsigned char>(x >> 24);
    }
    return bytes;
}

class FilesTest : public format_test::KeyedTest {
protected:
    void SetUp() override {
        KeyedTest::SetUp();
        resetDoubles();
        m_tmpParent = m_home.root() + "/tmp";
        std::filesystem::create_directories(m_tmpParent);
        m_tmpEnv.emplace(kTempVariable, m_tmpParent.c_str());
    }
    void TearDown() override { m_tmpEnv.reset(); }

    // One file of a batch of `mode`, as the batch works it: the record, then the work, then its handles.
    int runOne(const std::string& file, int mode, VELQUserInfo* pUser = nullptr) {
        VELQCryptFile engine({plat::fromUtf8(file)}, plat::TRUE);
        if (VELQCryptFileTestAccess::initCryptScene(engine) != 0) {
            return 1;
        }
        if (pUser != nullptr) {
            delete VELQCryptFileTestAccess::userInfo(engine);
            VELQCryptFileTestAccess::userInfo(engine) = pUser;
        }
        VELQCryptFileTestAccess::initData(engine, mode);
        FileInfo* info = VELQCryptFileTestAccess::fileInfos(engine).at(0);
        info->m_nCryptMode = mode;
        const int nResult = mode == CRYPT_MODE_ENCRYPT ? VELQCryptFileTestAccess::encryptFile(engine, info)
                                                       : VELQCryptFileTestAccess::decryptFile(engine, info);
        VELQCryptFileTestAccess::closeFileHandles(engine, info);
        return nResult;
    }
    int encrypt(const std::string& file) { return runOne(file, CRYPT_MODE_ENCRYPT); }
    int decrypt(const std::string& file, VELQUserInfo* pUser = nullptr) {
        return runOne(file, CRYPT_MODE_DECRYPT, pUser);
    }

    static std::set<std::string> namesIn(const std::string& folder) {
        std::set<std::string> names;
        if (std::filesystem::exists(folder)) {
            for (const auto& entry : std::filesystem::directory_iterator(folder)) {
                names.insert(entry.path().filename().string());
            }
        }
        return names;
    }
    std::set<std::string> files() const { return namesIn(m_folder); }
    std::set<std::string> tempFiles() const { return namesIn(privateTemp()); }
    // The folder of the proof's plain copies: a folder of the owner's own below TMPDIR on POSIX; on Windows
    // the user's temporary folder itself, which the profile's access list keeps private.
#ifdef _WIN32
    static constexpr const char* kTempVariable = "TMP";
    std::string privateTemp() const {
        return m_tmpParent;
    }
#else
    static constexpr const char* kTempVariable = "TMPDIR";
    std::string privateTemp() const {
        return m_tmpParent + "/velq-" + std::to_string(::getuid());
    }
#endif

    std::string m_tmpParent;
    std::optional<ScopedEnv> m_tmpEnv;
};

}  // namespace files_test
