#include "plat/security.h"

#include <grp.h>
#include <sys/types.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "plat/errors.h"
#include "plat/strings.h"
#include "process_owner.h"

namespace plat {

namespace {

constexpr BYTE kSidRevision = 1;
constexpr std::size_t kSidHeaderSize = 8;

// The binary layout of a SID, read from or written to raw bytes.
struct SidView {
    BYTE count = 0;
    std::uint64_t authority = 0;
    DWORD subs[SID_MAX_SUB_AUTHORITIES] = {};
};

std::size_t sidSize(BYTE count) {
    return kSidHeaderSize + 4u * count;
}

PSID writeSid(const SidView& view) {
    auto* bytes = static_cast<BYTE*>(std::calloc(1, sidSize(view.count)));
    if (bytes == nullptr) {
        return nullptr;
    }
    bytes[0] = kSidRevision;
    bytes[1] = view.count;
    for (int i = 0; i < 6; ++i) {
        bytes[2 + i] = static_cast<BYTE>(view.authority >> (8 * (5 - i)));
    }
    std::memcpy(bytes + kSidHeaderSize, view.subs, 4u * view.count);
    return bytes;
}

bool readSid(PSID sid, SidView& view) {
    if (sid == nullptr) {
        return false;
    }
    const auto* bytes = static_cast<const BYTE*>(sid);
    if (bytes[0] != kSidRevision || bytes[1] > SID_MAX_SUB_AUTHORITIES) {
        return false;
    }
    view.count = bytes[1];
    view.authority = 0;
    for (int i = 0; i < 6; ++i) {
        view.authority = (view.authority << 8) | bytes[2 + i];
    }
    std::memcpy(view.subs, bytes + kSidHeaderSize, 4u * view.count);
    return true;
}

std::string sidText(const SidView& view) {
    std::string text = "S-1-";
    if (view.authority >> 32 == 0) {
        text += std::to_string(view.authority);
    } else {
        char hex[24];  // room for any 64-bit value: the compiler cannot see the 48-bit bound
        std::snprintf(hex, sizeof hex, "0x%012llX", static_cast<unsigned long long>(view.authority));
        text += hex;
    }
    for (BYTE i = 0; i < view.count; ++i) {
        text += "-" + std::to_string(view.subs[i]);
    }
    return text;
}

bool parseNumber(std::string_view word, std::uint64_t& value, std::uint64_t max) {
    int base = 10;
    if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
        word.remove_prefix(2);
        base = 16;
    }
    if (word.empty() || word.front() == '+' || word.front() == '-') {
        return false;
    }
    const auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), value, base);
    return ec == std::errc() && end == word.data() + word.size() && value <= max;
}

bool parseSidText(std::string_view text, SidView& view) {
    if (text.substr(0, 4) != "S-1-") {
        return false;
    }
    text.remove_prefix(4);
    std::size_t index = 0;
    while (true) {
        const std::size_t dash = text.find('-');
        const std::string_view word = text.substr(0, dash);
        std::uint64_t value = 0;
        if (index == 0) {
            if (!parseNumber(word, value, 0xFFFFFFFFFFFFull)) {
                return false;
            }
            view.authority = value;
        } else {
            // Sub-authorities are plain decimal without leading zeros, so that a text has one form only.
            const bool plainDecimal = !word.empty() && (word[0] != '0' || word.size() == 1) &&
                                      word.find_first_not_of("0123456789") == std::string_view::npos;
            if (index > SID_MAX_SUB_AUTHORITIES || !plainDecimal ||
                !parseNumber(word, value, 0xFFFFFFFFull)) {
                return false;
            }
            view.subs[index - 1] = static_cast<DWORD>(value);
        }
        ++index;
        if (dash == std::string_view::npos) {
            break;
        }
        text.remove_prefix(dash + 1);
    }
    view.count = static_cast<BYTE>(index - 1);
    return true;
}

