// AES-256-GCM of the seam (Crypto.h) over OpenSSL 3's EVP interface: the cipher of builds without
// intel-ipsec-mb (GcmIpsecMb.cpp).
#include <openssl/evp.h>

#include <cstring>

#include "common/crypto/Crypto.h"

namespace velqcrypto {
namespace {

// EVP calls take int lengths: longer inputs go through in pieces of this size.
constexpr std::size_t kMaxPiece = std::size_t{1} << 30;

}  // namespace

struct AesGcm::State {
    EVP_CIPHER_CTX* ctx;
    Direction direction;
};

AesGcm::AesGcm() : m_pState(nullptr) {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    if (ctx != nullptr) {
        m_pState = new State{ctx, Direction::Encrypt};
    }
}

AesGcm::~AesGcm() {
    if (m_pState != nullptr) {
        EVP_CIPHER_CTX_free(m_pState->ctx);  // cleanses the expanded key schedule too
        delete m_pState;
    }
}

bool AesGcm::start(Direction direction, const unsigned char* key, const unsigned char* nonce) {
    if (m_pState == nullptr) {
        return false;
    }
    EVP_CIPHER_CTX_reset(m_pState->ctx);
    m_pState->direction = direction;
    return direction == Direction::Encrypt
               ? EVP_EncryptInit_ex(m_pState->ctx, EVP_aes_256_gcm(), nullptr, key, nonce) == 1
               : EVP_DecryptInit_ex(m_pState->ctx, EVP_aes_256_gcm(), nullptr, key, nonce) == 1;
}

bool AesGcm::authenticate(const unsigned char* data, std::size_t size) {
    return update(data, nullptr, size);  // EVP takes additional data as an update without output
}

bool AesGcm::update(const unsigned char* in, unsigned char* out, std::size_t size) {
    if (m_pState == nullptr) {
        return false;
    }
    while (size > 0) {
        const int piece = static_cast<int>(size < kMaxPiece ? size : kMaxPiece);
        int produced = 0;
        const int ok = m_pState->direction == Direction::Encrypt
                           ? EVP_EncryptUpdate(m_pState->ctx, out, &produced, in, piece)
                           : EVP_DecryptUpdate(m_pState->ctx, out, &produced, in, piece);
        // GCM is a stream mode: OpenSSL gives every byte back at once.
        if (ok != 1 || (out != nullptr && produced != piece)) {
            EVP_CIPHER_CTX_reset(m_pState->ctx);
            return false;
        }
        in += piece;
        out = out == nullptr ? nullptr : out + piece;
        size -= static_cast<std::size_t>(piece);
    }
    return true;
}

bool AesGcm::finishEncrypt(unsigned char (&tag)[kGcmTagBytes]) {
    int produced = 0;
    const bool ok =
        m_pState != nullptr && m_pState->direction == Direction::Encrypt &&
        EVP_EncryptFinal_ex(m_pState->ctx, tag, &produced) == 1 &&
        EVP_CIPHER_CTX_ctrl(m_pState->ctx, EVP_CTRL_GCM_GET_TAG, static_cast<int>(kGcmTagBytes), tag) == 1;
    if (m_pState != nullptr) {
        EVP_CIPHER_CTX_reset(m_pState->ctx);
    }
    return ok;
}

bool AesGcm::finishDecrypt(const unsigned char (&tag)[kGcmTagBytes]) {
    unsigned char copy[kGcmTagBytes];  // the tag call takes a non-const buffer
    std::memcpy(copy, tag, sizeof(copy));
    int produced = 0;
    const bool ok =
        m_pState != nullptr && m_pState->direction == Direction::Decrypt &&
        EVP_CIPHER_CTX_ctrl(m_pState->ctx, EVP_CTRL_GCM_SET_TAG, static_cast<int>(kGcmTagBytes), copy) == 1 &&
        EVP_DecryptFinal_ex(m_pState->ctx, copy, &produced) == 1;
    if (m_pState != nullptr) {
        EVP_CIPHER_CTX_reset(m_pState->ctx);
    }
    return ok;
}

}  // namespace velqcrypto
