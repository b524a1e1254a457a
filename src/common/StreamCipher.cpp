#include "common/StreamCipher.h"

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
    : m_key{}, m_gcm(), m_run(Run::None), m_nRunBytes(0) {
    std::memcpy(m_key, key, kKeyBytes);
}

VELQStreamCipher::~VELQStreamCipher() {
    velqcrypto::wipe(m_key, sizeof(m_key));  // m_gcm wipes the expanded key schedule itself
}

HRESULT VELQStreamCipher::encrypt(unsigned char* data, ULONG length, int final) {
    return _transform(Run::Encrypt, data, length, final);
}

HRESULT VELQStreamCipher::decrypt(unsigned char* data, ULONG length, int final) {
    return _transform(Run::Decrypt, data, length, final);
}

HRESULT VELQStreamCipher::encrypt(const unsigned char* source, unsigned char* data, ULONG length) {
    return _block(Run::Encrypt, source, data, length);
}

HRESULT VELQStreamCipher::decrypt(const unsigned char* source, unsigned char* data, ULONG length) {
    return _block(Run::Decrypt, source, data, length);
}

void VELQStreamCipher::endRun() {
    // The next run starts the cipher afresh; what the abandoned one held is overwritten then.
    m_run = Run::None;
    m_nRunBytes = 0;
}

HRESULT VELQStreamCipher::_fail(HRESULT result) {
    endRun();
    return result;
}

HRESULT VELQStreamCipher::_transform(Run direction, unsigned char* data, ULONG length, int final) {
    if (!m_gcm.isReady()) {
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
    if (final == 0) {
        return _block(direction, data, data, length);
    }
    if (m_run != direction) {
        return _fail(E_INVALIDARG);
    }
    if (m_nRunBytes + length > kMaxRunBytes) {
        return _fail(plat::HRESULT_FROM_WIN32(223));  // ERROR_FILE_TOO_LARGE
    }
    return _finish(direction, data, length);
}

HRESULT VELQStreamCipher::_block(Run direction, const unsigned char* source, unsigned char* data,
                                 ULONG length) {
    if (!m_gcm.isReady()) {
        return E_FAIL;
    }
    if (source == nullptr || data == nullptr || m_run != direction) {
        return _fail(E_INVALIDARG);
    }
    if (m_nRunBytes + length > kMaxRunBytes) {
        return _fail(plat::HRESULT_FROM_WIN32(223));  // ERROR_FILE_TOO_LARGE
    }
    return isBlockLength(length) ? _update(source, data, length) : _fail(E_INVALIDARG);
}

HRESULT VELQStreamCipher::_openRun(Run direction, unsigned char* header) {
    unsigned char* nonce = header + kHeaderFieldsBytes;
    if (direction == Run::Encrypt && !velqcrypto::randomBytes(nonce, kNonceBytes)) {
        return _fail(E_FAIL);
    }
    const auto gcmDirection = direction == Run::Encrypt ? velqcrypto::AesGcm::Direction::Encrypt
                                                        : velqcrypto::AesGcm::Direction::Decrypt;
    if (!m_gcm.start(gcmDirection, m_key, nonce)) {
        return _fail(E_FAIL);
    }
    m_run = direction;
    m_nRunBytes = kHeaderBytes;
    if (plat::FAILED(_update(header, header, kHeaderFieldsBytes))) {
        return E_FAIL;
    }
    if (direction == Run::Decrypt) {
        std::memset(nonce, 0, kNonceBytes);  // the reader sees the fill as written: zeros
    }
    return S_OK;
}

HRESULT VELQStreamCipher::_update(const unsigned char* source, unsigned char* data, ULONG length) {
    if (!m_gcm.update(source, data, length)) {
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
    if (plat::FAILED(_update(data, data, body))) {
        return E_FAIL;
    }
    HRESULT result = S_OK;
    unsigned char tagCopy[kTagBytes];
    if (direction == Run::Encrypt) {
        if (m_gcm.finishEncrypt(tagCopy)) {
            std::memcpy(tag, tagCopy, kTagBytes);
        } else {
            result = E_FAIL;
        }
    } else if (tagged) {
        std::memcpy(tagCopy, tag, kTagBytes);
        if (!m_gcm.finishDecrypt(tagCopy)) {
            result = E_AUTHENTICATION;
        }
        std::memset(tag, 0, kTagBytes);
    }
    endRun();
    return result;
}
