// The crypt engine: one VELQCryptFile object runs one batch of files in one direction (encrypt or
// decrypt) on the calling thread, with a progress dialog on a thread of its own and an error list on
// another.
//
// The class is told here whole; its operations are defined one source file per concern:
//   CryptBatch.cpp          constructor, destructor, the batch loop, key recovery, closing of handles
//   CryptResultMessage.cpp  the result codes' row texts
//   file format, crypt scene, file access, encrypting and decrypting one file, progress, error list:
//                           each in a source file of its own, added to velq_engine as it lands.
// The batch's deletions, done beside its next file's work, are a class of their own (FileRemover.h).
//
// Results: every operation that gives a result gives a signed 32-bit number, 0 for success. Three kinds
// share it: the engine's own negative codes (CRYPT_E_* below), Win32 error numbers as GetLastError gave
// them (positive), and HRESULTs (negative, 0x8000xxxx or 0x8007xxxx). _buildResultMessage turns any of
// them into the text of an error row.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/FileRemover.h"
#include "plat/types.h"
#include "ui/VELQProgressDialog.h"

class VELQCrypt;
class VELQUserInfo;

// Crypt modes: the argument of beginCryptFiles and the pass of a record (FileInfo::m_nCryptMode).
inline constexpr int CRYPT_MODE_NONE = -1;     // a record that no pass has touched yet
inline constexpr int CRYPT_MODE_ENCRYPT = 0;   // encrypt batch; also the first pass of its files
inline constexpr int CRYPT_MODE_DECRYPT = 1;   // decrypt batch
inline constexpr int CRYPT_MODE_REJECTED = 2;  // refused by beginCryptFiles with CRYPT_E_GENERAL
inline constexpr int CRYPT_MODE_VERIFY = 3;    // second pass of a file in an encrypt batch; never a batch

// The engine's own result codes. There is no -8.
inline constexpr int CRYPT_S_OK = 0;
inline constexpr int CRYPT_E_OPEN_FILE = -1;      // reserved: has a text, no operation gives it
inline constexpr int CRYPT_E_UNKNOWN = -2;        // reserved: has a text, no operation gives it
inline constexpr int CRYPT_E_CANCELED = -3;       // the person canceled, or refused to replace
inline constexpr int CRYPT_E_WRITE = -4;          // the destination could not be written
inline constexpr int CRYPT_E_ENCRYPT = -5;        // enciphering failed, or no buffer for the header
inline constexpr int CRYPT_E_READ = -6;           // ReadFile failed
inline constexpr int CRYPT_E_DECRYPT = -7;        // deciphering failed (also a changed byte)
inline constexpr int CRYPT_E_INVALID_KEY = -9;    // the key is not the file's, or no scene: recovery
inline constexpr int CRYPT_E_INVALID_FILE = -10;  // not a .lqvz file, too short, another owner
inline constexpr int CRYPT_E_GENERAL = -11;       // general failure (null record, no key, no cipher...)
inline constexpr int CRYPT_E_CRC = -100;          // the data's CRC differs from the stored one
inline constexpr int CRYPT_E_VERIFY_CRC = -101;   // the same, in the verification pass of an encryption

// The extension of encrypted files, compared after lower-casing.
inline constexpr char16_t CRYPT_FILE_EXTENSION[] = u".lqvz";

// The header in clear at the start of a current-layout file (the identity area without its fill).
struct IdentityHeader {
    plat::DWORD encryptId;  // "VQE2"; "VELQ" in memory only, for a file of the legacy layout
    plat::DWORD crc32File;  // CRC-32 of the plain data
    plat::DWORD crc32Key;   // VELQKey::getCRC32Value of the key that enciphered the file
};
static_assert(sizeof(IdentityHeader) == 12);

// The enciphered header of a file, as its image lies in memory and in the file (little-endian).
struct DestFileHeader {
    char m_encryptId[4];            // "VQE2"
    plat::WCHAR m_szOwner[260];     // DOMAIN\user of the one who encrypted, NUL-filled
    plat::WCHAR m_szFileName[260];  // last component of the source path, NUL-filled
    plat::DWORD m_dwAttributes;     // attributes of the source
    std::uint64_t m_nDataOffset;    // file offset of the data area
    std::uint64_t m_nDataLength;    // length of the plain data
};
static_assert(sizeof(DestFileHeader) == 1064);

// The destination side of a file in work.
struct DestFileInfo {
    std::u16string m_szDestFilePath;  // the source path until _getDestFilePath turns it
    plat::HANDLE m_hDestFile = plat::INVALID_HANDLE_VALUE;
    plat::HANDLE m_hDestMapFile = nullptr;   // read-write mapping, big files only
    plat::BOOL m_bDestOpened = plat::FALSE;  // the destination was created
    plat::DWORD m_dwDestFileAttributes = 0;  // given at creation, or those of the crypt header
    DestFileHeader m_DestFileHeader{};       // image of the file's crypt header, in clear
};

