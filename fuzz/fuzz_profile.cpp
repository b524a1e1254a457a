// Fuzzes the INI reader that GetPrivateProfileIntW/StringW use: any text, any section and key.
// Input: section NUL key NUL content (bytes as UTF-8 text).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "plat/profile.h"
#include "plat/strings.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// The next NUL-ended part of the input (the rest when there is no NUL).
std::string_view takePart(std::string_view& rest) {
    const std::size_t end = rest.find('\0');
    const std::string_view part = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return part;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::u16string section = plat::fromUtf8(takePart(rest));
    const std::u16string key = plat::fromUtf8(takePart(rest));
    const std::u16string content = plat::fromUtf8(rest);

    const auto value = plat::findProfileValue(content, section, key);
    if (value) {
        // A value is one trimmed line: never a line feed, never blanks at either end unless quoted.
        check(value->find(u'\n') == std::u16string::npos);
        check(value->size() <= content.size());
    }
    // Case of the names must not matter.
    std::u16string upperSection = section;
    for (char16_t& c : upperSection) {
        c = (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - (u'a' - u'A')) : c;
    }
    check(plat::findProfileValue(content, upperSection, key) == value);
    return 0;
}