bool isMemberOfGroup(gid_t gid) {
    if (getegid() == gid) {
        return true;
    }
    const int count = getgroups(0, nullptr);
    std::vector<gid_t> groups(count > 0 ? static_cast<std::size_t>(count) : 0);
    const int got = groups.empty() ? 0 : getgroups(count, groups.data());
    for (int i = 0; i < got; ++i) {
        if (groups[static_cast<std::size_t>(i)] == gid) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> processGroupNames() {
    std::vector<std::string> names;
    const int count = getgroups(0, nullptr);
    std::vector<gid_t> groups(count > 0 ? static_cast<std::size_t>(count) : 0);
    const int got = groups.empty() ? 0 : getgroups(count, groups.data());
    groups.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    groups.push_back(getegid());
    for (gid_t gid : groups) {
        group entry{};
        group* found = nullptr;
        std::vector<char> buffer(16384);
        if (getgrgid_r(gid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
            names.emplace_back(found->gr_name);
        }
    }
    return names;
}

bool isMember(const SidView& view) {
    constexpr std::uint64_t kWorld = 1;
    constexpr std::uint64_t kNt = 5;
    constexpr std::uint64_t kUnix = 22;
    if (view.authority == kWorld && view.count == 1 && view.subs[0] == 0) {
        return true;
    }
    if (view.authority == kNt && view.count == 2 && view.subs[0] == SECURITY_BUILTIN_DOMAIN_RID &&
        view.subs[1] == DOMAIN_ALIAS_RID_ADMINS) {
        return isAdministratorAccount(detail::processOwnerUid(), processGroupNames());
    }
    if (view.authority == kUnix && view.count == 2 && view.subs[0] == SECURITY_UNIX_USER_RID) {
        return view.subs[1] == detail::processOwnerUid();
    }
    if (view.authority == kUnix && view.count == 2 && view.subs[0] == SECURITY_UNIX_GROUP_RID) {
        return isMemberOfGroup(view.subs[1]);
    }
    return false;
}

}  // namespace

BOOL AllocateAndInitializeSid(const SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD sub0, DWORD sub1,
                              DWORD sub2, DWORD sub3, DWORD sub4, DWORD sub5, DWORD sub6, DWORD sub7,
                              PSID* sid) {
    if (authority == nullptr || sid == nullptr || count == 0 || count > 8) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    SidView view;
    view.count = count;
    for (BYTE byte : authority->Value) {
        view.authority = (view.authority << 8) | byte;
    }
    const DWORD subs[8] = {sub0, sub1, sub2, sub3, sub4, sub5, sub6, sub7};
    std::memcpy(view.subs, subs, sizeof subs);
    *sid = writeSid(view);
    if (*sid == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    return TRUE;
}

PSID FreeSid(PSID sid) {
    std::free(sid);
    return nullptr;
}

BOOL IsValidSid(PSID sid) {
    SidView view;
    return readSid(sid, view) ? TRUE : FALSE;
}

DWORD GetLengthSid(PSID sid) {
    SidView view;
    return readSid(sid, view) ? static_cast<DWORD>(sidSize(view.count)) : 0;
}

BOOL ConvertSidToStringSidW(PSID sid, LPWSTR* text) {
    if (sid == nullptr || text == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    SidView view;
    if (!readSid(sid, view)) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    const std::u16string wide = fromUtf8(sidText(view));
    auto* copy = static_cast<LPWSTR>(std::malloc((wide.size() + 1) * sizeof(WCHAR)));
    if (copy == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    std::memcpy(copy, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
    *text = copy;
    return TRUE;
}

BOOL ConvertStringSidToSidW(LPCWSTR text, PSID* sid) {
    if (text == nullptr || sid == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    SidView view;
    if (!parseSidText(toUtf8(std::u16string_view(text, wcslen16(text))), view)) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    *sid = writeSid(view);
    if (*sid == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    return TRUE;
}

HLOCAL LocalFree(HLOCAL memory) {
    std::free(memory);
    return nullptr;
}

BOOL CheckTokenMembership(HANDLE token, PSID sid, BOOL* member) {
    if (token != nullptr) {
        SetLastError(ERROR_NO_TOKEN);
        return FALSE;
    }
    if (sid == nullptr || member == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    SidView view;
    if (!readSid(sid, view)) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    *member = isMember(view) ? TRUE : FALSE;
    return TRUE;
}

bool isAdministratorAccount(unsigned long uid, const std::vector<std::string>& groupNames) {
    if (uid == 0) {
        return true;
    }
    for (const std::string& name : groupNames) {
        if (name == "sudo" || name == "wheel") {
            return true;
        }
    }
    return false;
}

std::u16string processOwnerSidText() {
    return u"S-1-22-1-" + fromUtf8(std::to_string(detail::processOwnerUid()));
}

}  // namespace plat
