// Encrypting one file: the source becomes a .lqvz file beside it, which is proved by decrypting it once
// more (_tryDecyptFile) before the source is deleted. Whatever fails, the source stays and the new file
// goes.
#include <algorithm>
#include <cstring>

#include "common/VELQCrypt.h"
#include "engine/Crc32Table.h"
#include "engine/CryptDataPass.h"
#include "engine/VELQCryptFile.h"
#include "plat/files.h"
#include "plat/handle.h"

namespace {

float percentOf(std::uint64_t nDone, std::uint64_t nTotal) {
    return static_cast<float>(static_cast<double>(nDone) / static_cast<double>(nTotal) * 100.0);
}

bool seekTo(plat::HANDLE hFile, std::uint64_t nOffset) {
    plat::LARGE_INTEGER position{static_cast<plat::LONGLONG>(nOffset)};
    return plat::SetFilePointerEx(hFile, position, nullptr, plat::FILE_BEGIN) != plat::FALSE;
}

// One block of a big file from its source view into its destination view. The last block's view is
// longer than its plain bytes (the padding to 32 and the tag); its rest stays zero (_createFile extended
// the file), and the final call enciphers the bytes in place behind the copy.
long encryptBigBlock(VELQCrypt& crypt, const plat::BYTE* pSource, plat::BYTE* pDest, plat::DWORD dwReadLength,
                     plat::DWORD dwBlockSize, int final) {
    if (final == 0) {
        return crypt.encryptStream(pSource, pDest, dwBlockSize);
    }
    std::memcpy(pDest, pSource, dwReadLength);
    return crypt.encryptStream(pDest, dwBlockSize, final);
}

}  // namespace

int VELQCryptFile::_encryptFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_encryptFile", u" (_encryptFile)");
    if (lpFileInfos == nullptr || m_pCrypt == nullptr) {
        return VELQ_PASS_FAILURE(u" (_encryptFile)", CRYPT_E_GENERAL);
    }
    int nResult = _openFile(lpFileInfos);
    if (nResult != CRYPT_S_OK) {
        return nResult;
    }
    _getDestFilePath(lpFileInfos, plat::TRUE);
    // The destination must not exist; it is made read-only, and a big one gets its length and mapping.
    nResult = _createFile(lpFileInfos, plat::TRUE);
    if (nResult != CRYPT_S_OK) {
        return nResult;
    }

    if (!lpFileInfos->m_bOpened || !lpFileInfos->m_sDestFileInfo.m_bDestOpened) {
        nResult = CRYPT_E_ENCRYPT;
    }
    if (nResult == CRYPT_S_OK) {
        nResult = _initCryptHeader(lpFileInfos);
    }
    if (nResult == CRYPT_S_OK) {
        nResult = _writeCryptHeader(lpFileInfos);
    }
    if (nResult == CRYPT_S_OK) {
        nResult = lpFileInfos->m_bBigFile ? _encryptBigFile(lpFileInfos) : _encryptSmallFile(lpFileInfos);
    }
    if (nResult == CRYPT_S_OK) {
        nResult = _writeIdentityHeader(lpFileInfos->m_sDestFileInfo.m_hDestFile);
    }
    if (nResult == CRYPT_S_OK) {
        _closeFileHandles(lpFileInfos);
        nResult = _tryDecyptFile(lpFileInfos);
    }

    if (nResult == CRYPT_S_OK) {
        // The source goes only now that its encrypted file has been read back whole.
        if (m_bDeleteSource) {
            _deleteFiles(lpFileInfos, plat::TRUE);
        }
        return CRYPT_S_OK;
    }
    if (lpFileInfos->m_sDestFileInfo.m_bDestOpened) {
        _deleteFiles(lpFileInfos, plat::FALSE);
    }
    return VELQ_PASS_FAILURE(u" (_encryptFile)", nResult);
}

