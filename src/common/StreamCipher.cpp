#include "common/StreamCipher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstring>

using plat::E_FAIL;
using plat::E_INVALIDARG;
using plat::HRESULT;
using plat::S_OK;
using plat::ULONG;

namespace {
constexpr ULONG kBlock = 32;

bool isBlockLength(ULONG length) {
    return length >= kBlock && length % kBlock == 0;
}
bool isTaggedFinalLength(ULONG length) {
    return length >= 48 && length % kBlock == 16;
}
}  // namespace

VELQStreamCipher::VELQStreamCipher(const unsigned char (&key)[kKeyBytes])
    : m_key{}, m_pCtx(EVP_CIPHER_CTX_new()), m_run(Run::None), m_nRunBytes(0) {
    std::memcpy(m_key, key, kKeyBytes);
}

VELQStreamCipher::~VELQStreamCipher() {
    OPENSSL_cleanse(m_key, sizeof(m_key));
    EVP_CIPHER_CTX_free(m_pCtx);  // cleanses the expanded key schedule too
    m_pCtx = nullptr;
}

HRESULT VELQStreamCipher::encrypt(unsigned char* data, ULONG length, int final) {
    return _transform(Run::Encrypt, data, length, final);
}

HRESULT VELQStreamCipher::decrypt(unsigned char* data, ULONG length, int final) {
    return _transform(Run::Decrypt, data, length, final);
}

void VELQStreamCipher::endRun() {
    if (m_run != Run::None && m_pCtx != nullptr) {
        EVP_CIPHER_CTX_reset(m_pCtx);
    }
    m_run = Run::None;
    m_nRunBytes = 0;
}

HRESULT VELQStreamCipher::_fail(HRESULT result) {
    endRun();
    return result;
}

HRESULT VELQStreamCipher::_transform(Run direction, unsigned char* data, ULONG length, int final) {
    if (m_pCtx == nullptr) {
        return E_FAIL;
    }
    if (data == nullptr) {
        return _fail(E_INVALIDARG);
    }
    if (m_run == Run::None) {
        // A run opens only with the header call.
        if (final != 0 || length != kHeaderBytes) {
            return _fail(E_INVALIDARG);
        }
        return _openRun(direction, data);
    }
    if (m_run != direction) {
        return _fail(E_INVALIDARG);
    }
    if (m_nRunBytes + length > kMaxRunBytes) {
        return _fail(plat::HRESULT_FROM_WIN32(223));  // ERROR_FILE_TOO_LARGE
    }
    if (final == 0) {
        return isBlockLength(length) ? _update(data, length) : _fail(E_INVALIDARG);
    }
    return _finish(direction, data, length);
}

HRESULT VELQStreamCipher::_openRun(Run direction, unsigned char* header) {
    unsigned char* nonce = header + kHeaderFieldsBytes;
    if (direction == Run::Encrypt && RAND_bytes(nonce, static_cast<int>(kNonceBytes)) != 1) {
        return _fail(E_FAIL);
    }
    const int ok = direction == Run::Encrypt
                       ? EVP_EncryptInit_ex(m_pCtx, EVP_aes_256_gcm(), nullptr, m_key, nonce)
                       : EVP_DecryptInit_ex(m_pCtx, EVP_aes_256_gcm(), nullptr, m_key, nonce);
    if (ok != 1) {
        return _fail(E_FAIL);
    }
    m_run = direction;
    m_nRunBytes = kHeaderBytes;
    if (plat::FAILED(_update(header, kHeaderFieldsBytes))) {
        return E_FAIL;
    }
    if (direction == Run::Decrypt) {
        std::memset(nonce, 0, kNonceBytes);  // the reader sees the fill as written: zeros
    }
    return S_OK;
}

HRESULT VELQStreamCipher::_update(unsigned char* data, ULONG length) {
    int produced = 0;
    const int ok = m_run == Run::Encrypt
                       ? EVP_EncryptUpdate(m_pCtx, data, &produced, data, static_cast<int>(length))
                       : EVP_DecryptUpdate(m_pCtx, data, &produced, data, static_cast<int>(length));
    // GCM is a stream mode: OpenSSL gives every byte back at once.
    if (ok != 1 || produced != static_cast<int>(length)) {
        return _fail(E_FAIL);
    }
    m_nRunBytes += length;
    return S_OK;
}

HRESULT VELQStreamCipher::_finish(Run direction, unsigned char* data, ULONG length) {
    const bool tagged = isTaggedFinalLength(length);
    const bool legacy = direction == Run::Decrypt && isBlockLength(length);
    if (!tagged && !legacy) {
        return _fail(E_INVALIDARG);
    }
    const ULONG body = tagged ? length - static_cast<ULONG>(kTagBytes) : length;
    unsigned char* tag = data + body;
    if (plat::FAILED(_update(data, body))) {
        return E_FAIL;
    }
    HRESULT result = S_OK;
    int produced = 0;
    if (direction == Run::Encrypt) {
        if (EVP_EncryptFinal_ex(m_pCtx, tag, &produced) != 1 ||
            EVP_CIPHER_CTX_ctrl(m_pCtx, EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagBytes), tag) != 1) {
            result = E_FAIL;
        }
    } else if (tagged) {
        if (EVP_CIPHER_CTX_ctrl(m_pCtx, EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagBytes), tag) != 1 ||
            EVP_DecryptFinal_ex(m_pCtx, tag, &produced) != 1) {
            result = E_AUTHENTICATION;
        }
        std::memset(tag, 0, kTagBytes);
    }
    endRun();
    return result;
}
