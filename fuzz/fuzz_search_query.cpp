// Fuzzes the reading of a "search-ms:" query (what ShellExecuteW is handed) and the URL escaping that
// builds its locations: a query never yields an empty location, and every text survives escaping and
// reading back.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "plat/shell.h"
#include "plat/types.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The bytes as UTF-16 units, as the program's wide strings hold them (NULs end the text there).
    std::u16string text;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        const char16_t unit = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
        if (unit == u'\0') {
            break;
        }
        text += unit;
    }

    const plat::SearchQuery query = plat::parseSearchQuery(text);
    if (query.valid) {
        check(text.starts_with(u"search-ms:"));
        for (const std::u16string& location : query.locations) {
            check(!location.empty());
        }
    }

    // What the search escapes (a path without '?' or '#') reads back unchanged.
    std::vector<plat::WCHAR> buffer(3 * text.size() + 1);
    plat::DWORD count = static_cast<plat::DWORD>(buffer.size());
    const plat::HRESULT hr = plat::UrlEscapeW(text.c_str(), buffer.data(), &count,
                                              plat::URL_DONT_ESCAPE_EXTRA_INFO | plat::URL_ESCAPE_PERCENT);
    check(hr == plat::S_OK);
    const std::u16string escaped(buffer.data(), count);
    const std::size_t queryStart = std::min(text.find(u'?'), text.find(u'#'));
    if (queryStart == std::u16string::npos) {
        check(plat::urlUnescape(escaped) == text);
    }

    // A buffer one unit too small gives E_POINTER and the exact size needed.
    if (count > 0) {
        plat::DWORD small = count;
        check(plat::UrlEscapeW(text.c_str(), buffer.data(), &small,
                               plat::URL_DONT_ESCAPE_EXTRA_INFO | plat::URL_ESCAPE_PERCENT) ==
              plat::E_POINTER);
        check(small == count + 1);
    }
    return 0;
}
