#include "winbio/fprintd_identity.h"

#include <pwd.h>

#include <charconv>
#include <cstring>
#include <vector>

#include "plat/strings.h"

namespace plat::winbio {

namespace {
constexpr std::u16string_view kUserSidPrefix = u"S-1-22-1-";
}

bool identityOfOwner(WINBIO_IDENTITY& identity) {
    identity = WINBIO_IDENTITY{};
    PSID sid = nullptr;
    if (ConvertStringSidToSidW(processOwnerSidText().c_str(), &sid) == FALSE) {
        return false;
    }
    const DWORD length = GetLengthSid(sid);
    const bool fits = length > 0 && length <= SECURITY_MAX_SID_SIZE;
    if (fits) {
        identity.Type = WINBIO_ID_TYPE_SID;
        identity.Value.AccountSid.Size = length;
        std::memcpy(identity.Value.AccountSid.Data, sid, length);
    }
    LocalFree(sid);
    return fits;
}

bool userNameOfIdentity(const WINBIO_IDENTITY& identity, std::string& name) {
    if (identity.Type != WINBIO_ID_TYPE_SID || identity.Value.AccountSid.Size == 0 ||
        identity.Value.AccountSid.Size > SECURITY_MAX_SID_SIZE) {
        return false;
    }
    LPWSTR text = nullptr;
    // The SID's bytes are copied so that a damaged size cannot make the conversion read past them.
    BYTE data[SECURITY_MAX_SID_SIZE] = {};
    std::memcpy(data, identity.Value.AccountSid.Data, identity.Value.AccountSid.Size);
    if (ConvertSidToStringSidW(data, &text) == FALSE) {
        return false;
    }
    const std::string sid = toUtf8(text);
    LocalFree(text);
    const std::string prefix = toUtf8(std::u16string(kUserSidPrefix));
    if (sid.rfind(prefix, 0) != 0) {
        return false;
    }
    const char* first = sid.data() + prefix.size();
    const char* last = sid.data() + sid.size();
    unsigned long uid = 0;
    const auto [end, error] = std::from_chars(first, last, uid);
    if (error != std::errc() || end != last || first == last || uid > 0xFFFFFFFEUL) {
        return false;
    }
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(static_cast<uid_t>(uid), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr) {
        return false;
    }
    name = found->pw_name;
    return true;
}

}  // namespace plat::winbio