int VELQCryptFile::_encryptSmallFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_encryptSmallFile", u" (_encryptSmallFile)");
    if (lpFileInfos == nullptr || m_dataBuffer.m_pData == nullptr || m_pCrypt == nullptr) {
        return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", CRYPT_E_GENERAL);
    }
    const DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    if (!plat::isUsableHandle(lpFileInfos->m_hFile) || !plat::isUsableHandle(dest.m_hDestFile)) {
        return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", static_cast<int>(plat::ERROR_INVALID_HANDLE));
    }
    // A small file lies below 10 MiB: its offset and length fit 32 bits.
    const plat::DWORD dwDataOffset = static_cast<plat::DWORD>(dest.m_DestFileHeader.m_nDataOffset);
    const plat::DWORD dwDataLength = static_cast<plat::DWORD>(dest.m_DestFileHeader.m_nDataLength);
    plat::DWORD dwBlockLength = std::min(dwDataLength, crypt_pass::kSmallBlockSize);
    VELQ_LOG(DBG_LEVEL_INF, u" (_encryptSmallFile)", u"Offset:%d, data length:%d, buffer size:%d.",
             static_cast<int>(dwDataOffset), static_cast<int>(dwDataLength), static_cast<int>(dwBlockLength));
    seekTo(lpFileInfos->m_hFile, 0);
    seekTo(dest.m_hDestFile, dwDataOffset);
    const Crc32Table crcTable;
    m_identityHeader.crc32File = 0;
    plat::BYTE* pBuffer = m_dataBuffer.m_pData;

    if (dwDataLength == 0) {
        std::memset(pBuffer, 0, m_dataBuffer.m_dwSize);
        if (m_pCrypt->encryptStream(pBuffer, crypt_pass::kEmptyDataLength, 1) < 0) {
            return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", CRYPT_E_ENCRYPT);
        }
        plat::DWORD dwBytesWritten = 0;
        if (!plat::WriteFile(dest.m_hDestFile, pBuffer, crypt_pass::kEmptyDataLength, &dwBytesWritten,
                             nullptr)) {
            return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", CRYPT_E_WRITE);
        }
        _updateProgress();
        return CRYPT_S_OK;
    }

    plat::DWORD dwRemaining = dwDataLength;
    std::uint64_t nBytesWrittenTotal = 0;
    while (dwRemaining > 0) {
        if (m_progressDialog.hasUserCancelled()) {
            return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", CRYPT_E_CANCELED);
        }
        int final = 0;
        if (dwRemaining <= dwBlockLength) {
            final = 1;
            dwBlockLength = static_cast<plat::DWORD>(crypt_pass::finalCallLength(dwRemaining));
        }
        // Only the source's own bytes are read: a source that grew since it was opened adds nothing.
        const plat::DWORD dwToRead = std::min(dwRemaining, dwBlockLength);
        plat::DWORD dwBytesRead = 0;
        if (!plat::ReadFile(lpFileInfos->m_hFile, pBuffer, dwToRead, &dwBytesRead, nullptr)) {
            return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", CRYPT_E_READ);
        }
        // A source that another process cut during the pass: what is missing cannot be enciphered, and
        // the loop would never end. It is the in-page error of the big path.
        if (dwBytesRead != dwToRead) {
            return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", plat::E_IN_PAGE_ERROR);
        }
        // The last block's rounding is enciphered zeros; every other byte the cipher takes was just read
        // (zeroing the whole buffer for a file of a few KiB cost more than its cipher).
        std::memset(pBuffer + dwBytesRead, 0, dwBlockLength - dwBytesRead);
        m_identityHeader.crc32File = crcTable.update(~m_identityHeader.crc32File, pBuffer, dwBytesRead);
        if (m_pCrypt->encryptStream(pBuffer, dwBlockLength, final) < 0) {
            return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", CRYPT_E_ENCRYPT);
        }
        plat::DWORD dwBytesWritten = 0;
        if (!plat::WriteFile(dest.m_hDestFile, pBuffer, dwBlockLength, &dwBytesWritten, nullptr)) {
            return VELQ_PASS_FAILURE(u" (_encryptSmallFile)", CRYPT_E_WRITE);
        }
        nBytesWrittenTotal += dwBytesWritten;
        dwRemaining -= dwBytesRead;
        lpFileInfos->m_fPercent = percentOf(dwDataLength - dwRemaining, dwDataLength);
        _updateProgress();
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (_encryptSmallFile)", u"%s = %llu", u"dwBytesWrittenTotal",
             static_cast<unsigned long long>(nBytesWrittenTotal));
    return CRYPT_S_OK;
}

