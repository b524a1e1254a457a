// The whole reader of .lqvz files under one fixed key: _decryptFile opens a file made from each input,
// reads both headers, checks them and runs the data pass into the file's folder.
//
// Input: one control byte, then the file's content. Control bit 0 clear: the content is the file as it
// stands. Bit 0 set: the content is a plain image (an identity area when it starts with "VQE", the 1088
// bytes of the header, then data) that is enciphered with the key as one run, so that the fuzzer steers
// the fields the data pass acts on (offset, length, name); the identity area then gets the key's CRC,
// bit 1 puts the current user into the owner field, and data whose length fits a final call is closed
// with a real tag. Bit 2 answers OK to the replace question, else Cancel.
//
// After each input: on success the folder holds exactly the stored name, a plain name, and the input is
// gone; on failure it holds the input alone, unchanged; and nothing ever appears beside the folder.
// Anything else aborts.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "engine_access.h"
#include "keyed_home.h"
#include "plat/strings.h"
#include "plat/ui.h"

namespace {

using Access = VELQCryptFileTestAccess;
using Bytes = std::vector<unsigned char>;

constexpr std::size_t kIdentitySize = 32;
constexpr std::size_t kHeaderSize = 1088;
constexpr std::size_t kOwnerOffset = 4;
constexpr std::size_t kOwnerBytes = 520;

bool g_bAnswerOk = false;

// The replace question, answered by the input's control byte.
class AnsweringMessageBox : public plat::ui::MessageBoxUi {
public:
    int show(plat::HWND, std::u16string_view, std::u16string_view, plat::UINT) override {
        return g_bAnswerOk ? plat::IDOK : plat::IDCANCEL;
    }
};

class NoCursor : public plat::ui::CursorUi {
public:
    void show(plat::DWORD) override {}
};

class FuzzBackend : public plat::ui::Backend {
public:
    std::string_view name() const override { return "fuzz"; }
    plat::ui::MessageBoxUi& messageBox() override { return m_box; }
    plat::ui::CursorUi& cursor() override { return m_cursor; }

private:
    AnsweringMessageBox m_box;
    NoCursor m_cursor;
};

struct Harness {
    std::string root;
    std::string folder;
    std::string file;
    std::unique_ptr<VELQCryptFile> engine;
};

Harness* g_harness = nullptr;

// A private data home with a root key of the process owner, and one engine bound to it.
Harness* makeHarness() {
    plat::ui::installBackend(std::make_unique<FuzzBackend>());
    const std::string pattern = velq_fuzz::makeKeyedHome("velq-fuzz-decrypt");
    if (pattern.empty()) {
        return nullptr;
    }
    auto* harness = new Harness{pattern, pattern + "/dest", pattern + "/dest/input.lqvz", nullptr};
    std::filesystem::create_directories(harness->folder);
    harness->engine = std::make_unique<VELQCryptFile>(std::vector<std::u16string>{}, plat::TRUE);
    if (Access::initCryptScene(*harness->engine) != 0) {
        delete harness;
        return nullptr;
    }
    return harness;
}

// Enciphers the data behind the header as the rest of the header's run: a final call with a real tag
// when its length fits one, a block call when it is a multiple of 32 (an untagged, legacy end).
void encipherData(VELQCrypt& crypt, unsigned char* data, std::size_t length) {
    if (length >= 48 && (length - 16) % 32 == 0) {
        crypt.encryptStream(data, static_cast<unsigned long>(length), 1);
    } else if (length > 0 && length % 32 == 0) {
        crypt.encryptStream(data, static_cast<unsigned long>(length), 0);
    }
}

Bytes fileBytes(VELQCryptFile& engine, std::uint8_t control, const std::uint8_t* content, std::size_t size) {
    Bytes bytes(content, content + size);
    if ((control & 1U) == 0) {
        return bytes;
    }
    const bool current = size >= 3 && std::memcmp(content, "VQE", 3) == 0;
    const std::size_t headerAt = current ? kIdentitySize : 0;
    if (bytes.size() < headerAt + kHeaderSize) {
        bytes.resize(headerAt + kHeaderSize, 0);
    }
    if (current) {
        const plat::DWORD keyCrc = Access::crc32Key(engine);
        std::memcpy(bytes.data() + 8, &keyCrc, sizeof keyCrc);
    }
    unsigned char* header = bytes.data() + headerAt;
    if ((control & 2U) != 0) {
        const std::u16string owner = Access::userInfo(engine)->getDomainUserName();
        std::memset(header + kOwnerOffset, 0, kOwnerBytes);
        std::memcpy(header + kOwnerOffset, owner.data(), std::min<std::size_t>(owner.size(), 259) * 2);
    }
    VELQCrypt& crypt = *Access::crypt(engine);
    crypt.encryptStream(header, kHeaderSize, 0);
    encipherData(crypt, header + kHeaderSize, bytes.size() - headerAt - kHeaderSize);
    crypt.endCryptProcess(true);
    return bytes;
}

std::set<std::string> namesIn(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

Bytes readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void require(bool condition, const char* what, int nResult) {
    if (!condition) {
        std::fprintf(stderr, "broken: %s (result %d)\n", what, nResult);
        std::abort();
    }
}

// What one input may leave behind, then a clean folder for the next.
void checkAndClean(const Harness& harness, int nResult, const Bytes& input) {
    const std::set<std::string> names = namesIn(harness.folder);
    if (nResult == 0) {
        require(names.size() == 1 && names.count("input.lqvz") == 0, "success leaves the stored name alone",
                nResult);
        const std::string name = *names.begin();
        require(name != "." && name != ".." && name.find('/') == std::string::npos, "a plain name", nResult);
    } else {
        require(names == std::set<std::string>{"input.lqvz"}, "failure leaves the input alone", nResult);
        require(readAll(harness.file) == input, "failure leaves the input unchanged", nResult);
    }
    const std::set<std::string> besideFolder = namesIn(harness.root);
    for (const std::string& name : besideFolder) {
        require(name == "data" || name == "dest" || name == "tmp", "nothing beside the folder", nResult);
    }
    for (const std::string& name : names) {
        const std::string path = harness.folder + "/" + name;
        ::chmod(path.c_str(), 0600);
        std::filesystem::remove(path);
    }
}

}  // namespace

// The concerns of a batch that one file's decryption does not run (the screen: silent_stand_ins.cpp).
plat::LONG VELQShellExtProc::recoverKeyGuide() {
    return plat::E_FAIL;
}
void VELQCryptFile::_updateProgress() {}
plat::BOOL VELQProgressDialog::hasUserCancelled() {
    return plat::FALSE;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    g_harness = makeHarness();
    if (g_harness == nullptr) {
        std::abort();  // no key, no reader: nothing to fuzz
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    VELQCryptFile& engine = *g_harness->engine;
    g_bAnswerOk = (data[0] & 4U) != 0;
    const Bytes bytes = fileBytes(engine, data[0], data + 1, size - 1);
    {
        std::ofstream out(g_harness->file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    FileInfo info;
    info.m_szFilePath = plat::fromUtf8(g_harness->file);
    info.m_sDestFileInfo.m_szDestFilePath = info.m_szFilePath;
    info.m_bEncrypted = plat::TRUE;
    info.m_nCryptMode = CRYPT_MODE_DECRYPT;
    const int nResult = Access::decryptFile(engine, &info);
    Access::closeFileHandles(engine, &info);
    Access::crypt(engine)->endCryptProcess(false);
    checkAndClean(*g_harness, nResult, bytes);
    return 0;
}
