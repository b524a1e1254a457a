// The cipher of the crypt engine: one object serves a batch, enciphering each file in place as one
// authenticated run (AES-256-GCM, see common/StreamCipher.h for the run's call pattern, where the nonce
// and the tag live, and the run's size limit of 64 GiB).
//
// Results are HRESULTs in a `long`: 0 on success; E_INVALIDARG (0x80070057) for a call that breaks the
// call pattern (the open run ends); 0x800700DF for a run beyond the size limit; 0x80090005 when the final
// decryptStream finds a tag that does not match (changed data or another key); E_FAIL when the crypto library
// fails.
#pragma once

#include "common/StreamCipher.h"
#include "common/VELQKey.h"

class VELQCrypt {
public:
    // Copies the key's bytes: `key` may be freed right after. `result` is 0, or E_FAIL when no cipher
    // context could be made (every call then fails).
    VELQCrypt(VELQKey& key, long& result);
    ~VELQCrypt() = default;
    VELQCrypt(const VELQCrypt&) = delete;
    VELQCrypt& operator=(const VELQCrypt&) = delete;

    // Transforms `length` bytes at `data` in place; `final` 1 on a file's last call. Lengths beyond
    // 4 GiB - 1 are refused like any other length outside the pattern.
    long encryptStream(unsigned char* data, unsigned long length, int final);
    long decryptStream(unsigned char* data, unsigned long length, int final);
    // A call with `final` 0 after the header, reading `source` and writing `data` (the same bytes, or
    // bytes apart): a block read in one view and written in another needs no copy first.
    long encryptStream(const unsigned char* source, unsigned char* data, unsigned long length);
    long decryptStream(const unsigned char* source, unsigned char* data, unsigned long length);

    // Ends an open run of either direction (after a failed file); harmless without one. Always 0.
    long endCryptProcess(bool bEncrypt);

    // A new random key of the process owner; see VELQKey::createKey.
    static long createVELQKey(VELQKey** ppKey);

private:
    long _transform(bool bEncrypt, const unsigned char* source, unsigned char* data, unsigned long length,
                    int final);

    VELQStreamCipher m_cipher;
};
