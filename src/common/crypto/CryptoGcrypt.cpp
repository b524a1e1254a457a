// The seam over libgcrypt (Windows builds; on Linux with VELQ_CRYPTO=gcrypt). Not Windows' own CNG: Wine
// computes AES-GCM wrongly when a run is split over several calls, and the tests run under Wine.
// libgcrypt 1.10 has neither HKDF nor scrypt of every block size: both are built here over its HMAC.
#include <gcrypt.h>

#include <cstring>
#include <memory>
#include <new>

#include "common/crypto/Crypto.h"
#include "common/crypto/ScryptBounds.h"
#include "common/crypto/ScryptMix.h"

namespace velqcrypto {
namespace {

// libgcrypt must be initialised once before any other call; a function-local static does that once,
// whichever thread comes first. No secure memory pool: secrets are wiped by their owners instead.
bool libraryReady() {
    static const bool ready = [] {
        if (gcry_check_version("1.8.0") == nullptr) {
            return false;
        }
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        return true;
    }();
    return ready;
}

// One HMAC-SHA-256 computation fed in pieces.
class Hmac {
public:
    Hmac(const unsigned char* key, std::size_t keySize) : m_handle(nullptr) {
        // HMAC pads a key with zeros to the block size, so the empty key and one zero byte give the same
        // MAC; libgcrypt refuses a key of length 0, so the empty one is given as that byte.
        static const unsigned char kZero = 0;
        if (keySize == 0) {
            key = &kZero;
            keySize = 1;
        }
        if (!libraryReady() || gcry_mac_open(&m_handle, GCRY_MAC_HMAC_SHA256, 0, nullptr) != 0) {
            m_handle = nullptr;
        } else if (gcry_mac_setkey(m_handle, key, keySize) != 0) {
            gcry_mac_close(m_handle);
            m_handle = nullptr;
        }
    }
    ~Hmac() {
        if (m_handle != nullptr) {
            gcry_mac_close(m_handle);  // wipes the keyed state
        }
    }
    Hmac(const Hmac&) = delete;
    Hmac& operator=(const Hmac&) = delete;

    bool write(const unsigned char* data, std::size_t size) {
        return m_handle != nullptr && (size == 0 || gcry_mac_write(m_handle, data, size) == 0);
    }
    bool read(unsigned char (&mac)[kSha256Bytes]) {
        std::size_t produced = kSha256Bytes;
        return m_handle != nullptr && gcry_mac_read(m_handle, mac, &produced) == 0 &&
               produced == kSha256Bytes;
    }

private:
    gcry_mac_hd_t m_handle;
};

// PBKDF2-HMAC-SHA-256 with one iteration, all that scrypt asks of it (RFC 8018 section 5.2):
// block i is HMAC(password, salt || INT(i)).
bool pbkdf2Once(const unsigned char* password, std::size_t passwordSize, const unsigned char* salt,
                std::size_t saltSize, unsigned char* out, std::size_t size) {
    for (std::uint32_t index = 1; size > 0; ++index) {
        const unsigned char counter[4] = {
            static_cast<unsigned char>(index >> 24), static_cast<unsigned char>(index >> 16),
            static_cast<unsigned char>(index >> 8), static_cast<unsigned char>(index)};
        unsigned char block[kSha256Bytes];
        Hmac hmac(password, passwordSize);
        if (!hmac.write(salt, saltSize) || !hmac.write(counter, sizeof(counter)) || !hmac.read(block)) {
            return false;
        }
        const std::size_t piece = size < kSha256Bytes ? size : kSha256Bytes;
        std::memcpy(out, block, piece);
        wipe(block, sizeof(block));
        out += piece;
        size -= piece;
    }
    return true;
}

}  // namespace

bool randomBytes(unsigned char* out, std::size_t size) {
    if (!libraryReady()) {
        return false;
    }
    gcry_randomize(out, size, GCRY_STRONG_RANDOM);  // ends the process rather than fail
    return true;
}

bool secretRandomBytes(unsigned char* out, std::size_t size) {
    if (!libraryReady()) {
        return false;
    }
    gcry_randomize(out, size, GCRY_VERY_STRONG_RANDOM);  // the level for long-lived keys
    return true;
}

void wipe(void* data, std::size_t size) {
    // Through a volatile pointer: the compiler may not drop stores it cannot see the end of.
    volatile unsigned char* bytes = static_cast<unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = 0;
    }
}

bool equalConstantTime(const void* a, const void* b, std::size_t size) {
    const auto* left = static_cast<const unsigned char*>(a);
    const auto* right = static_cast<const unsigned char*>(b);
    unsigned char difference = 0;
    for (std::size_t i = 0; i < size; ++i) {
        difference = static_cast<unsigned char>(difference | (left[i] ^ right[i]));
    }
    return difference == 0;
}

bool sha256(const unsigned char* data, std::size_t size, unsigned char (&digest)[kSha256Bytes]) {
    if (!libraryReady()) {
        return false;
    }
    gcry_md_hash_buffer(GCRY_MD_SHA256, digest, data, size);
    return true;
}

