// The accounts of the password database and the XDG folders of the effective user.
#include "plat/user_account.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "plat/security.h"
#include "plat/strings.h"

namespace plat {

namespace {

UserAccount accountOf(const struct passwd& entry) {
    UserAccount account;
    account.id = entry.pw_uid;
    account.name = fromUtf8(entry.pw_name != nullptr ? entry.pw_name : "");
    account.sidText = fromUtf8("S-1-22-1-" + std::to_string(entry.pw_uid));
    return account;
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string absoluteVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && value[0] == '/' ? std::string(value) : std::string();
}

std::string homeUtf8() {
    std::string home = absoluteVariable("HOME");
    if (home.empty()) {
        struct passwd entry {};
        struct passwd* found = nullptr;
        std::string buffer(16384, '\0');
        if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
            found != nullptr && found->pw_dir != nullptr) {
            home = found->pw_dir;
        }
    }
    return withoutTrailingSlashes(home);
}

// ${variable} when absolute, else the home's `fallback` below it.
std::u16string xdgFolder(const char* variable, const char* fallback) {
    std::string folder = absoluteVariable(variable);
    if (folder.empty()) {
        const std::string home = homeUtf8();
        if (home.empty()) {
            return {};
        }
        folder = (home == "/" ? std::string() : home) + fallback;
    }
    return fromUtf8(withoutTrailingSlashes(folder));
}

}  // namespace

bool processOwnerAccount(UserAccount& account) {
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::string buffer(16384, '\0');
    if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return false;
    }
    account = accountOf(entry);
    return true;
}

std::vector<UserAccount> machineAccounts() {
    // getpwent keeps one cursor per process; the callers serialise their lists.
    std::vector<UserAccount> accounts;
    ::setpwent();
    while (const struct passwd* entry = ::getpwent()) {
        accounts.push_back(accountOf(*entry));
    }
    ::endpwent();
    return accounts;
}

std::u16string userHomeFolder() {
    return fromUtf8(homeUtf8());
}

std::u16string userDataFolder() {
    return xdgFolder("XDG_DATA_HOME", "/.local/share");
}

std::u16string defaultLogFile() {
    const std::u16string state = xdgFolder("XDG_STATE_HOME", "/.local/state");
    return state.empty() ? std::u16string() : state + u"/velq/log/log.txt";
}

std::u16string hostName() {
    char name[256] = {};
    if (::gethostname(name, sizeof(name) - 1) != 0) {
        return {};
    }
    return fromUtf8(name);
}

}  // namespace plat
