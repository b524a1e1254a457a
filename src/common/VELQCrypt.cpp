#include "common/VELQCrypt.h"

#include <limits>

VELQCrypt::VELQCrypt(VELQKey& key, long& result) : m_cipher(key.m_key) {
    result = m_cipher.isReady() ? plat::S_OK : plat::E_FAIL;
}

long VELQCrypt::encryptStream(unsigned char* data, unsigned long length, int final) {
    return _transform(true, data, data, length, final);
}

long VELQCrypt::decryptStream(unsigned char* data, unsigned long length, int final) {
    return _transform(false, data, data, length, final);
}

long VELQCrypt::encryptStream(const unsigned char* source, unsigned char* data, unsigned long length) {
    return _transform(true, source, data, length, 0);
}

long VELQCrypt::decryptStream(const unsigned char* source, unsigned char* data, unsigned long length) {
    return _transform(false, source, data, length, 0);
}

long VELQCrypt::_transform(bool bEncrypt, const unsigned char* source, unsigned char* data,
                           unsigned long length, int final) {
    if (length > std::numeric_limits<plat::ULONG>::max()) {
        m_cipher.endRun();
        return plat::E_INVALIDARG;
    }
    const plat::ULONG size = static_cast<plat::ULONG>(length);
    if (source != data) {
        return bEncrypt ? m_cipher.encrypt(source, data, size) : m_cipher.decrypt(source, data, size);
    }
    return bEncrypt ? m_cipher.encrypt(data, size, final) : m_cipher.decrypt(data, size, final);
}

long VELQCrypt::endCryptProcess(bool /*bEncrypt*/) {
    m_cipher.endRun();
    return plat::S_OK;
}

long VELQCrypt::createVELQKey(VELQKey** ppKey) {
    return VELQKey::createKey(ppKey);
}