// One file of a batch. Owned by VELQCryptFile::m_vFileInfos; the verification pass copies a whole record
// (handles and flags taken over) and frees its copy itself.
struct FileInfo {
    std::u16string m_szFilePath;  // path of the source
    plat::HANDLE m_hFile = plat::INVALID_HANDLE_VALUE;
    plat::HANDLE m_hMapFile = nullptr;  // read-only mapping, big files only
    std::uint64_t m_nFileSize = 0;
    plat::DWORD m_dwFileAttributes = 0;
    float m_fPercent = 0.0F;                // percent of the running pass over this file, 0 to 100
    plat::BOOL m_bEncrypted = plat::FALSE;  // the extension, lower-cased, is .lqvz
    plat::BOOL m_bOpened = plat::FALSE;     // source open (and, for a big file, mapped)
    plat::BOOL m_bBigFile = plat::FALSE;    // takes the mapped-view path
    plat::BOOL m_bProceed = plat::TRUE;     // cleared when the person refuses to replace
    DestFileInfo m_sDestFileInfo;
    int m_nCryptMode = CRYPT_MODE_NONE;  // mode of the running pass
    // Kept besides the fields above: the source's identity, taken when a batch opened it, by which its
    // deletion may wait on the batch's remover (FileRemover).
    std::optional<FileRemover::Identity> m_sourceIdentity;
};

// A buffer of the batch, allocated once by the constructor (null and 0 when that failed).
struct CryptBuffer {
    plat::BYTE* m_pData = nullptr;
    plat::DWORD m_dwSize = 0;
};

// Process-wide state beside the object, defined in CryptBatch.cpp.
extern plat::HANDLE g_hProgressReadyEvent;     // exists only during _startProgressBar, else -1
extern plat::HANDLE g_hErrorDialogReadyEvent;  // "VELQCryptEvent": set while the error list takes rows
extern std::u16string g_strEncryptTitle;       // texts 1005 to 1012, loaded by the constructor
extern std::u16string g_strEncryptLine1;
extern std::u16string g_strEncryptLine2;
extern std::u16string g_strEncryptLine3;
extern std::u16string g_strDecryptTitle;
extern std::u16string g_strDecryptLine1;
extern std::u16string g_strDecryptLine2;
extern std::u16string g_strDecryptLine3;
extern std::u16string g_strTotalErrors;  // text 1046 and ": ", formed anew by each error list

class VELQCryptFile {
public:
    // Copies `paths`; `bDeleteSource` deletes each source once its result is proved. Reports nothing:
    // whatever failed here (no owner, no buffer, no error list yet) shows later, per file or per batch.
    VELQCryptFile(const std::vector<std::u16string>& paths, plat::BOOL bDeleteSource);
    // Waits for the error list's thread, so that the object outlives every use of it.
    ~VELQCryptFile();
    VELQCryptFile(const VELQCryptFile&) = delete;
    VELQCryptFile& operator=(const VELQCryptFile&) = delete;

    // Runs the batch: CRYPT_MODE_ENCRYPT or CRYPT_MODE_DECRYPT. 0 when the batch ran, also when files
    // failed (they are rows of the error list); CRYPT_E_GENERAL for mode 2 (before anything happens) and
    // when no usable key could be had. Returns after the last file and, when the error list is showing,
    // after the person has closed it. One call per object.
    int beginCryptFiles(int mode);

private:
    // The engine's unit tests reach the internal operations and fields through this class.
    friend class VELQCryptFileTestAccess;

    // Batch (CryptBatch.cpp).
    int _beginCryptFiles(int mode);
    // Asks whether to recover the key, runs the recovery guide and binds the key again, as long as the
    // key stays invalid (-9) and the person says Yes. 0 when a scene was tried after a recovery (also if
    // it failed otherwise than -9); E_FAIL when the person said No or the recovery failed.
    int _tryRecoveryKey();
    // One record per path, in order; .lqvz paths are left out of an encrypt batch.
    void _initData(int mode);
    // The loop over the records; a failed file never stops it, only a cancel does. Always 0.
    int _processAllFiles(int mode);
    // Closes the record's mappings and files that are set (source, then destination); any number of
    // times; a null record is ignored.
    void _closeFileHandles(FileInfo* lpFileInfos);

    // The text of one error row: the path (cut after 128 characters with "... "), ": ", the message of
    // `nResult`; for 0 the message alone (CryptResultMessage.cpp).
    std::u16string _buildResultMessage(int nResult, const std::u16string& path);
    // The string id of the message of `nResult` (every unknown value gives 1033 "Operation failed!").
    static plat::UINT _resultMessageId(int nResult);

