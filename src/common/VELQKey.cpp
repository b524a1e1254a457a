#include "common/VELQKey.h"

#include <zlib.h>

#include <cstring>
#include <vector>

#include "common/KeyWrap.h"
#include "common/SecureFile.h"
#include "common/VELQUserDirectory.h"
#include "common/crypto/Crypto.h"
#include "diag/DbgLog.h"
#include "plat/security.h"
#include "plat/strings.h"

using plat::HRESULT;
using plat::S_OK;
using velqkeyfile::Fields;
using velqkeyfile::Slot;

namespace {

constexpr std::size_t kSecretBytes = 32;
constexpr std::string_view kLocalSlotLabel = "VELQ key file v1: local slot: ";

// A secret that wipes itself.
struct Secret {
    unsigned char bytes[kSecretBytes] = {};
    Secret() = default;
    ~Secret() { velqcrypto::wipe(bytes, sizeof(bytes)); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
};

std::string machineSecretPath() {
    return plat::toUtf8(
        getVELQAppUserDirectory(velqdir::currentAccountName(), u"", velqdir::kMachineSecretFileName));
}

// Reads this user's machine secret; with `create`, makes it first when there is none.
HRESULT readMachineSecret(Secret& secret, bool create) {
    const std::string path = machineSecretPath();
    if (path.empty()) {
        return plat::E_FAIL;
    }
    std::vector<unsigned char> content;
    HRESULT result = velqfile::readSmallFile(path, kSecretBytes, content);
    if (result == plat::HRESULT_FROM_WIN32(plat::ERROR_FILE_NOT_FOUND) && create) {
        Secret fresh;
        result = velqfile::makePrivateFolder(path.substr(0, path.find_last_of('/')));
        if (plat::SUCCEEDED(result)) {
            result = velqcrypto::secretRandomBytes(fresh.bytes, sizeof(fresh.bytes))
                         ? velqfile::createFileExclusively(path, fresh.bytes, sizeof(fresh.bytes))
                         : plat::E_FAIL;
        }
        // Another process may have made it meanwhile: theirs counts.
        if (plat::SUCCEEDED(result) || result == plat::HRESULT_FROM_WIN32(plat::ERROR_FILE_EXISTS)) {
            result = velqfile::readSmallFile(path, kSecretBytes, content);
        }
    }
    if (plat::SUCCEEDED(result) && content.size() != kSecretBytes) {
        result = velqkeyfile::E_DAMAGED_FILE;
    }
    if (plat::SUCCEEDED(result)) {
        std::memcpy(secret.bytes, content.data(), kSecretBytes);
    }
    velqcrypto::wipe(content.data(), content.size());
    return result;
}

// The key-encryption key of the local slot: the machine secret and the pass phrase, salted per file.
bool deriveLocalKek(const Secret& secret, std::string_view passPhrase, const Slot& slot,
                    unsigned char (&kek)[velqkeywrap::kKeyBytes]) {
    std::string info(kLocalSlotLabel);
    info += passPhrase;
    const bool ok = velqkeywrap::hkdf(secret.bytes, sizeof(secret.bytes), slot.salt.data(), slot.salt.size(),
                                      info, kek, sizeof(kek));
    velqcrypto::wipe(info.data(), info.size());
    return ok;
}

bool openLocalSlot(const Fields& fields, std::string_view passPhrase,
                   unsigned char (&key)[VELQKey::kKeyBytes]) {
    Secret secret;
    if (plat::FAILED(readMachineSecret(secret, false))) {
        return false;  // no secret of this machine: the file was written elsewhere
    }
    Secret kek;
    return deriveLocalKek(secret, passPhrase, fields.localSlot, kek.bytes) &&
           velqkeywrap::openKey(kek.bytes, velqkeyfile::localSlotAad(fields), fields.localSlot, key);
}

// Opens the password slot; `kek` keeps the key-encryption key that did it.
bool openPasswordSlot(const Fields& fields, std::string_view passPhrase,
                      unsigned char (&key)[VELQKey::kKeyBytes],
                      unsigned char (&kek)[velqkeywrap::kKeyBytes]) {
    return velqkeywrap::derivePasswordKek(passPhrase, fields.scrypt, fields.passwordSlot.salt.data(), kek) &&
           velqkeywrap::openKey(kek, velqkeyfile::passwordSlotAad(fields), fields.passwordSlot, key);
}

// Seals the password slot under a new salt; `kek` keeps the key-encryption key that did it.
HRESULT sealPasswordSlot(Fields& fields, std::string_view passPhrase,
                         const unsigned char (&key)[VELQKey::kKeyBytes],
                         unsigned char (&kek)[velqkeywrap::kKeyBytes]) {
    const bool ok =
        velqcrypto::randomBytes(fields.passwordSlot.salt.data(), fields.passwordSlot.salt.size()) &&
        velqkeywrap::derivePasswordKek(passPhrase, fields.scrypt, fields.passwordSlot.salt.data(), kek) &&
        velqkeywrap::sealKey(kek, velqkeyfile::passwordSlotAad(fields), key, fields.passwordSlot);
    return ok ? S_OK : plat::E_FAIL;
}

HRESULT sealLocalSlot(Fields& fields, const unsigned char (&key)[VELQKey::kKeyBytes]) {
    Secret secret;
    const HRESULT result = readMachineSecret(secret, true);
    if (plat::FAILED(result)) {
        return result;
    }
    const std::string passPhrase = plat::toUtf8(kVELQRootKeyPassPhrase);
    Secret kek;
    const bool ok = velqcrypto::randomBytes(fields.localSlot.salt.data(), fields.localSlot.salt.size()) &&
                    deriveLocalKek(secret, passPhrase, fields.localSlot, kek.bytes) &&
                    velqkeywrap::sealKey(kek.bytes, velqkeyfile::localSlotAad(fields), key, fields.localSlot);
    return ok ? S_OK : plat::E_FAIL;
}

// A password that wipes its UTF-8 copy.
struct Utf8Secret {
    std::string text;
    explicit Utf8Secret(const std::u16string& source) : text(plat::toUtf8(source)) {}
    ~Utf8Secret() { velqcrypto::wipe(text.data(), text.size()); }
    Utf8Secret(const Utf8Secret&) = delete;
    Utf8Secret& operator=(const Utf8Secret&) = delete;
};

// Opens the file with the local slot or else the password slot; `byPassword` tells whether the password
// slot did it, and then `passwordKek` holds its key-encryption key.
HRESULT openFile(const Fields& fields, const std::vector<unsigned char>& body,
                 const std::u16string& passPhrase, unsigned char (&key)[VELQKey::kKeyBytes],
                 unsigned char (&passwordKek)[velqkeywrap::kKeyBytes], bool& byPassword) {
    const Utf8Secret pass(passPhrase);
    byPassword = false;
    if (!openLocalSlot(fields, pass.text, key)) {
        byPassword = openPasswordSlot(fields, pass.text, key, passwordKek);
        if (!byPassword) {
            return VELQ_E_WRONG_PASSPHRASE;
        }
    }
    std::array<unsigned char, velqkeyfile::kKeyIdBytes> id{};
    std::array<unsigned char, velqkeyfile::kMacBytes> mac{};
    if (!velqkeywrap::keyId(key, id) || !velqkeywrap::fileMac(key, body, mac) ||
        !velqcrypto::equalConstantTime(id.data(), fields.keyId.data(), id.size()) ||
        !velqcrypto::equalConstantTime(mac.data(), fields.mac.data(), mac.size())) {
        velqcrypto::wipe(key, sizeof(key));
        return velqkeyfile::E_DAMAGED_FILE;
    }
    return S_OK;
}

}  // namespace

VELQKey::VELQKey(const unsigned char (&key)[kKeyBytes], std::string sid,
                 const std::array<unsigned char, velqkeyfile::kKeyIdBytes>& keyId)
    : m_key{},
      m_sid(std::move(sid)),
      m_keyId(keyId),
      m_bHasPasswordSlot(false),
      m_scrypt{},
      m_passwordSlot{},
      m_passwordKek{},
      m_bHasPasswordKek(false) {
    std::memcpy(m_key, key, kKeyBytes);
}

VELQKey::~VELQKey() {
    velqcrypto::wipe(m_key, sizeof(m_key));
    velqcrypto::wipe(m_passwordKek, sizeof(m_passwordKek));
}

// Kept as secret as the key itself (and wiped with it): what opened or sealed the password slot.
void VELQKey::_keepPasswordKek(const unsigned char (&kek)[kKeyBytes]) {
    std::memcpy(m_passwordKek, kek, sizeof(m_passwordKek));
    m_bHasPasswordKek = true;
}

long VELQKey::createKey(VELQKey** ppKey) {
    if (ppKey == nullptr) {
        return plat::E_POINTER;
    }
    *ppKey = nullptr;
    Secret key;
    std::array<unsigned char, velqkeyfile::kKeyIdBytes> id{};
    if (!velqcrypto::secretRandomBytes(key.bytes, sizeof(key.bytes)) || !velqkeywrap::keyId(key.bytes, id)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQKey::createKey)", u"Error Code: 0x%x", plat::E_FAIL);
        return plat::E_FAIL;
    }
    // The key is bound to the SID of the account that runs the process (the token's user on Windows).
    *ppKey = new VELQKey(key.bytes, plat::toUtf8(plat::processOwnerSidText()), id);
    return S_OK;
}

