// Carries out one request after the roads of the program's entry have passed the guard and the
// fingerprint gate: turns the lists it is given into two flat lists of files (walking folders on the
// way), makes sure the user has a key, and hands the list of the request's direction to the crypt engine.
#pragma once

#include <string>
#include <vector>

#include "plat/types.h"

class VELQShellExtProc {
public:
    // The plain-path road: `decryptFiles` to decrypt, menu type 2.
    explicit VELQShellExtProc(const std::vector<std::u16string>& decryptFiles);
    // The single-file road: the two lists and the menu type read off the command line.
    VELQShellExtProc(const std::vector<std::u16string>& encryptFiles,
                     const std::vector<std::u16string>& decryptFiles, plat::UINT uMenuType);
    // The hand-off road: the four lists of the hand-off and its menu type.
    VELQShellExtProc(const std::vector<std::u16string>& encryptFiles,
                     const std::vector<std::u16string>& decryptFiles,
                     const std::vector<std::u16string>& folders,
                     const std::vector<std::u16string>& legalMedia, const plat::UINT& uMenuType);
    ~VELQShellExtProc();
    VELQShellExtProc(const VELQShellExtProc&) = delete;
    VELQShellExtProc& operator=(const VELQShellExtProc&) = delete;

    // Carries out the menu type: 1 beginEncrypt, 2 beginDecrypt (their result), 4 the search (1), any
    // other value nothing (1). 0 means failure to the roads; anything else needs no further report.
    plat::LONG run();

    // Encrypt (m_bEncrypt set) or decrypt the request's files. 0: nothing to do, no key and none
    // recovered, or the engine's batch did not run. 1: the batch ran (single files may still have failed:
    // they are the engine's rows), or a new key was cancelled at its export dialog. Negative: a new key
    // could not be made (message 1021 has been shown).
    plat::LONG beginEncrypt();
    // As beginEncrypt, but a missing key is only ever recovered, never made anew.
    plat::LONG beginDecrypt();

    // Fills the two flat lists: the files named directly as they stand, then the files of every folder,
    // sorted by extension. 1 when the list of the current direction holds a file, else 0.
    plat::LONG findFiles();

    // 1 when the process owner's root key file exists, can be opened exclusively and is not empty.
    static plat::LONG isExistKeyFile();

    // Brings a key back from a backup: 1 when recovered, 0 otherwise. Called by the engine as well.
    static plat::LONG recoverKeyGuide();
    // Makes a first key and its backup: 0 done, 1 cancelled by the user, negative on failure.
    plat::LONG _backupKeyGuide();
    // Opens the search for encrypted files in the request's folders and media. Reports nothing.
    void openSearchDlg();

    // The flat lists, for those who need to know what a request will process.
    const std::vector<std::u16string>& allEncryptFilePaths() const { return m_vAllEncryptFilePath; }
    const std::vector<std::u16string>& allDecryptFilePaths() const { return m_vAllDecryptFilePath; }
    // Sets the direction as run() does, for a caller that drives findFiles itself.
    void setEncrypt(plat::BOOL bEncrypt) { m_bEncrypt = bEncrypt; }

    // 1 when the extension of `path` (from its last dot) is ".lqvz" in any case.
    static plat::LONG _isEncryptedFile(const std::u16string& path);
    // 1 when `path` spells an excluded folder as the system compares names: exactly on POSIX; on Windows
    // with "/" and "\" as one separator and case ignored.
    plat::LONG _isExcludeFolder(const std::u16string& path) const;
    // Excludes the process owner's application directory from every walk (its key files are no request's).
    void _addExcludeFolder();

private:
    // Walks `folder` and everything below it, sorting each file into one of the two flat lists.
    void _findFilesInFolder(const std::u16string& folder);
    // Asks whether to recover the missing key (message 1023): the button pressed, 0 when no box came up.
    static int _askRecoverKey();
    // Runs the engine's batch over the list of the current direction: 1 when it ran, else 0.
    plat::LONG _runCryptBatch();

    std::vector<std::u16string> m_vEncryptFilePath;
    std::vector<std::u16string> m_vDecryptFilePath;
    std::vector<std::u16string> m_vFolderPath;
    std::vector<std::u16string> m_vLegalMedia;
    std::vector<std::u16string> m_vAllEncryptFilePath;
    std::vector<std::u16string> m_vAllDecryptFilePath;
    std::vector<std::u16string> m_vExcludeFolderPath;
    plat::UINT m_uMenuType;
    plat::BOOL m_bEncrypt;
};
