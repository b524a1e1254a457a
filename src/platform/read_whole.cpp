// Reading a whole file through openStream, the same on every system.
#include "plat/streams.h"

namespace plat {

// stdio rather than istreambuf_iterator, in which GCC 12 at -O2 sees a false null dereference.
bool readWhole(const std::u16string& path, std::string& bytes) {
    std::FILE* file = openStream(path, StreamMode::kRead);
    if (file == nullptr) {
        return false;
    }
    char block[65536];
    std::size_t got = 0;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0) {
        bytes.append(block, got);
    }
    const bool whole = std::ferror(file) == 0;
    return std::fclose(file) == 0 && whole;
}

}  // namespace plat