    // File format.
    plat::DWORD _getIdentityHeaderSize();   // 32
    plat::DWORD _getEncryptedHeaderSize();  // 1088
    int _initCryptHeader(FileInfo* lpFileInfos);
    int _writeCryptHeader(FileInfo* lpFileInfos);
    int _writeIdentityHeader(plat::HANDLE hDestFile);
    int _readIdentityHeader(plat::HANDLE hFile);
    int _readCryptHeader(FileInfo* lpFileInfos);
    int _checkCryptHeader(DestFileHeader* pDestFileHeader);

    // Crypt scene: binds the user's key into m_pCrypt and m_crc32Key. 0, -9 or -11.
    int _initCryptScene();

    // File access.
    int _openFile(FileInfo* lpFileInfos);
    int _getDestFilePath(FileInfo* lpFileInfos, plat::BOOL bEncrypt);
    plat::BOOL _replaceDestFile(FileInfo* lpFileInfos, plat::BOOL bUnattended);
    int _createFile(FileInfo* lpFileInfos, plat::BOOL bUnattended);
    void _deleteFiles(FileInfo* lpFileInfos, plat::BOOL bSource);

    // Encrypting one file. With m_pCrypt null the cipher is not touched and the result is -11.
    int _encryptFile(FileInfo* lpFileInfos);
    int _encryptSmallFile(FileInfo* lpFileInfos);
    int _encryptBigFile(FileInfo* lpFileInfos);

    // Decrypting one file. With m_pCrypt null the cipher is not touched and the result is -11.
    int _decryptFile(FileInfo* lpFileInfos);
    int _tryDecyptFile(FileInfo* lpFileInfos);
    int _decryptSmallFile(FileInfo* lpFileInfos);
    int _decryptBigFile(FileInfo* lpFileInfos);
    // GetTempPathW with MAX_PATH units, ends in a separator; asked once per batch (see m_szTempPath).
    std::u16string _getTempPath();
    std::u16string _getFileName(const FileInfo* lpFileInfos);

    // Progress.
    int _startProgressBar(int mode);
    void _stopProgressBar();
    void _updateProgress();
    float _percentSum(plat::DWORD current);
    void _updateFileCountLine(plat::DWORD index, int mode);
    void _initProgressTexts(int mode);
    static unsigned _progressBarThreadProc(void* argument);

    // Error list. The dialog procedure and its parts live with it, outside the class.
    plat::HRESULT _showMessageDialog(const std::u16string& text);
    static unsigned _ThreadProcShowMessage(void* object);
    // IsWindowVisible(m_hErrorDialog). The error list shows and hides its dialog, so it also answers
    // whether the dialog is visible.
    plat::BOOL _isErrorDialogVisible();
    // Returns once the error dialog thread has made its window or has ended (CryptBatch.cpp).
    void _waitForErrorDialogOrItsEnd();

    // Fields, in this order.
    plat::HANDLE m_hProgressThread;
    plat::DWORD m_dwProgressThreadId;
    plat::DWORD m_nCurrentFile;
    plat::BOOL m_bDeleteSource;
    plat::DWORD m_dwAllocationGranularity;
    std::vector<FileInfo*> m_vFileInfos;
    std::vector<std::u16string> m_vFilePaths;
    VELQCrypt* m_pCrypt;
    VELQUserInfo* m_pUserInfo;
    // Written by the error dialog thread, read by the worker: atomic, so that the dialog thread's last
    // write (null at its end) never races with a read.
    std::atomic<plat::HWND> m_hErrorDialog;
    CryptBuffer m_headerBuffer;
    CryptBuffer m_dataBuffer;
    plat::HANDLE m_hErrorDialogThread;
    VELQProgressDialog m_progressDialog;
    IdentityHeader m_identityHeader;
    plat::DWORD m_crc32Key;

    // Kept for the batch, besides the fields above.
    // The private temporary folder of the verification passes. GetTempPathW checks that the folder is this
    // user's own and private, at a cost of two system calls; nobody else can replace such a folder, so
    // once per batch is enough (a 4 KiB file costs about fifty calls in all).
    std::u16string m_szTempPath;
    // The percent last posted to the progress thread: an equal one would only wake it (CryptProgress.cpp).
    static constexpr plat::DWORD kNoPercentPosted = 0xFFFFFFFF;
    plat::DWORD m_dwPostedPercent;
    // The records before m_nSummedFiles, finished, and the sum of their percents (_percentSum).
    plat::DWORD m_nSummedFiles;
    float m_fSummedPercent;
    // Deletes what the batch is done with, beside the next file's work (FileRemover.h). Last, so that it
    // is destroyed first: its thread ends before anything else of the object goes.
    FileRemover m_fileRemover;
};
