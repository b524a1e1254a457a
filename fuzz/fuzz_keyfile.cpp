// The key-file reader on arbitrary bytes: it must refuse without reading past the input, and whatever it
// accepts must encode back to the very same bytes (no field is read loosely).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "common/KeyFileFormat.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velqkeyfile::Fields fields;
    const plat::HRESULT result = velqkeyfile::parseFile(data, size, fields);
    if (result != plat::S_OK) {
        if (result != velqkeyfile::E_FOREIGN_FILE && result != velqkeyfile::E_DAMAGED_FILE) {
            std::abort();
        }
        return 0;
    }
    if (!velqkeyfile::isAcceptable(fields.scrypt)) {
        std::abort();
    }
    const std::vector<unsigned char> again = velqkeyfile::encodeFile(fields);
    if (again.size() != size || std::memcmp(again.data(), data, size) != 0) {
        std::abort();
    }
    return 0;
}
