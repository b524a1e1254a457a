// AES-256-GCM of the seam (Crypto.h) over intel-ipsec-mb (Debian's libipsec-mb-dev), on x86-64 Linux
// builds where the library is found. It picks the fastest code for the processor it runs on (AVX-512
// with VAES and VPCLMULQDQ where present) and gives the bytes of any AES-256-GCM: measured on this project's
// machines, 100 µs per MiB against 230-260 µs for OpenSSL 3.0's, which does not use those instructions.
// A file's data pass spends most of its time in this cipher.
#include <intel-ipsec-mb.h>

#include <algorithm>
#include <new>
#include <vector>

#include "common/crypto/Crypto.h"

namespace velqcrypto {
namespace {

// The library's manager: the table of functions chosen for this processor, made once and only read after.
class Manager {
public:
    Manager() : m_pManager(alloc_mb_mgr(0)) {
        if (m_pManager != nullptr) {
            IMB_ARCH arch = IMB_ARCH_NONE;
            init_mb_mgr_auto(m_pManager, &arch);
            if (imb_get_errno(m_pManager) != 0) {
                free_mb_mgr(m_pManager);
                m_pManager = nullptr;
            }
        }
    }
    ~Manager() {
        if (m_pManager != nullptr) {
            free_mb_mgr(m_pManager);
        }
    }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    IMB_MGR* get() const { return m_pManager; }

private:
    IMB_MGR* m_pManager;
};

IMB_MGR* manager() {
    static const Manager s_manager;
    return s_manager.get();
}

}  // namespace

struct AesGcm::State {
    enum class Phase { None, Started, Running };

    alignas(64) gcm_key_data key;  // the expanded key and the hash key's powers: secret
    alignas(64) gcm_context_data context;
    IMB_MGR* manager = nullptr;
    Direction direction = Direction::Encrypt;
    Phase phase = Phase::None;
    unsigned char nonce[kGcmNonceBytes] = {};
    // The library takes a run's additional data in one piece at its start: it is gathered until the run's
    // first bytes.
    std::vector<unsigned char> aad;

    // Whether a run of direction `wanted` is open, started in the library once its additional data is whole.
    bool open(Direction wanted) {
        if (phase == Phase::None || direction != wanted) {
            return false;
        }
        if (phase == Phase::Started) {
            IMB_AES256_GCM_INIT_VAR_IV(manager, &key, &context, nonce, kGcmNonceBytes, aad.data(),
                                       aad.size());
            phase = Phase::Running;
        }
        return true;
    }

    void end() {
        wipe(&key, sizeof(key));
        wipe(&context, sizeof(context));
        aad.clear();
        phase = Phase::None;
    }
};

AesGcm::AesGcm() : m_pState(nullptr) {
    if (manager() != nullptr) {
        m_pState = new (std::nothrow) State{};
        if (m_pState != nullptr) {
            m_pState->manager = manager();
        }
    }
}

AesGcm::~AesGcm() {
    if (m_pState != nullptr) {
        m_pState->end();
        delete m_pState;
    }
}

bool AesGcm::start(Direction direction, const unsigned char* key, const unsigned char* nonce) {
    if (m_pState == nullptr) {
        return false;
    }
    m_pState->end();
    IMB_AES256_GCM_PRE(m_pState->manager, key, &m_pState->key);
    std::copy(nonce, nonce + kGcmNonceBytes, m_pState->nonce);
    m_pState->direction = direction;
    m_pState->phase = State::Phase::Started;
    return true;
}

bool AesGcm::authenticate(const unsigned char* data, std::size_t size) {
    if (m_pState == nullptr || m_pState->phase != State::Phase::Started) {
        return false;
    }
    m_pState->aad.insert(m_pState->aad.end(), data, data + size);
    return true;
}

bool AesGcm::update(const unsigned char* in, unsigned char* out, std::size_t size) {
    if (m_pState == nullptr || !m_pState->open(m_pState->direction)) {
        return false;
    }
    if (size == 0) {
        return true;  // with no bytes, maybe no buffers either
    }
    if (in == nullptr || out == nullptr) {
        m_pState->end();
        return false;
    }
    if (m_pState->direction == Direction::Encrypt) {
        IMB_AES256_GCM_ENC_UPDATE(m_pState->manager, &m_pState->key, &m_pState->context, out, in, size);
    } else {
        IMB_AES256_GCM_DEC_UPDATE(m_pState->manager, &m_pState->key, &m_pState->context, out, in, size);
    }
    return true;
}

bool AesGcm::finishEncrypt(unsigned char (&tag)[kGcmTagBytes]) {
    if (m_pState == nullptr) {
        return false;
    }
    const bool ok = m_pState->open(Direction::Encrypt);
    if (ok) {
        IMB_AES256_GCM_ENC_FINALIZE(m_pState->manager, &m_pState->key, &m_pState->context, tag, kGcmTagBytes);
    }
    m_pState->end();
    return ok;
}

bool AesGcm::finishDecrypt(const unsigned char (&tag)[kGcmTagBytes]) {
    if (m_pState == nullptr) {
        return false;
    }
    unsigned char computed[kGcmTagBytes] = {};
    bool ok = m_pState->open(Direction::Decrypt);
    if (ok) {
        IMB_AES256_GCM_DEC_FINALIZE(m_pState->manager, &m_pState->key, &m_pState->context, computed,
                                    kGcmTagBytes);
        ok = equalConstantTime(computed, tag, kGcmTagBytes);
    }
    m_pState->end();
    wipe(computed, sizeof(computed));
    return ok;
}

}  // namespace velqcrypto
