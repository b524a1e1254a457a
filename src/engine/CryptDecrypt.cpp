// Decrypting one file: a .lqvz file comes back under its stored name and attributes, then goes; and the
// same work as the proof of a new .lqvz file, into the private temporary folder (_tryDecyptFile).
#include <algorithm>
#include <cstring>
#include <new>

#include "common/VELQCrypt.h"
#include "engine/Crc32Table.h"
#include "engine/CryptDataPass.h"
#include "engine/VELQCryptFile.h"
#include "plat/files.h"
#include "plat/handle.h"
#include "plat/paths.h"

namespace {

// "VELQ": the in-memory tag of a file of the legacy layout (its final call may carry no tag).
constexpr plat::DWORD kEncryptIdLegacy = 0x514C4556;

float percentOf(std::uint64_t nDone, std::uint64_t nTotal) {
    return static_cast<float>(static_cast<double>(nDone) / static_cast<double>(nTotal) * 100.0);
}

// The length that the last block's cipher call takes for `nRemaining` plain bytes.
std::uint64_t lastReadLength(std::uint64_t nRemaining, bool bLegacy) {
    return bLegacy ? crypt_pass::legacyFinalCallLength(nRemaining) : crypt_pass::finalCallLength(nRemaining);
}

bool seekTo(plat::HANDLE hFile, std::uint64_t nOffset) {
    plat::LARGE_INTEGER position{static_cast<plat::LONGLONG>(nOffset)};
    return plat::SetFilePointerEx(hFile, position, nullptr, plat::FILE_BEGIN) != plat::FALSE;
}

// One block of a big file: deciphered in the destination view, or, for the last block, whose
// destination view is shorter than its cipher call, through a buffer of its own.
int decryptBigBlock(VELQCrypt& crypt, const plat::BYTE* pSource, plat::BYTE* pDest, plat::DWORD dwBlockSize,
                    plat::DWORD dwWriteLength, int final) {
    if (final == 0) {
        return crypt.decryptStream(pSource, pDest, dwBlockSize) < 0 ? CRYPT_E_DECRYPT : CRYPT_S_OK;
    }
    plat::BYTE* pBuffer = new (std::nothrow) plat::BYTE[dwBlockSize + 1]();
    if (pBuffer == nullptr) {
        return static_cast<int>(plat::ERROR_INVALID_HANDLE);
    }
    std::memcpy(pBuffer, pSource, dwBlockSize);
    int nResult = CRYPT_S_OK;
    if (crypt.decryptStream(pBuffer, dwBlockSize, 1) < 0) {
        nResult = CRYPT_E_DECRYPT;
    } else {
        std::memcpy(pDest, pBuffer, dwWriteLength);
    }
    delete[] pBuffer;
    return nResult;
}

// The proof of the data: the CRC of the plain bytes against the one the writer stored. A file of the
// legacy layout stores none.
int checkDataCrc(std::uint32_t crc32AfterDecrypt, const IdentityHeader& identityHeader, bool bLegacy) {
    VELQ_LOG(DBG_LEVEL_TRC, u" (checkDataCrc)", u"%s = 0x%x", u"crc32AfterDecrypt", crc32AfterDecrypt);
    if (!bLegacy && identityHeader.crc32File != crc32AfterDecrypt) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (checkDataCrc)", u"ASSERT( %s )",
                 u"m_identityHeader.crc32File == crc32AfterDecrypt");
        return CRYPT_E_CRC;
    }
    return CRYPT_S_OK;
}

}  // namespace

