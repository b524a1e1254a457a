// The search for encrypted files as the UI backends show it: see backend_search.h. Written over the
// layer's own listing (FindFirstFileW), so that it is the same walk on every system.
#include "ui/backend_search.h"

#include <algorithm>

#include "plat/errors.h"
#include "plat/files.h"
#include "plat/paths.h"
#include "plat/shell.h"
#include "plat/strings.h"
#include "plat/ui.h"
#include "plat/user_account.h"
#include "plat/wildcard.h"

namespace plat {

namespace {

int hexValue(char16_t unit) {
    if (unit >= u'0' && unit <= u'9') {
        return unit - u'0';
    }
    if (unit >= u'a' && unit <= u'f') {
        return unit - u'a' + 10;
    }
    if (unit >= u'A' && unit <= u'F') {
        return unit - u'A' + 10;
    }
    return -1;
}

std::u16string lowerAscii(std::u16string_view text) {
    std::u16string lowered(text);
    for (char16_t& unit : lowered) {
        if (unit >= u'A' && unit <= u'Z') {
            unit = static_cast<char16_t>(unit - u'A' + u'a');
        }
    }
    return lowered;
}

// '*' any run of units, '?' any one unit, the rest equal ignoring ASCII case.
bool fitsPattern(std::u16string_view name, std::u16string_view pattern) {
    return wildcardMatch(lowerAscii(name), lowerAscii(pattern));
}

// A regular file: not a folder, not a link, and, where the attributes carry a POSIX mode, of that type.
bool isRegularFile(const WIN32_FIND_DATAW& entry) {
    constexpr DWORD kNotFiles = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    constexpr DWORD kTypeBits = 0170000;
    constexpr DWORD kRegularType = 0100000;
    const DWORD attributes = entry.dwFileAttributes;
    if ((attributes & kNotFiles) != 0) {
        return false;
    }
    return (attributes & FILE_ATTRIBUTE_UNIX_EXTENSION) == 0 ||
           (modeOfAttributes(attributes) & kTypeBits) == kRegularType;
}

void collect(const std::u16string& folder, const std::u16string& pattern,
             std::vector<std::u16string>& found) {
    const std::u16string prefix = folder.ends_with(kPathSeparator) ? folder : folder + kPathSeparator;
    WIN32_FIND_DATAW entry{};
    const HANDLE listing = FindFirstFileW((prefix + u"*").c_str(), &entry);
    if (listing == INVALID_HANDLE_VALUE) {
        return;  // an unreadable folder is passed over, as the shell's search does
    }
    do {
        const std::u16string name(entry.cFileName);
        if (name == u"." || name == u"..") {
            continue;
        }
        const bool folderEntry = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
                                 (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
        if (folderEntry) {
            collect(prefix + name, pattern, found);
        } else if (isRegularFile(entry) && fitsPattern(name, pattern)) {
            found.push_back(prefix + name);
        }
    } while (FindNextFileW(listing, &entry));
    FindClose(listing);
}

}  // namespace

std::u16string urlUnescape(std::u16string_view text) {
    std::u16string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
            hexValue(text[i + 2]) >= 0) {
            out += static_cast<char16_t>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

SearchQuery parseSearchQuery(std::u16string_view text) {
    constexpr std::u16string_view kScheme = u"search-ms:";
    constexpr std::u16string_view kQuery = u"query=";
    constexpr std::u16string_view kLocation = u"crumb=location:";
    SearchQuery query;
    if (!text.starts_with(kScheme)) {
        return query;
    }
    std::u16string_view rest = text.substr(kScheme.size());
    bool bHasPattern = false;
    while (true) {
        const std::size_t end = rest.find(u'&');
        const std::u16string_view part = rest.substr(0, end);
        if (part.starts_with(kQuery)) {
            query.pattern = urlUnescape(part.substr(kQuery.size()));
            bHasPattern = true;
        } else if (part.starts_with(kLocation)) {
            std::u16string location = urlUnescape(part.substr(kLocation.size()));
            if (!location.empty()) {
                query.locations.push_back(std::move(location));
            }
        }
        if (end == std::u16string_view::npos) {
            break;
        }
        rest = rest.substr(end + 1);
    }
    query.valid = bHasPattern;
    return query;
}

std::vector<std::u16string> findMatchingFiles(const std::u16string& pattern,
                                              const std::vector<std::u16string>& locations) {
    std::vector<std::u16string> found;
    if (locations.empty()) {
        const std::u16string home = userHomeFolder();
        if (!home.empty()) {
            collect(home, pattern, found);
        }
    }
    for (const std::u16string& location : locations) {
        collect(location, pattern, found);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

namespace ui {

std::intptr_t showSearchInBackend(LPCWSTR file) {
    const SearchQuery query = parseSearchQuery(file != nullptr ? std::u16string_view(file) : u"");
    if (!query.valid) {
        SetLastError(ERROR_NO_ASSOCIATION);
        return SE_ERR_NOASSOC;
    }
    const std::vector<std::u16string> found = findMatchingFiles(query.pattern, query.locations);
    currentBackend().searchWindow().show(file, found);
    return SE_SUCCESS;
}

}  // namespace ui
}  // namespace plat
