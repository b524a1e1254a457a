// The account of the process's token, the machine's local accounts and the user's known folders.
#include "plat/user_account.h"
#include "plat/security.h"
#include "wide.h"
// After wide.h: these need <windows.h> first.
#include <knownfolders.h>
#include <lm.h>
#include <sddl.h>
#include <shlobj.h>

#include <string>
#include <vector>

namespace plat {

using win32::units;

namespace {

// The last sub-authority of a SID (the account's RID); 0 for a SID without any.
unsigned long relativeId(::PSID sid) {
    const UCHAR count = *::GetSidSubAuthorityCount(sid);
    return count == 0 ? 0 : *::GetSidSubAuthority(sid, count - 1u);
}

std::u16string sidText(::PSID sid) {
    wchar_t* text = nullptr;
    if (!::ConvertSidToStringSidW(sid, &text)) {
        return {};
    }
    std::u16string result = units(text);
    ::LocalFree(text);
    return result;
}

// The account named `name` on this machine; false when the system does not know it.
bool lookUpAccount(const wchar_t* name, UserAccount& account) {
    ::DWORD sidSize = 0;
    ::DWORD domainSize = 0;
    ::SID_NAME_USE use = SidTypeUnknown;
    ::LookupAccountNameW(nullptr, name, nullptr, &sidSize, nullptr, &domainSize, &use);
    if (sidSize == 0) {
        return false;
    }
    std::vector<unsigned char> sid(sidSize);
    std::wstring domain(domainSize + 1, L'\0');
    if (!::LookupAccountNameW(nullptr, name, sid.data(), &sidSize, domain.data(), &domainSize, &use)) {
        return false;
    }
    account.id = relativeId(sid.data());
    account.name = units(name);
    account.sidText = sidText(sid.data());
    return true;
}

std::u16string withoutTrailingSeparators(std::u16string path) {
    while (path.size() > 3 && (path.back() == u'\\' || path.back() == u'/')) {
        path.pop_back();
    }
    return path;
}

// A known folder of the user; the environment's `variable` when the shell cannot say.
std::u16string knownFolder(const ::KNOWNFOLDERID& id, const wchar_t* variable) {
    wchar_t* path = nullptr;
    std::u16string result;
    if (::SHGetKnownFolderPath(id, KF_FLAG_DEFAULT, nullptr, &path) == S_OK && path != nullptr) {
        result = units(path);
    }
    ::CoTaskMemFree(path);
    if (result.empty()) {
        wchar_t value[MAX_PATH + 1] = {};
        const ::DWORD length = ::GetEnvironmentVariableW(variable, value, MAX_PATH + 1);
        if (length > 0 && length <= MAX_PATH) {
            result = units(value);
        }
    }
    return withoutTrailingSeparators(result);
}

}  // namespace

bool processOwnerAccount(UserAccount& account) {
    wchar_t name[UNLEN + 1] = {};
    ::DWORD length = UNLEN + 1;
    if (!::GetUserNameW(name, &length)) {
        return false;
    }
    UserAccount owner;
    owner.name = units(name);
    owner.sidText = processOwnerSidText();
    ::PSID sid = nullptr;
    if (owner.sidText.empty() || !::ConvertStringSidToSidW(win32::wide(owner.sidText.c_str()), &sid)) {
        return false;
    }
    owner.id = relativeId(sid);
    ::LocalFree(sid);
    account = owner;
    return true;
}

std::vector<UserAccount> machineAccounts() {
    std::vector<UserAccount> accounts;
    ::DWORD_PTR resume = 0;
    ::NET_API_STATUS status = 0;
    do {
        ::LPBYTE buffer = nullptr;
        ::DWORD read = 0;
        ::DWORD total = 0;
        ::DWORD resumeHandle = static_cast<::DWORD>(resume);
        status = ::NetUserEnum(nullptr, 0, FILTER_NORMAL_ACCOUNT, &buffer, MAX_PREFERRED_LENGTH, &read,
                               &total, &resumeHandle);
        resume = resumeHandle;
        if ((status == NERR_Success || status == ERROR_MORE_DATA) && buffer != nullptr) {
            const auto* entries = reinterpret_cast<const ::USER_INFO_0*>(buffer);
            for (::DWORD i = 0; i < read; ++i) {
                UserAccount account;
                if (lookUpAccount(entries[i].usri0_name, account)) {
                    accounts.push_back(account);
                }
            }
        }
        ::NetApiBufferFree(buffer);
    } while (status == ERROR_MORE_DATA);
    return accounts;
}

std::u16string userHomeFolder() {
    return knownFolder(FOLDERID_Profile, L"USERPROFILE");
}

std::u16string userDataFolder() {
    return knownFolder(FOLDERID_LocalAppData, L"LOCALAPPDATA");
}

std::u16string defaultLogFile() {
    return u"C:\\Users\\Public\\Kelmora\\VELQ\\Log\\log.txt";
}

std::u16string hostName() {
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    ::DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
    return ::GetComputerNameW(name, &length) ? std::u16string(units(name)) : std::u16string();
}

}  // namespace plat