int VELQCryptFile::_decryptFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_decryptFile", u" (_decryptFile)");
    if (lpFileInfos == nullptr || m_pCrypt == nullptr) {
        return VELQ_PASS_FAILURE(u" (_decryptFile)", CRYPT_E_GENERAL);
    }
    int nResult = _openFile(lpFileInfos);
    if (nResult == CRYPT_S_OK) {
        nResult = _readCryptHeader(lpFileInfos);
    }
    if (nResult == CRYPT_S_OK) {
        nResult = _checkCryptHeader(&lpFileInfos->m_sDestFileInfo.m_DestFileHeader);
    }
    if (nResult != CRYPT_S_OK) {
        return nResult;  // nothing created
    }
    _getDestFilePath(lpFileInfos, plat::FALSE);

    // A verification asks nothing, never overwrites and leaves its copy read-only; a plain decryption
    // asks before it replaces a file and gives the stored attributes back.
    const bool bVerify = lpFileInfos->m_nCryptMode == CRYPT_MODE_VERIFY;
    nResult = _createFile(lpFileInfos, bVerify ? plat::TRUE : plat::FALSE);
    if (nResult != CRYPT_S_OK) {
        return nResult;
    }
    DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    if (!lpFileInfos->m_bOpened || !dest.m_bDestOpened) {
        nResult = CRYPT_E_GENERAL;  // also the refused replacement: the cancel test below names it
    } else {
        nResult = lpFileInfos->m_bBigFile ? _decryptBigFile(lpFileInfos) : _decryptSmallFile(lpFileInfos);
    }

    if (nResult == CRYPT_S_OK) {
        if (bVerify) {
            _deleteFiles(lpFileInfos, plat::FALSE);  // the plain copy lives only as long as the proof
        } else if (m_bDeleteSource) {
            _deleteFiles(lpFileInfos, plat::TRUE);
        }
        return CRYPT_S_OK;
    }
    // Only a destination made by this pass goes; one the person refused to replace stays untouched.
    if (dest.m_bDestOpened) {
        _deleteFiles(lpFileInfos, plat::FALSE);
    }
    if (m_progressDialog.hasUserCancelled() || !lpFileInfos->m_bProceed) {
        nResult = CRYPT_E_CANCELED;
    }
    return VELQ_PASS_FAILURE(u" (_decryptFile)", nResult);
}

int VELQCryptFile::_tryDecyptFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_tryDecyptFile", u" (_tryDecyptFile)");
    if (lpFileInfos == nullptr) {
        return VELQ_PASS_FAILURE(u" (_tryDecyptFile)", CRYPT_E_GENERAL);
    }
    lpFileInfos->m_nCryptMode = CRYPT_MODE_VERIFY;
    // Without the private folder the copy would land in the working folder: the proof fails instead.
    const std::u16string tempPath = _getTempPath();
    if (tempPath.empty()) {
        return VELQ_PASS_FAILURE(u" (_tryDecyptFile)", static_cast<int>(plat::GetLastError()));
    }
    FileInfo* pCopy = new (std::nothrow) FileInfo(*lpFileInfos);
    if (pCopy == nullptr) {
        return VELQ_PASS_FAILURE(u" (_tryDecyptFile)", CRYPT_E_GENERAL);
    }
    pCopy->m_szFilePath = lpFileInfos->m_sDestFileInfo.m_szDestFilePath;
    pCopy->m_bEncrypted = plat::TRUE;
    pCopy->m_bOpened = plat::FALSE;
    pCopy->m_sDestFileInfo.m_bDestOpened = plat::FALSE;  // nothing of this pass exists yet
    pCopy->m_sDestFileInfo.m_szDestFilePath = tempPath + _getFileName(pCopy);

    int nResult = _decryptFile(pCopy);
    if (nResult == CRYPT_E_CRC) {
        nResult = CRYPT_E_VERIFY_CRC;
    }
    _closeFileHandles(pCopy);  // a pass that failed before its destination leaves the .lqvz file open
    delete pCopy;
    return nResult;
}

std::u16string VELQCryptFile::_getTempPath() {
    if (m_szTempPath.empty()) {
        plat::WCHAR szTempPath[plat::MAX_PATH] = {};
        const plat::DWORD dwLength = plat::GetTempPathW(plat::MAX_PATH, szTempPath);
        if (dwLength != 0 && dwLength < plat::MAX_PATH) {
            m_szTempPath.assign(szTempPath, dwLength);
        }
    }
    return m_szTempPath;
}

std::u16string VELQCryptFile::_getFileName(const FileInfo* lpFileInfos) {
    if (lpFileInfos == nullptr) {
        return std::u16string();
    }
    return std::u16string(plat::PathFindFileNameW(lpFileInfos->m_szFilePath.c_str()));
}