bool hmacSha256(const unsigned char* key, std::size_t keySize, const unsigned char* data, std::size_t size,
                unsigned char (&mac)[kSha256Bytes]) {
    Hmac hmac(key, keySize);
    return hmac.write(data, size) && hmac.read(mac);
}

// RFC 5869 over HMAC-SHA-256: libgcrypt has HKDF only from 1.11 on, and Debian ships 1.10.
bool hkdfSha256(const unsigned char* secret, std::size_t secretSize, const unsigned char* salt,
                std::size_t saltSize, const unsigned char* info, std::size_t infoSize, unsigned char* out,
                std::size_t size) {
    if (size == 0 || size > 255 * kSha256Bytes) {
        return false;
    }
    static const unsigned char kDefaultSalt[kSha256Bytes] = {};
    unsigned char prk[kSha256Bytes];
    bool ok = hmacSha256(saltSize > 0 ? salt : kDefaultSalt, saltSize > 0 ? saltSize : sizeof(kDefaultSalt),
                         secret, secretSize, prk);
    unsigned char block[kSha256Bytes] = {};
    std::size_t previous = 0;  // T(0) is empty
    for (unsigned char index = 1; ok && size > 0; ++index) {
        Hmac hmac(prk, sizeof(prk));
        ok = hmac.write(block, previous) && hmac.write(info, infoSize) && hmac.write(&index, 1) &&
             hmac.read(block);
        const std::size_t piece = size < kSha256Bytes ? size : kSha256Bytes;
        std::memcpy(out, block, ok ? piece : 0);
        out += piece;
        size -= piece;
        previous = sizeof(block);
    }
    wipe(prk, sizeof(prk));
    wipe(block, sizeof(block));
    return ok;
}

bool scrypt(const unsigned char* password, std::size_t passwordSize, const unsigned char* salt,
            std::size_t saltSize, std::uint64_t n, std::uint32_t r, std::uint32_t p, unsigned char* out,
            std::size_t size) {
    if (!scryptParamsValid(n, r, p)) {
        return false;
    }
    const std::size_t blocksSize = std::size_t{128} * r * p;
    std::unique_ptr<unsigned char[]> blocks(new (std::nothrow) unsigned char[blocksSize]);
    if (!blocks) {
        return false;
    }
    const bool ok = pbkdf2Once(password, passwordSize, salt, saltSize, blocks.get(), blocksSize) &&
                    scryptMixBlocks(blocks.get(), n, r, p) &&
                    pbkdf2Once(password, passwordSize, blocks.get(), blocksSize, out, size);
    wipe(blocks.get(), blocksSize);
    return ok;
}

struct AesGcm::State {
    gcry_cipher_hd_t handle;
    Direction direction;
};

AesGcm::AesGcm() : m_pState(nullptr) {
    gcry_cipher_hd_t handle = nullptr;
    if (libraryReady() && gcry_cipher_open(&handle, GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_GCM, 0) == 0) {
        m_pState = new State{handle, Direction::Encrypt};
    }
}

AesGcm::~AesGcm() {
    if (m_pState != nullptr) {
        gcry_cipher_close(m_pState->handle);  // wipes the key schedule
        delete m_pState;
    }
}

bool AesGcm::start(Direction direction, const unsigned char* key, const unsigned char* nonce) {
    if (m_pState == nullptr) {
        return false;
    }
    m_pState->direction = direction;
    return gcry_cipher_reset(m_pState->handle) == 0 &&
           gcry_cipher_setkey(m_pState->handle, key, kAesKeyBytes) == 0 &&
           gcry_cipher_setiv(m_pState->handle, nonce, kGcmNonceBytes) == 0;
}

bool AesGcm::authenticate(const unsigned char* data, std::size_t size) {
    return m_pState != nullptr && gcry_cipher_authenticate(m_pState->handle, data, size) == 0;
}

bool AesGcm::update(const unsigned char* in, unsigned char* out, std::size_t size) {
    if (m_pState == nullptr) {
        return false;
    }
    // libgcrypt works in place when given no separate input.
    const void* source = in == out ? nullptr : in;
    const std::size_t sourceSize = in == out ? 0 : size;
    const gcry_error_t error = m_pState->direction == Direction::Encrypt
                                   ? gcry_cipher_encrypt(m_pState->handle, out, size, source, sourceSize)
                                   : gcry_cipher_decrypt(m_pState->handle, out, size, source, sourceSize);
    return error == 0;
}

bool AesGcm::finishEncrypt(unsigned char (&tag)[kGcmTagBytes]) {
    return m_pState != nullptr && m_pState->direction == Direction::Encrypt &&
           gcry_cipher_gettag(m_pState->handle, tag, kGcmTagBytes) == 0;
}

bool AesGcm::finishDecrypt(const unsigned char (&tag)[kGcmTagBytes]) {
    return m_pState != nullptr && m_pState->direction == Direction::Decrypt &&
           gcry_cipher_checktag(m_pState->handle, tag, kGcmTagBytes) == 0;
}

}  // namespace velqcrypto
