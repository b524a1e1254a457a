// The crypt scene: the user's key, proved to be that user's, bound into the batch's one cipher object,
// and the key's CRC that binds files to it.
#include <new>

#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"

namespace {

constexpr const char16_t* kTag = u" (_initCryptScene)";

// The cipher bound to `key` when the key belongs to `user`; null otherwise, with the component's code in
// `nResult`. The key itself stays with the caller.
VELQCrypt* bindKey(VELQKey& key, const VELQUserInfo& user, long& nResult) {
    nResult = key.checkSID(user.getVELQSID());
    if (nResult < 0) {
        return nullptr;
    }
    auto* crypt = new (std::nothrow) VELQCrypt(key, nResult);
    if (crypt == nullptr) {
        nResult = plat::E_POINTER;
        return nullptr;
    }
    if (nResult < 0) {
        delete crypt;
        return nullptr;
    }
    return crypt;
}

}  // namespace

int VELQCryptFile::_initCryptScene() {
    VELQ_TRACE(u"VELQCryptFile::_initCryptScene", kTag);
    if (m_pUserInfo == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, kTag, u"Error Code: 0x%x", static_cast<unsigned>(CRYPT_E_GENERAL));
        return CRYPT_E_GENERAL;
    }
    // A failed new scene must leave no cipher of the old key behind.
    delete m_pCrypt;
    m_pCrypt = nullptr;

    const std::u16string strRootKeyPath =
        getUserRootKeyFilePath(m_pUserInfo->getUserName(), m_pUserInfo->getDomain(), u"");
    VELQ_LOG(DBG_LEVEL_TRC, kTag, u"%s = %s", u"strRootKeyPath", strRootKeyPath.c_str());

    VELQKey* key = nullptr;
    long nResult = VELQKey::loadVELQKey(&key, strRootKeyPath, kVELQRootKeyPassPhrase);
    if (nResult < 0 || key == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, kTag, u"Error Code: 0x%x", static_cast<unsigned>(CRYPT_E_INVALID_KEY));
        return CRYPT_E_INVALID_KEY;
    }
    m_pCrypt = bindKey(*key, *m_pUserInfo, nResult);
    if (m_pCrypt != nullptr) {
        m_crc32Key = key->getCRC32Value();
        VELQ_LOG(DBG_LEVEL_TRC, kTag, u"%s = %X", u"m_crc32Key", m_crc32Key);
    }
    VELQKey::freeVELQKey(&key);
    if (m_pCrypt == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, kTag, u"Error Code: 0x%x", static_cast<unsigned>(nResult));
        return CRYPT_E_INVALID_KEY;
    }
    return CRYPT_S_OK;
}