int VELQCryptFile::_decryptSmallFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_decryptSmallFile", u" (_decryptSmallFile)");
    if (lpFileInfos == nullptr || m_dataBuffer.m_pData == nullptr || m_pCrypt == nullptr) {
        return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_GENERAL);
    }
    const DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    if (!plat::isUsableHandle(lpFileInfos->m_hFile) || !plat::isUsableHandle(dest.m_hDestFile)) {
        return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", static_cast<int>(plat::ERROR_INVALID_HANDLE));
    }
    const plat::DWORD dwDataLength = static_cast<plat::DWORD>(dest.m_DestFileHeader.m_nDataLength);
    plat::DWORD dwReadLength = std::min(dwDataLength, crypt_pass::kSmallBlockSize);
    plat::DWORD dwWriteLength = dwReadLength;
    seekTo(lpFileInfos->m_hFile, dest.m_DestFileHeader.m_nDataOffset);
    seekTo(dest.m_hDestFile, 0);
    const Crc32Table crcTable;
    FileInfo* pCurrent = m_nCurrentFile < m_vFileInfos.size() ? m_vFileInfos[m_nCurrentFile] : nullptr;
    plat::BYTE* pBuffer = m_dataBuffer.m_pData;

    if (dwDataLength == 0) {
        std::memset(pBuffer, 0, m_dataBuffer.m_dwSize);
        plat::DWORD dwBytesRead = 0;
        if (!plat::ReadFile(lpFileInfos->m_hFile, pBuffer, crypt_pass::kEmptyDataLength, &dwBytesRead,
                            nullptr)) {
            return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_READ);
        }
        if (m_pCrypt->decryptStream(pBuffer, crypt_pass::kEmptyDataLength, 1) < 0) {
            return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_DECRYPT);
        }
        lpFileInfos->m_fPercent = 100.0F;
        if (pCurrent != nullptr) {
            pCurrent->m_fPercent = 100.0F;
        }
        _updateProgress();
        return CRYPT_S_OK;
    }

    const bool bLegacy = m_identityHeader.encryptId == kEncryptIdLegacy;
    std::uint32_t crc32AfterDecrypt = 0;
    plat::DWORD dwRemaining = dwDataLength;
    // Every byte the cipher takes is read whole into the buffer first (a short read fails the pass), so
    // the buffer needs no zeroing between blocks.
    while (dwRemaining > 0) {
        if (m_progressDialog.hasUserCancelled()) {
            return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_CANCELED);
        }
        int final = 0;
        if (dwRemaining <= dwReadLength) {
            final = 1;
            dwWriteLength = dwRemaining;
            dwReadLength = static_cast<plat::DWORD>(lastReadLength(dwRemaining, bLegacy));
        }
        plat::DWORD dwBytesRead = 0;
        if (!plat::ReadFile(lpFileInfos->m_hFile, pBuffer, dwReadLength, &dwBytesRead, nullptr)) {
            return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_READ);
        }
        // A file that ends before its header's length is cut: what would follow is no data of it.
        if (dwBytesRead != dwReadLength) {
            return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_DECRYPT);
        }
        if (m_pCrypt->decryptStream(pBuffer, dwReadLength, final) < 0) {
            return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_DECRYPT);
        }
        plat::DWORD dwBytesWritten = 0;
        if (!plat::WriteFile(dest.m_hDestFile, pBuffer, dwWriteLength, &dwBytesWritten, nullptr)) {
            return VELQ_PASS_FAILURE(u" (_decryptSmallFile)", CRYPT_E_WRITE);
        }
        crc32AfterDecrypt = crcTable.update(~crc32AfterDecrypt, pBuffer, dwBytesWritten);
        dwRemaining -= dwBytesWritten;
        lpFileInfos->m_fPercent = percentOf(dwDataLength - dwRemaining, dwDataLength);
        if (pCurrent != nullptr) {
            pCurrent->m_fPercent = lpFileInfos->m_fPercent;
        }
        _updateProgress();
    }
    return checkDataCrc(crc32AfterDecrypt, m_identityHeader, bLegacy);
}

