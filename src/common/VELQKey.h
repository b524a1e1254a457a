// The user's key: 256 random bits, the SID of the user it belongs to, and its key file (docs/KEYFILE.md).
//
// A key file holds the key twice: in a password slot, opened by the password given to saveToFile through
// scrypt, and in a local slot, opened by the fixed pass phrase of the crypt scene together with a secret
// of this user on this machine ("machine.secret" in the application directory, made on first need). A
// copy of the file on another machine (a backup) therefore opens only with its password; `import` makes
// such a key this machine's root key file again. Every byte of the file is authenticated.
//
// Results are HRESULTs in a `long`: not negative on success. Compare them with the constants below, not
// with unsigned literals (a `long` holds 0x80040287 as a negative number). Key bytes never reach the log
// and are wiped when the object is destroyed.
#pragma once

#include <array>
#include <string>

#include "common/KeyFileFormat.h"
#include "plat/types.h"

// A wrong password or pass phrase (no slot of the file opens with it).
inline constexpr long VELQ_E_WRONG_PASSPHRASE = static_cast<plat::HRESULT>(0x80040287);
// A file that is not a key file; one that is damaged; a key that belongs to another user.
inline constexpr long VELQ_E_FOREIGN_KEY_FILE = velqkeyfile::E_FOREIGN_FILE;
inline constexpr long VELQ_E_DAMAGED_KEY_FILE = velqkeyfile::E_DAMAGED_FILE;
inline constexpr long VELQ_E_OTHER_USER = static_cast<plat::HRESULT>(0x80070005);
// `import` of a key that has no password slot (made by createVELQKey and never saved).
inline constexpr long VELQ_E_NO_PASSWORD_SLOT = static_cast<plat::HRESULT>(0x8000FFFF);

// The fixed pass phrase with which the crypt scene opens the root key file.
inline constexpr char16_t kVELQRootKeyPassPhrase[] = u"{3F8A1C76-2B4E-4D09-A6E1-7C5D90B2E814}";

class VELQCrypt;

class VELQKey {
public:
    static constexpr std::size_t kKeyBytes = 32;

    // A new key of the process owner from the system's CSPRNG, in `*ppKey` (freed by freeVELQKey).
    // E_POINTER for a null `ppKey`; E_FAIL when no random bytes could be had.
    static long createKey(VELQKey** ppKey);

    // Reads the key file at `path` and opens it with `passPhrase`: the local slot when it is the fixed
    // pass phrase and this machine's secret is the one the file was written with, else the password slot.
    // On success `*ppKey` holds the key; on failure it is null. A key already in `*ppKey` is freed first,
    // so loading again into the same pointer neither leaks nor frees twice. Results: 0;
    // VELQ_E_WRONG_PASSPHRASE; VELQ_E_FOREIGN_KEY_FILE; VELQ_E_DAMAGED_KEY_FILE (also for scrypt
    // parameters beyond the reader's bounds); the errno of a file that cannot be read (0x80070002 for a
    // missing one); E_POINTER for a null `ppKey`.
    static long loadVELQKey(VELQKey** ppKey, const std::u16string& path, const std::u16string& passPhrase);

    // Destroys `*ppKey` (wiping it) and sets it to null; harmless on a null pointer or key.
    static long freeVELQKey(VELQKey** ppKey);

    // Writes this key to `path` (atomically, mode 0600; the folder must exist), its password slot under
    // `passPhrase` with `params` (the default costs about half a second and 64 MiB), its local slot bound
    // to this machine. Results: 0, or the failing file call's errno, or E_FAIL (cryptography).
    long saveToFile(const std::u16string& path, const std::u16string& passPhrase);
    long saveToFile(const std::u16string& path, const std::u16string& passPhrase,
                    const velqkeyfile::ScryptParams& params);

    // Stores this key as this machine's root key file at `path`: the password slot as it was loaded (or
    // last saved), a new local slot for this machine, and the key bound from now on to the user who runs
    // the process. A backup thus comes back for its user on another system, where the same person has
    // another SID (S-1-22-1-<uid> on Linux, the account's SID on Windows). VELQ_E_NO_PASSWORD_SLOT for a
    // key never loaded or saved; E_FAIL when the process's user has no SID; else as saveToFile.
    long import(const std::u16string& path);

    // 0 when the key belongs to the user of SID text `sid`, else VELQ_E_OTHER_USER.
    long checkSID(const std::u16string& sid) const;

    // CRC-32 of the key's 16-byte public id (derived from the key, never the key bytes themselves): the
    // same for the same key in every process, different for different keys but by chance.
    unsigned int getCRC32Value() const;

    ~VELQKey();
    VELQKey(const VELQKey&) = delete;
    VELQKey& operator=(const VELQKey&) = delete;

private:
    friend class VELQCrypt;

    VELQKey(const unsigned char (&key)[kKeyBytes], std::string sid,
            const std::array<unsigned char, velqkeyfile::kKeyIdBytes>& keyId);
    long _write(const std::u16string& path, velqkeyfile::Fields& fields);
    void _keepPasswordKek(const unsigned char (&kek)[kKeyBytes]);

    unsigned char m_key[kKeyBytes];
    std::string m_sid;
    std::array<unsigned char, velqkeyfile::kKeyIdBytes> m_keyId;
    bool m_bHasPasswordSlot;
    velqkeyfile::ScryptParams m_scrypt;
    velqkeyfile::Slot m_passwordSlot;
    // The key-encryption key of the password slot, once the slot was opened or sealed here: import seals
    // the slot anew with it when the key passes to another SID.
    unsigned char m_passwordKek[kKeyBytes];
    bool m_bHasPasswordKek;
};
