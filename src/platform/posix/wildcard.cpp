// File-name patterns: no system call in it, so that the Windows program builds it too.
#include "plat/wildcard.h"

namespace plat {

bool wildcardMatch(std::u16string_view name, std::u16string_view pattern) {
    std::size_t n = 0;
    std::size_t p = 0;
    std::size_t starPattern = std::u16string_view::npos;
    std::size_t starName = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == u'?' || pattern[p] == name[n])) {
            ++n, ++p;
        } else if (p < pattern.size() && pattern[p] == u'*') {
            starPattern = p++;
            starName = n;
        } else if (starPattern != std::u16string_view::npos) {
            p = starPattern + 1;
            n = ++starName;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*') {
        ++p;
    }
    return p == pattern.size();
}

}  // namespace plat
