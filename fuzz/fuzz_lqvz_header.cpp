// The reader of .lqvz headers under one fixed key: the identity header, the enciphered header and its
// owner and stored-name checks, run by the engine's own operations on a file made from each input.
//
// Input: one control byte, then the file's content. Control bit 0 clear: the content is the file as it
// stands (what someone else's file or a damaged one looks like). Bit 0 set: the content is a plain
// image (identity area, then the 1088 bytes of the header) and the header is enciphered with the key
// before the file is written, so that the fuzzer steers the fields the reader acts on; bit 1 then puts
// the current user's name into the owner field, so that inputs reach the stored-name rule.
//
// Whenever the reader accepts a header, the stored name it accepted must name a file directly inside
// the destination folder; anything else aborts.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "engine_access.h"
#include "keyed_home.h"
#include "plat/files.h"
#include "plat/strings.h"

namespace {

using Access = VELQCryptFileTestAccess;

constexpr std::size_t kIdentitySize = 32;
constexpr std::size_t kHeaderSize = 1088;

struct Harness {
    std::string folder;
    std::string file;
    std::unique_ptr<VELQCryptFile> engine;
};

Harness* g_harness = nullptr;

// A private data home with a root key of the process owner, and one engine bound to it.
Harness* makeHarness() {
    const std::string pattern = velq_fuzz::makeKeyedHome("velq-fuzz-lqvz");
    if (pattern.empty()) {
        return nullptr;
    }
    auto* harness = new Harness{pattern + "/dest", pattern + "/dest/input.lqvz", nullptr};
    std::filesystem::create_directories(harness->folder);
    harness->engine = std::make_unique<VELQCryptFile>(std::vector<std::u16string>{}, plat::FALSE);
    if (Access::initCryptScene(*harness->engine) != 0) {
        delete harness;
        return nullptr;
    }
    return harness;
}

std::vector<unsigned char> fileBytes(VELQCryptFile& engine, std::uint8_t control, const std::uint8_t* content,
                                     std::size_t size) {
    std::vector<unsigned char> bytes(content, content + size);
    if ((control & 1U) == 0) {
        return bytes;
    }
    const bool current = size >= 3 && std::memcmp(content, "VQE", 3) == 0;
    const std::size_t headerAt = current ? kIdentitySize : 0;
    if (bytes.size() < headerAt + kHeaderSize) {
        bytes.resize(headerAt + kHeaderSize, 0);
    }
    unsigned char* header = bytes.data() + headerAt;
    if ((control & 2U) != 0) {
        const std::u16string owner = Access::userInfo(engine)->getDomainUserName();
        std::memset(header + 4, 0, 520);
        std::memcpy(header + 4, owner.data(), std::min<std::size_t>(owner.size(), 259) * 2);
    }
    Access::crypt(engine)->encryptStream(header, kHeaderSize, 0);
    Access::crypt(engine)->endCryptProcess(true);
    return bytes;
}

// The accepted stored name joined to the folder must stay a direct child of it.
void requireInsideFolder(const std::string& folder, const DestFileHeader& header) {
    std::size_t length = 0;
    while (length < 260 && header.m_szFileName[length] != 0) {
        ++length;
    }
    const std::string name = plat::toUtf8(std::u16string(header.m_szFileName, length));
    const std::filesystem::path joined = std::filesystem::path(folder) / name;
    if (name.empty() || joined.lexically_normal().parent_path() != std::filesystem::path(folder) ||
        joined.filename() != name) {
        std::abort();
    }
}

// The private data home and its key leave with the process. The engine stays: its destructor needs the
// platform's per-thread state, which the exit has already ended.
void removeHarness() {
    const std::filesystem::path root = std::filesystem::path(g_harness->folder).parent_path();
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    g_harness = makeHarness();
    if (g_harness == nullptr) {
        std::abort();  // no key, no reader: nothing to fuzz
    }
    std::atexit(removeHarness);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    VELQCryptFile& engine = *g_harness->engine;
    const std::vector<unsigned char> bytes = fileBytes(engine, data[0], data + 1, size - 1);
    {
        std::ofstream out(g_harness->file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    FileInfo info;
    info.m_hFile = plat::CreateFileW(plat::fromUtf8(g_harness->file).c_str(), plat::GENERIC_READ, 0, nullptr,
                                     plat::OPEN_EXISTING, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
    info.m_bEncrypted = plat::TRUE;
    info.m_nFileSize = bytes.size();
    Access::readIdentityHeader(engine, info.m_hFile);
    if (Access::readCryptHeader(engine, &info) == 0 &&
        Access::checkCryptHeader(engine, &info.m_sDestFileInfo.m_DestFileHeader) == 0) {
        requireInsideFolder(g_harness->folder, info.m_sDestFileInfo.m_DestFileHeader);
    }
    Access::crypt(engine)->endCryptProcess(false);
    if (plat::isUsableHandle(info.m_hFile)) {
        plat::CloseHandle(info.m_hFile);
    }
    info.m_hFile = plat::INVALID_HANDLE_VALUE;
    return 0;
}
