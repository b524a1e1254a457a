#include "common/VELQUserDirectory.h"

#include <string_view>

#include "common/SecureFile.h"
#include "diag/DbgLog.h"
#include "plat/strings.h"
#include "plat/system.h"
#include "plat/user_account.h"

namespace {

std::u16string withoutTrailingSeparators(std::u16string path) {
    while (path.size() > 1 && (path.back() == u'/' || path.back() == u'\\')) {
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
    const std::string chosen = plat::environmentValue("VELQ_DATA_HOME").value_or(std::string());
    if (!chosen.empty()) {
        return withoutTrailingSeparators(plat::fromUtf8(chosen));
    }
    const std::u16string base = plat::userDataFolder();
    return base.empty() ? std::u16string() : base + u"/velq";
}

std::u16string hostDomain() {
    return plat::hostName();
}

std::u16string currentAccountName() {
    plat::UserAccount account;
    return plat::processOwnerAccount(account) ? account.name : std::u16string();
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
