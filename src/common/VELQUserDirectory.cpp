#include "common/VELQUserDirectory.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <vector>

#include "common/SecureFile.h"
#include "diag/DbgLog.h"
#include "plat/strings.h"

namespace {

std::string environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

// The home folder of the effective user from the account database, for a process without $HOME.
std::string accountHome() {
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr ||
        found->pw_dir == nullptr) {
        return {};
    }
    return found->pw_dir;
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

bool isPlainName(std::u16string_view name) {
    return !name.empty() && name != u"." && name != u".." &&
           name.find_first_of(u"/\\") == std::u16string_view::npos &&
           name.find(u'\0') == std::u16string_view::npos;
}

char16_t lowerAscii(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
}

bool equalIgnoringCase(std::u16string_view left, std::u16string_view right) {
    if (left.size() != right.size()) {
        return false;
    }
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (lowerAscii(left[i]) != lowerAscii(right[i])) {
            return false;
        }
    }
    return true;
}

bool isThisDomain(std::u16string_view domain) {
    return domain.empty() || equalIgnoringCase(domain, velqdir::hostDomain());
}

}  // namespace

namespace velqdir {

std::u16string dataHome() {
    std::string home = environmentValue("VELQ_DATA_HOME");
    if (home.empty()) {
        std::string xdg = environmentValue("XDG_DATA_HOME");
        if (xdg.empty() || xdg.front() != '/') {  // a relative XDG value is to be ignored
            std::string userHome = environmentValue("HOME");
            if (userHome.empty()) {
                userHome = accountHome();
            }
            if (userHome.empty()) {
                return {};
            }
            xdg = withoutTrailingSlashes(userHome) + "/.local/share";
        }
        home = withoutTrailingSlashes(xdg) + "/velq";
    }
    return plat::fromUtf8(withoutTrailingSlashes(home));
}

std::u16string hostDomain() {
    char name[256] = {};
    if (::gethostname(name, sizeof(name) - 1) != 0) {
        return {};
    }
    return plat::fromUtf8(name);
}

std::u16string currentAccountName() {
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr ||
        found->pw_name == nullptr) {
        return {};
    }
    return plat::fromUtf8(found->pw_name);
}

}  // namespace velqdir

std::u16string getVELQAppUserDirectory(const std::u16string& userName, const std::u16string& domain,
                                       const std::u16string& subItem) {
    if (!isPlainName(userName) || !isThisDomain(domain) || (!subItem.empty() && !isPlainName(subItem))) {
        return {};
    }
    const std::u16string home = velqdir::dataHome();
    if (home.empty()) {
        return {};
    }
    std::u16string path = home + u"/users/" + userName;
    if (!subItem.empty()) {
        path += u"/" + subItem;
    }
    return path;
}

std::u16string getUserRootKeyFilePath(const std::u16string& userName, const std::u16string& domain,
                                      const std::u16string& fileName) {
    if (!fileName.empty() && !isPlainName(fileName)) {
        return {};
    }
    const std::u16string folder = getVELQAppUserDirectory(userName, domain, u"");
    if (folder.empty()) {
        return {};
    }
    return folder + u"/" + (fileName.empty() ? std::u16string(velqdir::kRootKeyFileName) : fileName);
}

long createVELQAppUserDirectory() {
    const std::u16string folder = getVELQAppUserDirectory(velqdir::currentAccountName(), u"", u"");
    const plat::HRESULT result =
        folder.empty() ? plat::E_FAIL : velqfile::makePrivateFolder(plat::toUtf8(folder));
    if (plat::FAILED(result)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (createVELQAppUserDirectory)", u"Error Code: 0x%x", result);
    }
    return result;
}
