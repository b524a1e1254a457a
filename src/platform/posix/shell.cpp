#include "plat/shell.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "files_internal.h"
#include "plat/errors.h"
#include "plat/strings.h"
#include "plat/ui.h"

namespace plat {

namespace {

constexpr char16_t kHex[] = u"0123456789ABCDEF";

bool isUnsafe(char16_t unit, DWORD flags) {
    if (unit == u'%') {
        return (flags & URL_ESCAPE_PERCENT) != 0;
    }
    if (unit < 0x20 || (unit >= 0x7F && unit <= 0xFF)) {
        return true;
    }
    return std::u16string_view(u" ^&`{}|][\"<>\\").find(unit) != std::u16string_view::npos;
}

std::u16string escaped(std::u16string_view url, DWORD flags) {
    std::u16string out;
    const std::size_t queryStart = std::min(url.find(u'?'), url.find(u'#'));
    for (std::size_t i = 0; i < url.size(); ++i) {
        const char16_t unit = url[i];
        if (i < queryStart && isUnsafe(unit, flags)) {
            out += u'%';
            out += kHex[(unit >> 4) & 0xF];
            out += kHex[unit & 0xF];
        } else {
            out += unit;
        }
    }
    return out;
}

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

void collect(const std::string& folder, const std::u16string& pattern, std::vector<std::u16string>& found) {
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) {
        return;  // an unreadable folder is passed over, as the shell's search does
    }
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string path = folder + (folder.ends_with('/') ? "" : "/") + name;
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0) {
            continue;
        }
        if (S_ISDIR(info.st_mode)) {
            collect(path, pattern, found);
        } else if (S_ISREG(info.st_mode) && fitsPattern(fromUtf8(name), pattern)) {
            found.push_back(fromUtf8(path));
        }
    }
    ::closedir(dir);
}

}  // namespace

HRESULT UrlEscapeW(LPCWSTR pszUrl, LPWSTR pszEscaped, DWORD* pcchEscaped, DWORD dwFlags) {
    constexpr DWORD kSupported = URL_ESCAPE_PERCENT | URL_DONT_ESCAPE_EXTRA_INFO;
    if (pszUrl == nullptr || pszEscaped == nullptr || pcchEscaped == nullptr || *pcchEscaped == 0 ||
        (dwFlags & ~kSupported) != 0) {
        return E_INVALIDARG;
    }
    const std::u16string out = escaped(pszUrl, dwFlags);
    if (out.size() + 1 > *pcchEscaped) {
        *pcchEscaped = static_cast<DWORD>(out.size() + 1);
        return E_POINTER;
    }
    std::copy(out.begin(), out.end(), pszEscaped);
    pszEscaped[out.size()] = u'\0';
    *pcchEscaped = static_cast<DWORD>(out.size());
    return S_OK;
}

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
        const char* home = std::getenv("HOME");
        if (home != nullptr && *home != '\0') {
            collect(home, pattern, found);
        }
    }
    for (const std::u16string& location : locations) {
        collect(toUtf8(location), pattern, found);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::intptr_t ShellExecuteW(HWND, LPCWSTR, LPCWSTR lpFile, LPCWSTR, LPCWSTR, int) {
    const SearchQuery query = parseSearchQuery(lpFile != nullptr ? std::u16string_view(lpFile) : u"");
    if (!query.valid) {
        SetLastError(ERROR_NO_ASSOCIATION);
        return SE_ERR_NOASSOC;
    }
    const std::vector<std::u16string> found = findMatchingFiles(query.pattern, query.locations);
    ui::currentBackend().searchWindow().show(lpFile, found);
    return SE_SUCCESS;
}

}  // namespace plat
