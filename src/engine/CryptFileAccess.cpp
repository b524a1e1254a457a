// The file access of a VELQCryptFile: opening a source (and choosing the small or the big way), naming
// the destination, asking before an existing file is replaced, creating the destination with its
// attributes and length, and deleting what has to go.
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/handle.h"
#include "plat/named.h"
#include "plat/paths.h"
#include "plat/ui.h"
#include "ui/ResourceHelper.h"

namespace {

// A file of at least this size goes the big way (mapped views in blocks of sixteen granularities).
constexpr std::int64_t kBigFileThreshold = 0xA00000;
constexpr plat::UINT kTextReplaceExisting = 1053;
constexpr plat::UINT kCaptionInformation = 1017;
constexpr plat::UINT kReplaceQuestionFlags = plat::MB_OKCANCEL | plat::MB_ICONQUESTION | plat::MB_TOPMOST;

// "VQE2" as the identity header's first field holds it (file order, little-endian).
constexpr plat::DWORD kEncryptIdCurrent = 0x32455156;

void logFailure(const DbgLogSite& site, int nResult) {
    dbgLogPrint(site, u"Error Code: 0x%x", static_cast<unsigned>(nResult));
}

#define VELQ_LOG_FAILURE(tag, code)                                                                \
    do {                                                                                           \
        static constexpr DbgLogSite failureSite_{VELQ_LOG_WIDEN(__FILE__), __LINE__, tag, u"", 0}; \
        logFailure(failureSite_, code);                                                            \
    } while (0)

// The big-file test, in signed 64 bits: an encrypted file first loses what the big layout adds, so a
// file shorter than that counts as small instead of wrapping around.
bool isBigFile(const FileInfo& info, plat::DWORD dwAllocationGranularity) {
    std::int64_t nDataSize = static_cast<std::int64_t>(info.m_nFileSize);
    if (info.m_bEncrypted) {
        nDataSize -= static_cast<std::int64_t>(dwAllocationGranularity) + 16;
    }
    return nDataSize >= kBigFileThreshold;
}

// The data area's length for `nPlainBytes`: rounded up to 32, plus 16 for the tag of the final call.
std::uint64_t dataAreaLength(std::uint64_t nPlainBytes) {
    return ((nPlainBytes + 31) & ~std::uint64_t{31}) + 16;
}

// Removes a file that this pass created, at once. The last error of the failure that led here is kept, so
// the caller can still report it.
void removeCreatedFile(FileRemover& remover, const std::u16string& path, plat::DWORD dwAttributes) {
    const plat::DWORD dwError = plat::GetLastError();
    remover.remove(path, dwAttributes, std::nullopt);
    plat::SetLastError(dwError);
}

// The stored name up to its first NUL (at most the field's 260 units).
std::u16string storedName(const DestFileHeader& header) {
    const std::u16string_view field(header.m_szFileName, std::size(header.m_szFileName));
    return std::u16string(field.substr(0, field.find(u'\0')));
}

bool isNameTaken(plat::DWORD dwError) {
    return dwError == plat::ERROR_FILE_EXISTS || dwError == plat::ERROR_ALREADY_EXISTS;
}

plat::HANDLE createDestination(const std::u16string& path, plat::DWORD dwDisposition,
                               plat::DWORD dwAttributes) {
    return plat::CreateFileW(path.c_str(), plat::GENERIC_READ | plat::GENERIC_WRITE, 0, nullptr,
                             dwDisposition, dwAttributes, nullptr);
}

// Whether a file of `path` exists, once a file of that name waiting for its deletion is gone.
bool destinationTaken(FileRemover& remover, const std::u16string& path) {
    return plat::PathFileExistsW(path.c_str()) &&
           (!remover.waitForPending() || plat::PathFileExistsW(path.c_str()));
}

plat::HANDLE openSourcePath(const FileInfo& info) {
    return plat::CreateFileW(info.m_szFilePath.c_str(), plat::GENERIC_READ, 0, nullptr, plat::OPEN_EXISTING,
                             plat::FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Opens the record's source. Inside a batch its identity is kept for its deletion, and a file that still
// waits for its deletion is opened again once the deletions are done: the open answers as if every
// deletion had been done at once (FileRemover.h). A verification opens the file its encryption has just
// created, which no file waiting for deletion can be (that one still holds its identity), and never
// deletes it: it needs neither.
plat::HANDLE openSource(FileRemover& remover, FileInfo& info) {
    plat::HANDLE hFile = openSourcePath(info);
    info.m_sourceIdentity.reset();
    if (hFile == plat::INVALID_HANDLE_VALUE || !remover.inBatch() || info.m_nCryptMode == CRYPT_MODE_VERIFY) {
        return hFile;
    }
    std::optional<FileRemover::Identity> identity = FileRemover::identityOf(hFile);
    if (identity.has_value() && remover.isPending(*identity)) {
        plat::CloseHandle(hFile);
        remover.waitForPending();
        hFile = openSourcePath(info);
        identity = FileRemover::identityOf(hFile);
    }
    info.m_sourceIdentity = identity;
    return hFile;
}

}  // namespace

int VELQCryptFile::_openFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_openFile", u" (_openFile)");
    if (lpFileInfos == nullptr) {
        VELQ_LOG_FAILURE(u" (_openFile)", CRYPT_E_GENERAL);
        return CRYPT_E_GENERAL;
    }
    plat::HANDLE hFile = openSource(m_fileRemover, *lpFileInfos);
    if (hFile == plat::INVALID_HANDLE_VALUE) {
        const int nError = static_cast<int>(plat::GetLastError());
        VELQ_LOG_FAILURE(u" (_openFile)", nError);
        return nError;
    }

    // An encryption's source has no identity header to read: its data pass sets the fields anew. Any other
    // file may be encrypted, or a plain file in a decrypt batch that its headers must refuse.
    if (lpFileInfos->m_nCryptMode != CRYPT_MODE_ENCRYPT) {
        _readIdentityHeader(hFile);
    }
    if (m_identityHeader.encryptId == kEncryptIdCurrent && lpFileInfos->m_bEncrypted &&
        m_crc32Key != m_identityHeader.crc32Key) {
        plat::CloseHandle(hFile);
        VELQ_LOG_FAILURE(u" (_openFile)", CRYPT_E_INVALID_KEY);
        return CRYPT_E_INVALID_KEY;
    }

    lpFileInfos->m_bOpened = plat::TRUE;
    lpFileInfos->m_hFile = hFile;
    lpFileInfos->m_dwFileAttributes = plat::GetFileAttributesW(lpFileInfos->m_szFilePath.c_str());
    lpFileInfos->m_sDestFileInfo.m_DestFileHeader.m_dwAttributes = lpFileInfos->m_dwFileAttributes;

    plat::DWORD dwSizeHigh = 0;
    const plat::DWORD dwSizeLow = plat::GetFileSize(hFile, &dwSizeHigh);
    lpFileInfos->m_nFileSize = (std::uint64_t{dwSizeHigh} << 32) | dwSizeLow;
    VELQ_LOG(DBG_LEVEL_TRC, u" (_openFile)", u"%s = %llu", u"lpFileInfos->m_nFileSize",
             static_cast<unsigned long long>(lpFileInfos->m_nFileSize));

    if (!isBigFile(*lpFileInfos, m_dwAllocationGranularity)) {
        lpFileInfos->m_bBigFile = plat::FALSE;
        return CRYPT_S_OK;
    }
    lpFileInfos->m_bBigFile = plat::TRUE;
    lpFileInfos->m_hMapFile = plat::CreateFileMappingW(hFile, nullptr, plat::PAGE_READONLY, 0, 0, nullptr);
    lpFileInfos->m_bOpened = lpFileInfos->m_hMapFile != nullptr ? plat::TRUE : plat::FALSE;
    if (lpFileInfos->m_hMapFile == nullptr) {
        const int nError = static_cast<int>(plat::GetLastError());
        plat::CloseHandle(hFile);
        lpFileInfos->m_hFile = plat::INVALID_HANDLE_VALUE;
        VELQ_LOG_FAILURE(u" (_openFile)", nError);
        return nError;
    }
    return CRYPT_S_OK;
}

int VELQCryptFile::_getDestFilePath(FileInfo* lpFileInfos, plat::BOOL bEncrypt) {
    if (lpFileInfos == nullptr) {
        return plat::E_INVALIDARG;
    }
    // An encrypted file never reaches an encryption (_initData keeps it out); its path stays as it is.
    if (bEncrypt && lpFileInfos->m_bEncrypted) {
        return 1;
    }
    std::u16string& destPath = lpFileInfos->m_sDestFileInfo.m_szDestFilePath;
    if (bEncrypt) {
        destPath += CRYPT_FILE_EXTENSION;
    } else {
        // The stored name wins over the name the encrypted file has now. The folder is what comes before
        // the file's own name as this system splits a path: at a backslash or a slash on Windows, at a
        // slash alone on POSIX, where a backslash belongs to the name.
        destPath.erase(
            static_cast<std::size_t>(plat::PathFindFileNameW(destPath.c_str()) - destPath.c_str()));
        const DestFileHeader& header = lpFileInfos->m_sDestFileInfo.m_DestFileHeader;
        destPath += storedName(header);
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (_getDestFilePath)", u"%s = %s", u"m_szDestFilePath", destPath.c_str());
    return CRYPT_S_OK;
}

plat::BOOL VELQCryptFile::_replaceDestFile(FileInfo* lpFileInfos, plat::BOOL bUnattended) {
    if (lpFileInfos == nullptr) {
        return plat::FALSE;
    }
    const std::u16string& destPath = lpFileInfos->m_sDestFileInfo.m_szDestFilePath;
    if (bUnattended || !destinationTaken(m_fileRemover, destPath)) {
        return plat::TRUE;
    }
    const std::u16string text = destPath + u"\n" + loadResString(kTextReplaceExisting);
    const std::u16string caption = loadResString(kCaptionInformation);
    const int answer =
        plat::MessageBoxW(m_progressDialog.getWindow(), text.c_str(), caption.c_str(), kReplaceQuestionFlags);
    if (answer == plat::IDCANCEL) {
        lpFileInfos->m_bProceed = plat::FALSE;
        return plat::FALSE;
    }
    // The person may have pressed Cancel in the progress dialog while the question stood.
    return m_progressDialog.hasUserCancelled() ? plat::FALSE : plat::TRUE;
}

int VELQCryptFile::_createFile(FileInfo* lpFileInfos, plat::BOOL bUnattended) {
    VELQ_TRACE(u"VELQCryptFile::_createFile", u" (_createFile)");
    if (lpFileInfos == nullptr) {
        VELQ_LOG_FAILURE(u" (_createFile)", CRYPT_E_GENERAL);
        return CRYPT_E_GENERAL;
    }
    // A refusal is no failure here: the caller sees m_bDestOpened false and m_bProceed false.
    if (!_replaceDestFile(lpFileInfos, bUnattended)) {
        return CRYPT_S_OK;
    }
    DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    // An encryption and a verification never overwrite anything: their destination is created only if
    // nothing of its name exists, in the same step (no window between a test and the creation).
    const plat::DWORD dwAttributes =
        bUnattended ? plat::FILE_ATTRIBUTE_READONLY : dest.m_DestFileHeader.m_dwAttributes;
    const plat::DWORD dwDisposition = bUnattended ? plat::CREATE_NEW : plat::CREATE_ALWAYS;
    plat::HANDLE hDestFile = createDestination(dest.m_szDestFilePath, dwDisposition, dwAttributes);
    // The name may be taken by a file that waits for its deletion (FileRemover.h).
    if (hDestFile == plat::INVALID_HANDLE_VALUE && isNameTaken(plat::GetLastError()) &&
        m_fileRemover.waitForPending()) {
        hDestFile = createDestination(dest.m_szDestFilePath, dwDisposition, dwAttributes);
    }
    if (hDestFile == plat::INVALID_HANDLE_VALUE) {
        const plat::DWORD dwError = plat::GetLastError();
        const int nError = bUnattended && isNameTaken(dwError) ? CRYPT_E_WRITE : static_cast<int>(dwError);
        VELQ_LOG_FAILURE(u" (_createFile)", nError);
        return nError;
    }
    dest.m_hDestFile = hDestFile;
    dest.m_bDestOpened = plat::TRUE;
    dest.m_dwDestFileAttributes = dwAttributes;
    if (!lpFileInfos->m_bBigFile) {
        return CRYPT_S_OK;
    }

    // An encryption knows the finished file's exact length. A verification, whose m_nFileSize is that of
    // the encrypted file, takes the same sum: a little more than the plain data needs, never less.
    plat::LARGE_INTEGER liDistanceToMove{};
    const std::uint64_t nLength = bUnattended
                                      ? m_dwAllocationGranularity + dataAreaLength(lpFileInfos->m_nFileSize)
                                      : dest.m_DestFileHeader.m_nDataLength;
    liDistanceToMove.QuadPart = static_cast<plat::LONGLONG>(nLength);
    VELQ_LOG(DBG_LEVEL_TRC, u" (_createFile)", u"%s = %lld", u"liDistanceToMove.QuadPart",
             static_cast<long long>(liDistanceToMove.QuadPart));
    plat::SetFilePointerEx(hDestFile, liDistanceToMove, nullptr, plat::FILE_BEGIN);
    plat::SetEndOfFile(hDestFile);

    plat::HANDLE hOutMapFile = plat::CreateFileMappingW(hDestFile, nullptr, plat::PAGE_READWRITE,
                                                        static_cast<plat::DWORD>(nLength >> 32),
                                                        static_cast<plat::DWORD>(nLength), nullptr);
    if (hOutMapFile == nullptr) {
        // A destination without its mapping would stay behind as an existing file that the next pass
        // refuses (-4), read-only after an encryption: it goes again at once, and the error stays.
        const int nError = static_cast<int>(plat::GetLastError());
        plat::CloseHandle(hDestFile);
        dest.m_hDestFile = plat::INVALID_HANDLE_VALUE;
        dest.m_bDestOpened = plat::FALSE;
        removeCreatedFile(m_fileRemover, dest.m_szDestFilePath, dwAttributes);
        VELQ_LOG_FAILURE(u" (_createFile)", nError);
        return nError;
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (_createFile)", u"%s = %p", u"hOutMapFile", static_cast<void*>(hOutMapFile));
    dest.m_hDestMapFile = hOutMapFile;
    return CRYPT_S_OK;
}

void VELQCryptFile::_deleteFiles(FileInfo* lpFileInfos, plat::BOOL bSource) {
    if (lpFileInfos == nullptr) {
        return;
    }
    // A destination is known by its open handle; a source by the identity its opening kept (its handle
    // may be closed already). Either may then be deleted beside the batch's next file.
    const std::optional<FileRemover::Identity> identity =
        bSource                   ? lpFileInfos->m_sourceIdentity
        : m_fileRemover.inBatch() ? FileRemover::identityOf(lpFileInfos->m_sDestFileInfo.m_hDestFile)
                                  : std::nullopt;
    // Whichever side goes, the record's files are closed first: their locks would not stop the deletion
    // here, but a file must never be written after it is gone.
    _closeFileHandles(lpFileInfos);
    const std::u16string& path =
        bSource ? lpFileInfos->m_szFilePath : lpFileInfos->m_sDestFileInfo.m_szDestFilePath;
    const plat::DWORD dwAttributes =
        bSource ? lpFileInfos->m_dwFileAttributes : lpFileInfos->m_sDestFileInfo.m_dwDestFileAttributes;
    m_fileRemover.remove(path, dwAttributes, identity);
}
