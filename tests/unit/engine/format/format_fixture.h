// What the format and scene tests share: a private data home with a root key of the process owner, a
// private folder for files, engines whose scene is bound to that key, and small file helpers.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "../../common/data_home.h"
#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"
#include "engine_access.h"
#include "plat/files.h"
#include "plat/strings.h"

namespace format_test {

using Bytes = std::vector<unsigned char>;

// The cheapest key file costs a reader accepts.
inline constexpr velqkeyfile::ScryptParams kCheap{10, 8, 1};

inline Bytes readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeAll(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

class KeyedTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(createVELQAppUserDirectory(), 0);
        m_rootKeyPath = getUserRootKeyFilePath(velqdir::currentAccountName(), u"", u"");
        ASSERT_FALSE(m_rootKeyPath.empty());
        ASSERT_EQ(saveNewRootKey(), 0);
        m_folder = m_home.root() + "/files";
        std::filesystem::create_directories(m_folder);
    }

    // Writes a new key of the process owner as the root key file; its CRC in m_nKeyCrc.
    long saveNewRootKey() {
        VELQKey* key = nullptr;
        long result = VELQCrypt::createVELQKey(&key);
        if (result == 0) {
            result = key->saveToFile(m_rootKeyPath, u"password", kCheap);
            m_nKeyCrc = key->getCRC32Value();
        }
        VELQKey::freeVELQKey(&key);
        return result;
    }

    // An engine of no files, its scene bound to the root key.
    std::unique_ptr<VELQCryptFile> keyedEngine() {
        auto engine = std::make_unique<VELQCryptFile>(std::vector<std::u16string>{}, plat::FALSE);
        EXPECT_EQ(VELQCryptFileTestAccess::initCryptScene(*engine), 0);
        return engine;
    }

    std::string path(const std::string& name) const { return m_folder + "/" + name; }

    ScopedDataHome m_home;
    std::u16string m_rootKeyPath;
    std::string m_folder;
    unsigned m_nKeyCrc = 0;
};

// A file handle closed by the holder's end, as the engine's records close theirs.
class ScopedHandle {
public:
    explicit ScopedHandle(plat::HANDLE handle = plat::INVALID_HANDLE_VALUE) : m_handle(handle) {}
    ~ScopedHandle() { reset(); }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    plat::HANDLE get() const { return m_handle; }
    void reset(plat::HANDLE handle = plat::INVALID_HANDLE_VALUE) {
        if (plat::isUsableHandle(m_handle)) {
            plat::CloseHandle(m_handle);
        }
        m_handle = handle;
    }

private:
    plat::HANDLE m_handle;
};

inline plat::HANDLE openForWriting(const std::string& path) {
    return plat::CreateFileW(plat::fromUtf8(path).c_str(), plat::GENERIC_READ | plat::GENERIC_WRITE, 0,
                             nullptr, plat::CREATE_ALWAYS, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
}

inline plat::HANDLE openForReading(const std::string& path) {
    return plat::CreateFileW(plat::fromUtf8(path).c_str(), plat::GENERIC_READ, 0, nullptr,
                             plat::OPEN_EXISTING, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace format_test
