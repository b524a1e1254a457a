#include "common/VELQUserInfo.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <mutex>
#include <string_view>

#include "common/KeyFileFormat.h"
#include "common/SecureFile.h"
#include "common/VELQUserDirectory.h"
#include "diag/DbgLog.h"
#include "plat/strings.h"
#include "plat/user_account.h"

using plat::HRESULT;

namespace {

constexpr std::string_view kRecordPrefix = "VELQ user record 1\nfingerprints ";
constexpr std::size_t kMaxRecordBytes = 256;

std::string recordPath(const VELQUserInfo& user) {
    return plat::toUtf8(
        getVELQAppUserDirectory(user.getUserName(), user.getDomain(), velqdir::kUserRecordFileName));
}

// The count of a record "VELQ user record 1\nfingerprints <n>\n"; false for anything else.
bool parseRecord(const std::vector<unsigned char>& content, plat::ULONG& count) {
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    if (!text.starts_with(kRecordPrefix) || !text.ends_with('\n')) {
        return false;
    }
    const char* first = text.data() + kRecordPrefix.size();
    const char* last = text.data() + text.size() - 1;
    plat::ULONG value = 0;
    const auto [end, error] = std::from_chars(first, last, value);
    if (error != std::errc() || end != last || first == last) {
        return false;
    }
    count = value;
    return true;
}

struct UserStore {
    std::mutex lock;
    std::unique_ptr<VELQUserInfo> owner;
    std::vector<std::unique_ptr<VELQUserInfo>> all;
    std::vector<VELQUserInfo*> allView;
    bool listed = false;
};

UserStore& store() {
    static UserStore instance;
    return instance;
}

std::unique_ptr<VELQUserInfo> userFromAccount(const plat::UserAccount& account) {
    return std::make_unique<VELQUserInfo>(static_cast<unsigned int>(account.id), account.name,
                                          velqdir::hostDomain(), account.sidText);
}

}  // namespace

VELQUserInfo::VELQUserInfo(unsigned int uid, std::u16string userName, std::u16string domain,
                           std::u16string sidText)
    : m_uid(uid),
      m_strUserName(std::move(userName)),
      m_strDomain(std::move(domain)),
      m_strSid(std::move(sidText)),
      m_nFingerprintCount(0) {}

std::u16string VELQUserInfo::getVELQSID() const {
    // Without a SID of the system's, the account stands for the POSIX user of that uid.
    return m_strSid.empty() ? plat::fromUtf8("S-1-22-1-" + std::to_string(m_uid)) : m_strSid;
}

long VELQUserInfo::load(long /*flags*/) {
    const std::string path = recordPath(*this);
    std::vector<unsigned char> content;
    HRESULT result = path.empty() ? plat::E_FAIL : velqfile::readSmallFile(path, kMaxRecordBytes, content);
    if (result == plat::HRESULT_FROM_WIN32(plat::ERROR_FILE_NOT_FOUND) ||
        result == plat::HRESULT_FROM_WIN32(plat::ERROR_PATH_NOT_FOUND)) {
        m_nFingerprintCount = 0;
        return plat::S_FALSE;
    }
    if (plat::SUCCEEDED(result) && !parseRecord(content, m_nFingerprintCount)) {
        result = velqkeyfile::E_DAMAGED_FILE;
    }
    if (plat::FAILED(result)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQUserInfo::load)", u"Error Code: 0x%x", result);
    }
    return result;
}

long VELQUserInfo::save(long /*flags*/) {
    const std::string path = recordPath(*this);
    HRESULT result =
        path.empty() ? plat::E_FAIL : velqfile::makePrivateFolder(path.substr(0, path.rfind('/')));
    if (plat::SUCCEEDED(result)) {
        const std::string record = std::string(kRecordPrefix) + std::to_string(m_nFingerprintCount) + "\n";
        result = velqfile::writeFileAtomically(path, record.data(), record.size());
    }
    if (plat::FAILED(result)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQUserInfo::save)", u"Error Code: 0x%x", result);
    }
    return result;
}

VELQUserInfo* VELQUserInfoManager::getCurrentProcessOwner() {
    UserStore& users = store();
    std::lock_guard<std::mutex> guard(users.lock);
    if (!users.owner) {
        plat::UserAccount account;
        if (!plat::processOwnerAccount(account)) {
            VELQ_LOG(DBG_LEVEL_ERR, u" (VELQUserInfoManager::getCurrentProcessOwner)", u"Error Code: 0x%x",
                     plat::E_FAIL);
            return nullptr;
        }
        users.owner = userFromAccount(account);
    }
    return users.owner.get();
}

long VELQUserInfoManager::initUsers(int what) {
    if (what == 0) {
        return plat::E_INVALIDARG;
    }
    UserStore& users = store();
    std::lock_guard<std::mutex> guard(users.lock);
    if (users.listed) {
        return plat::S_FALSE;
    }
    // The store's lock keeps our own callers of the system's account list apart.
    for (const plat::UserAccount& account : plat::machineAccounts()) {
        users.all.push_back(userFromAccount(account));
    }
    std::stable_sort(users.all.begin(), users.all.end(), [](const auto& left, const auto& right) {
        return std::make_pair(left->getUid(), left->getUserName()) <
               std::make_pair(right->getUid(), right->getUserName());
    });
    for (const auto& user : users.all) {
        users.allView.push_back(user.get());
    }
    users.listed = true;
    return plat::S_OK;
}

std::vector<VELQUserInfo*>* VELQUserInfoManager::getAllUsers() {
    UserStore& users = store();
    std::lock_guard<std::mutex> guard(users.lock);
    return &users.allView;
}

void VELQUserInfoManager::releaseUsers() {
    UserStore& users = store();
    std::lock_guard<std::mutex> guard(users.lock);
    users.owner.reset();
    users.allView.clear();
    users.all.clear();
    users.listed = false;
}