int VELQCryptFile::_encryptBigFile(FileInfo* lpFileInfos) {
    VELQ_TRACE(u"VELQCryptFile::_encryptBigFile", u" (_encryptBigFile)");
    if (lpFileInfos == nullptr || m_pCrypt == nullptr) {
        return VELQ_PASS_FAILURE(u" (_encryptBigFile)", CRYPT_E_GENERAL);
    }
    const DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    if (lpFileInfos->m_hMapFile == nullptr || dest.m_hDestMapFile == nullptr) {
        return VELQ_PASS_FAILURE(u" (_encryptBigFile)", static_cast<int>(plat::ERROR_INVALID_HANDLE));
    }
    plat::DWORD dwBlockSize = m_dwAllocationGranularity * 16;
    VELQ_LOG(DBG_LEVEL_TRC, u" (_encryptBigFile)", u"%s = %u", u"dwBlockSize", dwBlockSize);
    const std::uint64_t nFileSize = lpFileInfos->m_nFileSize;
    std::uint64_t nSourceOffset = 0;
    std::uint64_t dwDestFileOffset = m_dwAllocationGranularity;
    std::uint64_t nRemaining = nFileSize;
    plat::DWORD dwReadLength = dwBlockSize;
    int final = 0;
    const Crc32Table crcTable;
    m_identityHeader.crc32File = 0;
    crypt_pass::startPass();

    while (nRemaining > 0) {
        if (m_progressDialog.hasUserCancelled()) {
            return VELQ_PASS_FAILURE(u" (_encryptBigFile)", CRYPT_E_CANCELED);
        }
        if (nRemaining <= dwBlockSize) {
            final = 1;
            dwReadLength = static_cast<plat::DWORD>(nRemaining);
            dwBlockSize = static_cast<plat::DWORD>(crypt_pass::finalCallLength(nRemaining));
            VELQ_LOG(DBG_LEVEL_TRC, u" (_encryptBigFile)", u"%s = %u", u"dwBlockSize", dwBlockSize);
        }
        crypt_pass::BlockViews views;
        int nResult = CRYPT_S_OK;
        const plat::BYTE* pSource = views.mapSource(lpFileInfos->m_hMapFile, nSourceOffset, dwReadLength);
        plat::BYTE* pDest = nullptr;
        if (pSource == nullptr) {
            nResult = static_cast<int>(plat::ERROR_INVALID_HANDLE);
        } else {
            m_identityHeader.crc32File = crcTable.update(~m_identityHeader.crc32File, pSource, dwReadLength);
            pDest = views.mapDestination(dest.m_hDestMapFile, dwDestFileOffset, dwBlockSize);
            if (pDest == nullptr) {
                nResult = static_cast<int>(plat::ERROR_INVALID_HANDLE);
            } else if (encryptBigBlock(*m_pCrypt, pSource, pDest, dwReadLength, dwBlockSize, final) < 0) {
                nResult = CRYPT_E_ENCRYPT;
            }
        }
        nResult = views.end(nResult);
        if (nResult != CRYPT_S_OK) {
            return VELQ_PASS_FAILURE(u" (_encryptBigFile)", nResult);
        }
        nSourceOffset += dwReadLength;
        dwDestFileOffset += dwBlockSize;
        nRemaining -= dwReadLength;
        lpFileInfos->m_fPercent = percentOf(nSourceOffset, nFileSize);
        _updateProgress();
    }
    return CRYPT_S_OK;
}