long VELQKey::loadVELQKey(VELQKey** ppKey, const std::u16string& path, const std::u16string& passPhrase) {
    if (ppKey == nullptr) {
        return plat::E_POINTER;
    }
    freeVELQKey(ppKey);
    std::vector<unsigned char> content;
    Fields fields;
    HRESULT result = velqfile::readSmallFile(plat::toUtf8(path), velqkeyfile::kMaxFileBytes, content);
    if (result == plat::HRESULT_FROM_WIN32(13)) {
        result = velqkeyfile::E_DAMAGED_FILE;  // longer than any key file
    }
    if (plat::SUCCEEDED(result)) {
        result = velqkeyfile::parseFile(content.data(), content.size(), fields);
    }
    Secret key;
    Secret passwordKek;
    bool byPassword = false;
    if (plat::SUCCEEDED(result)) {
        result = openFile(fields, velqkeyfile::encodeBody(fields), passPhrase, key.bytes, passwordKek.bytes,
                          byPassword);
    }
    if (plat::FAILED(result)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQKey::loadVELQKey)", u"Error Code: 0x%x", result);
        return result;
    }
    VELQKey* loaded = new VELQKey(key.bytes, fields.sid, fields.keyId);
    loaded->m_bHasPasswordSlot = true;
    loaded->m_scrypt = fields.scrypt;
    loaded->m_passwordSlot = fields.passwordSlot;
    if (byPassword) {
        loaded->_keepPasswordKek(passwordKek.bytes);
    }
    *ppKey = loaded;
    return S_OK;
}