int VELQCryptFile::_decryptBigFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_decryptBigFile", u" (_decryptBigFile)");
    if (lpFileInfos == nullptr || m_pCrypt == nullptr) {
        return VELQ_PASS_FAILURE(u" (_decryptBigFile)", CRYPT_E_GENERAL);
    }
    const DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    if (lpFileInfos->m_hMapFile == nullptr || dest.m_hDestMapFile == nullptr) {
        return VELQ_PASS_FAILURE(u" (_decryptBigFile)", static_cast<int>(plat::ERROR_INVALID_HANDLE));
    }
    plat::DWORD dwBlockSize = m_dwAllocationGranularity * 16;
    VELQ_LOG(DBG_LEVEL_TRC, u" (_decryptBigFile)", u"%s = %u", u"dwBlockSize", dwBlockSize);
    const std::uint64_t nDataLength = dest.m_DestFileHeader.m_nDataLength;
    std::uint64_t nSourceOffset = dest.m_DestFileHeader.m_nDataOffset;
    std::uint64_t nDestOffset = 0;
    std::uint64_t nRemaining = nDataLength;
    plat::DWORD dwWriteLength = dwBlockSize;
    int final = 0;
    VELQ_LOG(DBG_LEVEL_INF, u" (_decryptBigFile)", u"Offset: %lld, length: %lld.",
             static_cast<long long>(nSourceOffset), static_cast<long long>(nDataLength));
    const Crc32Table crcTable;
    FileInfo* pCurrent = m_nCurrentFile < m_vFileInfos.size() ? m_vFileInfos[m_nCurrentFile] : nullptr;
    const bool bLegacy = m_identityHeader.encryptId == kEncryptIdLegacy;
    std::uint32_t crc32AfterDecrypt = 0;
    crypt_pass::startPass();

    while (nRemaining > 0) {
        if (m_progressDialog.hasUserCancelled()) {
            return VELQ_PASS_FAILURE(u" (_decryptBigFile)", CRYPT_E_CANCELED);
        }
        if (nRemaining <= dwBlockSize) {
            final = 1;
            dwWriteLength = static_cast<plat::DWORD>(nRemaining);
            dwBlockSize = static_cast<plat::DWORD>(lastReadLength(nRemaining, bLegacy));
            VELQ_LOG(DBG_LEVEL_TRC, u" (_decryptBigFile)", u"%s = %u", u"dwBlockSize", dwBlockSize);
        }
        crypt_pass::BlockViews views;
        int nResult = CRYPT_S_OK;
        const plat::BYTE* pSource = views.mapSource(lpFileInfos->m_hMapFile, nSourceOffset, dwBlockSize);
        plat::BYTE* pDest = nullptr;
        if (pSource == nullptr) {
            nResult = static_cast<int>(plat::GetLastError());
        } else if ((pDest = views.mapDestination(dest.m_hDestMapFile, nDestOffset, dwWriteLength)) ==
                   nullptr) {
            nResult = static_cast<int>(plat::ERROR_INVALID_HANDLE);
        } else {
            nResult = decryptBigBlock(*m_pCrypt, pSource, pDest, dwBlockSize, dwWriteLength, final);
        }
        if (nResult == CRYPT_S_OK) {
            crc32AfterDecrypt = crcTable.update(~crc32AfterDecrypt, pDest, dwWriteLength);
        }
        nResult = views.end(nResult);
        if (nResult != CRYPT_S_OK) {
            return VELQ_PASS_FAILURE(u" (_decryptBigFile)", nResult);
        }
        nSourceOffset += dwBlockSize;
        nDestOffset += dwWriteLength;
        nRemaining -= dwWriteLength;
        lpFileInfos->m_fPercent = percentOf(nDataLength - nRemaining, nDataLength);
        if (pCurrent != nullptr) {
            pCurrent->m_fPercent = lpFileInfos->m_fPercent;
        }
        _updateProgress();
    }
    return checkDataCrc(crc32AfterDecrypt, m_identityHeader, bLegacy);
}
