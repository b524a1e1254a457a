#include "common/SecureFile.h"

#include "common/crypto/Crypto.h"
#include "plat/errors.h"
#include "plat/secret_files.h"
#include "plat/strings.h"

using plat::HRESULT;
using plat::S_OK;

namespace velqfile {
namespace {

// A temp name that no other writer picks: the target's name with a random suffix.
std::string tempNameFor(const std::string& path) {
    unsigned char random[8] = {};
    if (!velqcrypto::randomBytes(random, sizeof(random))) {
        return {};
    }
    std::string name = path + ".tmp-";
    for (unsigned char byte : random) {
        static const char kHex[] = "0123456789abcdef";
        name += kHex[byte >> 4];
        name += kHex[byte & 0x0f];
    }
    return name;
}

HRESULT lastErrorResult() {
    return plat::HRESULT_FROM_WIN32(plat::GetLastError());
}

HRESULT writeThenPublish(const std::string& path, const void* data, std::size_t size, bool replace) {
    const std::string temp = tempNameFor(path);
    if (temp.empty()) {
        return plat::E_FAIL;
    }
    return plat::writeSecretFile(plat::fromUtf8(temp).c_str(), plat::fromUtf8(path).c_str(), data, size,
                                 replace ? plat::TRUE : plat::FALSE)
               ? S_OK
               : lastErrorResult();
}

}  // namespace

HRESULT writeFileAtomically(const std::string& path, const void* data, std::size_t size) {
    return writeThenPublish(path, data, size, true);
}

HRESULT createFileExclusively(const std::string& path, const void* data, std::size_t size) {
    return writeThenPublish(path, data, size, false);
}

HRESULT readSmallFile(const std::string& path, std::size_t maxBytes, std::vector<unsigned char>& content) {
    return plat::readSmallFile(plat::fromUtf8(path).c_str(), maxBytes, content) ? S_OK : lastErrorResult();
}

HRESULT makePrivateFolder(const std::string& path) {
    if (path.empty()) {
        return plat::E_INVALIDARG;
    }
    return plat::createPrivateFolder(plat::fromUtf8(path).c_str()) ? S_OK : lastErrorResult();
}

}  // namespace velqfile