long VELQKey::freeVELQKey(VELQKey** ppKey) {
    if (ppKey != nullptr) {
        delete *ppKey;
        *ppKey = nullptr;
    }
    return S_OK;
}

long VELQKey::saveToFile(const std::u16string& path, const std::u16string& passPhrase) {
    return saveToFile(path, passPhrase, velqkeyfile::ScryptParams{});
}

long VELQKey::saveToFile(const std::u16string& path, const std::u16string& passPhrase,
                         const velqkeyfile::ScryptParams& params) {
    Fields fields;
    fields.sid = m_sid;
    fields.keyId = m_keyId;
    fields.scrypt = params;
    const Utf8Secret pass(passPhrase);
    Secret passwordKek;
    HRESULT result = velqkeyfile::isAcceptable(params)
                         ? sealPasswordSlot(fields, pass.text, m_key, passwordKek.bytes)
                         : plat::E_INVALIDARG;
    if (plat::SUCCEEDED(result)) {
        result = _write(path, fields);
    }
    if (plat::FAILED(result)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQKey::saveToFile)", u"Error Code: 0x%x", result);
        return result;
    }
    m_bHasPasswordSlot = true;
    m_scrypt = fields.scrypt;
    m_passwordSlot = fields.passwordSlot;
    _keepPasswordKek(passwordKek.bytes);
    return S_OK;
}

long VELQKey::import(const std::u16string& path) {
    if (!m_bHasPasswordSlot) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQKey::import)", u"Error Code: 0x%x",
                 static_cast<plat::HRESULT>(VELQ_E_NO_PASSWORD_SLOT));
        return VELQ_E_NO_PASSWORD_SLOT;
    }
    // Whoever holds the backup and its password holds the key already: binding it to the importing user
    // gives nobody more, and the files themselves still name the one user who may open them.
    const std::string owner = plat::toUtf8(plat::processOwnerSidText());
    if (owner.empty()) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQKey::import)", u"Error Code: 0x%x", plat::E_FAIL);
        return plat::E_FAIL;
    }
    Fields fields;
    fields.sid = owner;
    fields.keyId = m_keyId;
    fields.scrypt = m_scrypt;
    fields.passwordSlot = m_passwordSlot;
    // The password slot authenticates the SID: for another user it is sealed anew, under the same
    // password (its salt and key-encryption key), so that the backup's password still opens the file.
    HRESULT result = S_OK;
    if (owner != m_sid && !m_bHasPasswordKek) {
        result = VELQ_E_NO_PASSWORD_SLOT;
    } else if (owner != m_sid && !velqkeywrap::sealKey(m_passwordKek, velqkeyfile::passwordSlotAad(fields),
                                                       m_key, fields.passwordSlot)) {
        result = plat::E_FAIL;
    }
    if (plat::SUCCEEDED(result)) {
        result = _write(path, fields);
    }
    if (plat::SUCCEEDED(result)) {
        m_sid = owner;
        m_passwordSlot = fields.passwordSlot;
    }
    if (plat::FAILED(result)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQKey::import)", u"Error Code: 0x%x", result);
    }
    return result;
}

// Seals the local slot, authenticates the whole and writes the file; the password slot is in `fields`.
long VELQKey::_write(const std::u16string& path, Fields& fields) {
    if (path.empty()) {
        return plat::E_INVALIDARG;
    }
    HRESULT result = sealLocalSlot(fields, m_key);
    if (plat::FAILED(result)) {
        return result;
    }
    if (!velqkeywrap::fileMac(m_key, velqkeyfile::encodeBody(fields), fields.mac)) {
        return plat::E_FAIL;
    }
    const std::vector<unsigned char> bytes = velqkeyfile::encodeFile(fields);
    if (bytes.empty()) {
        return plat::E_FAIL;
    }
    return velqfile::writeFileAtomically(plat::toUtf8(path), bytes.data(), bytes.size());
}

long VELQKey::checkSID(const std::u16string& sid) const {
    return plat::toUtf8(sid) == m_sid ? S_OK : VELQ_E_OTHER_USER;
}

unsigned int VELQKey::getCRC32Value() const {
    return static_cast<unsigned int>(::crc32(0L, m_keyId.data(), static_cast<uInt>(m_keyId.size())));
}
