// The two headers of a .lqvz file: the plain identity header at offset 0 and the enciphered header
// behind it (or at offset 0 in the legacy layout), filled, written, read and checked.
//
// Both headers are images of their structures in memory; the format is little-endian, and so are the
// machines we build for (asserted below), so an image is its bytes.
#include <bit>
#include <cstddef>
#include <cstring>

#include "common/VELQCrypt.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"
#include "plat/errors.h"
#include "plat/file_mapping.h"
#include "plat/files.h"
#include "plat/handle.h"
#include "plat/paths.h"

static_assert(std::endian::native == std::endian::little, "the .lqvz headers are written as memory images");
static_assert(offsetof(DestFileHeader, m_szOwner) == 4);
static_assert(offsetof(DestFileHeader, m_szFileName) == 524);
static_assert(offsetof(DestFileHeader, m_dwAttributes) == 1044);
static_assert(offsetof(DestFileHeader, m_nDataOffset) == 1048);
static_assert(offsetof(DestFileHeader, m_nDataLength) == 1056);

// Logs "Error Code" at the point of failure and leaves with the code.
#define VELQ_FAIL(tag, code)                                                                    \
    do {                                                                                        \
        const int velqFailure_ = (code);                                                        \
        VELQ_LOG(DBG_LEVEL_ERR, tag, u"Error Code: 0x%x", static_cast<unsigned>(velqFailure_)); \
        return velqFailure_;                                                                    \
    } while (0)

namespace {

constexpr plat::DWORD kHeaderAlignment = 32;
constexpr std::size_t kMaxNameUnits = 260;  // MAX_USER_NAME_LEN and MAX_PATH: a stored text's capacity
constexpr char kEncryptIdCurrent[4] = {'V', 'Q', 'E', '2'};
constexpr char kEncryptIdLegacy[4] = {'V', 'E', 'L', 'Q'};  // in memory only

constexpr plat::DWORD roundUpToHeaderAlignment(std::size_t bytes) {
    return static_cast<plat::DWORD>((bytes + kHeaderAlignment - 1) / kHeaderAlignment * kHeaderAlignment);
}

plat::DWORD idOf(const char (&bytes)[4]) {
    plat::DWORD id = 0;
    std::memcpy(&id, bytes, sizeof(id));
    return id;
}

// The text of a stored field: its units up to the first NUL, at most the field's 260.
std::u16string storedText(const plat::WCHAR (&field)[kMaxNameUnits]) {
    std::size_t length = 0;
    while (length < kMaxNameUnits && field[length] != 0) {
        ++length;
    }
    return std::u16string(field, length);
}

// A name that the reader takes as a file name inside the destination folder, and nothing else.
bool isStorableFileName(const std::u16string& name) {
    return !name.empty() && name.size() < kMaxNameUnits && name != u"." && name != u".." &&
           name.find_first_of(u"/\\") == std::u16string::npos;
}

std::u16string lowered(std::u16string text) {
    plat::CharLowerW(text.data());
    return text;
}

#define VELQ_LOG_IDENTITY_HEADER(tag, header)                                                                \
    VELQ_LOG(DBG_LEVEL_INF, tag, u"Encrypt ID: 0x%8x, CRC File: 0x%8x, CRC Key: 0x%8x.", (header).encryptId, \
             (header).crc32File, (header).crc32Key)

bool seekTo(plat::HANDLE hFile, plat::LONGLONG position) {
    return plat::SetFilePointerEx(hFile, plat::LARGE_INTEGER{position}, nullptr, plat::FILE_BEGIN) != 0;
}

}  // namespace

plat::DWORD VELQCryptFile::_getIdentityHeaderSize() {
    return roundUpToHeaderAlignment(sizeof(IdentityHeader));
}

plat::DWORD VELQCryptFile::_getEncryptedHeaderSize() {
    return roundUpToHeaderAlignment(sizeof(DestFileHeader));
}

int VELQCryptFile::_initCryptHeader(FileInfo* lpFileInfos) {
    static constexpr char16_t kTag[] = u" (_initCryptHeader)";
    VELQ_TRACE(u"VELQCryptFile::_initCryptHeader", kTag);
    if (lpFileInfos == nullptr || m_pUserInfo == nullptr) {
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    DestFileHeader& header = lpFileInfos->m_sDestFileInfo.m_DestFileHeader;
    std::memcpy(header.m_encryptId, kEncryptIdCurrent, sizeof(header.m_encryptId));

    const std::u16string strDomainUserName = m_pUserInfo->getDomainUserName();
    if (strDomainUserName.length() >= kMaxNameUnits) {
        VELQ_LOG(DBG_LEVEL_ERR, kTag, u"ASSERT( %s )", u"strDomainUserName.length() < MAX_USER_NAME_LEN");
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    std::memset(header.m_szOwner, 0, sizeof(header.m_szOwner));
    strDomainUserName.copy(header.m_szOwner, strDomainUserName.length());

    const std::u16string fileName(plat::PathFindFileNameW(lpFileInfos->m_szFilePath.c_str()));
    if (fileName.length() >= kMaxNameUnits) {
        VELQ_LOG(DBG_LEVEL_ERR, kTag, u"ASSERT( %s )", u"fileName.length() < MAX_PATH");
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    // A name that no reader would take back (a "\" in a POSIX name, say) is not encrypted at all, so that
    // no file becomes one that cannot be decrypted.
    if (!isStorableFileName(fileName)) {
        VELQ_LOG(DBG_LEVEL_ERR, kTag, u"ASSERT( %s )", u"isStorableFileName(fileName)");
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    std::memset(header.m_szFileName, 0, sizeof(header.m_szFileName));
    fileName.copy(header.m_szFileName, fileName.length());
    return CRYPT_S_OK;
}

int VELQCryptFile::_writeCryptHeader(FileInfo* lpFileInfos) {
    static constexpr char16_t kTag[] = u" (_writeCryptHeader)";
    VELQ_TRACE(u"VELQCryptFile::_writeCryptHeader", kTag);
    if (lpFileInfos == nullptr || m_pCrypt == nullptr) {
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    const plat::DWORD idSize = _getIdentityHeaderSize();
    const plat::DWORD headerSize = _getEncryptedHeaderSize();
    dest.m_DestFileHeader.m_nDataLength = lpFileInfos->m_nFileSize;
    dest.m_DestFileHeader.m_nDataOffset =
        lpFileInfos->m_bBigFile ? m_dwAllocationGranularity : idSize + headerSize;

    plat::BYTE image[roundUpToHeaderAlignment(sizeof(DestFileHeader))] = {};
    std::memcpy(image, &dest.m_DestFileHeader, sizeof(DestFileHeader));

    if (lpFileInfos->m_bBigFile) {
        void* view = plat::MapViewOfFile(dest.m_hDestMapFile, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0,
                                         0, idSize + headerSize);
        if (view == nullptr) {
            VELQ_FAIL(kTag, static_cast<int>(plat::GetLastError()));
        }
        plat::BYTE* header = static_cast<plat::BYTE*>(view) + idSize;
        std::memcpy(header, image, headerSize);
        const long encrypted = m_pCrypt->encryptStream(header, headerSize, 0);
        plat::UnmapViewOfFile(view);
        // Views of this header do not run under the big paths' guard: an in-page error fails the file.
        if (plat::TakeInPageError()) {
            VELQ_FAIL(kTag, plat::E_IN_PAGE_ERROR);
        }
        if (encrypted < 0) {
            VELQ_FAIL(kTag, CRYPT_E_ENCRYPT);
        }
        return CRYPT_S_OK;
    }

    if (m_headerBuffer.m_pData == nullptr) {
        VELQ_FAIL(kTag, CRYPT_E_ENCRYPT);
    }
    std::memset(m_headerBuffer.m_pData, 0, m_headerBuffer.m_dwSize);
    std::memcpy(m_headerBuffer.m_pData, image, headerSize);
    if (m_pCrypt->encryptStream(m_headerBuffer.m_pData, headerSize, 0) < 0) {
        VELQ_FAIL(kTag, CRYPT_E_ENCRYPT);
    }
    plat::DWORD dwBytesWritten = 0;
    if (!seekTo(dest.m_hDestFile, idSize) ||
        !plat::WriteFile(dest.m_hDestFile, m_headerBuffer.m_pData, headerSize, &dwBytesWritten, nullptr)) {
        VELQ_FAIL(kTag, static_cast<int>(plat::GetLastError()));
    }
    if (dwBytesWritten != headerSize) {
        VELQ_FAIL(kTag, CRYPT_E_ENCRYPT);
    }
    return CRYPT_S_OK;
}

int VELQCryptFile::_writeIdentityHeader(plat::HANDLE hDestFile) {
    static constexpr char16_t kTag[] = u" (_writeIdentityHeader)";
    VELQ_TRACE(u"VELQCryptFile::_writeIdentityHeader", kTag);
    if (!plat::isUsableHandle(hDestFile)) {
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    m_identityHeader.encryptId = idOf(kEncryptIdCurrent);
    m_identityHeader.crc32Key = m_crc32Key;
    VELQ_LOG_IDENTITY_HEADER(kTag, m_identityHeader);

    // The header and the zeros that pad it to its place go in one write.
    plat::BYTE block[roundUpToHeaderAlignment(sizeof(IdentityHeader))] = {};
    std::memcpy(block, &m_identityHeader, sizeof(IdentityHeader));
    plat::DWORD dwBytesWritten = 0;
    if (!seekTo(hDestFile, 0) ||
        !plat::WriteFile(hDestFile, block, _getIdentityHeaderSize(), &dwBytesWritten, nullptr)) {
        VELQ_FAIL(kTag, CRYPT_E_WRITE);
    }
    return CRYPT_S_OK;
}

int VELQCryptFile::_readIdentityHeader(plat::HANDLE hFile) {
    static constexpr char16_t kTag[] = u" (_readIdentityHeader)";
    VELQ_TRACE(u"VELQCryptFile::_readIdentityHeader", kTag);
    if (!plat::isUsableHandle(hFile)) {
        VELQ_FAIL(kTag, plat::E_INVALIDARG);
    }
    IdentityHeader header{};
    plat::DWORD dwBytesRead = 0;
    if (!seekTo(hFile, 0) || !plat::ReadFile(hFile, &header, sizeof(header), &dwBytesRead, nullptr)) {
        const plat::DWORD error = plat::GetLastError();
        VELQ_FAIL(kTag, static_cast<int>(0x80070000U | (error & 0xFFFFU)));
    }
    if (std::memcmp(&header.encryptId, kEncryptIdCurrent, 3) == 0) {
        m_identityHeader = header;
    } else {
        m_identityHeader = IdentityHeader{idOf(kEncryptIdLegacy), 0, 0};
    }
    VELQ_LOG_IDENTITY_HEADER(kTag, m_identityHeader);
    return CRYPT_S_OK;
}

int VELQCryptFile::_readCryptHeader(FileInfo* lpFileInfos) {
    static constexpr char16_t kTag[] = u" (_readCryptHeader)";
    VELQ_TRACE(u"VELQCryptFile::_readCryptHeader", kTag);
    if (lpFileInfos == nullptr || !plat::isUsableHandle(lpFileInfos->m_hFile)) {
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    if (!lpFileInfos->m_bEncrypted) {
        VELQ_FAIL(kTag, CRYPT_E_INVALID_FILE);
    }
    if (m_headerBuffer.m_pData == nullptr || m_pCrypt == nullptr) {
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    const bool legacy = m_identityHeader.encryptId == idOf(kEncryptIdLegacy);
    const plat::DWORD idSize = legacy ? 0 : _getIdentityHeaderSize();
    const plat::DWORD headerSize = _getEncryptedHeaderSize();
    if (static_cast<std::int64_t>(lpFileInfos->m_nFileSize) <
        static_cast<std::int64_t>(idSize) + headerSize) {
        VELQ_FAIL(kTag, CRYPT_E_INVALID_FILE);
    }

    std::memset(m_headerBuffer.m_pData, 0, m_headerBuffer.m_dwSize);
    plat::DWORD dwBytesRead = 0;
    if (!seekTo(lpFileInfos->m_hFile, idSize) ||
        !plat::ReadFile(lpFileInfos->m_hFile, m_headerBuffer.m_pData, headerSize, &dwBytesRead, nullptr)) {
        VELQ_FAIL(kTag, CRYPT_E_READ);
    }
    if (m_pCrypt->decryptStream(m_headerBuffer.m_pData, headerSize, 0) < 0) {
        VELQ_FAIL(kTag, CRYPT_E_DECRYPT);
    }
    DestFileInfo& dest = lpFileInfos->m_sDestFileInfo;
    std::memcpy(&dest.m_DestFileHeader, m_headerBuffer.m_pData, sizeof(DestFileHeader));
    dest.m_dwDestFileAttributes = dest.m_DestFileHeader.m_dwAttributes;
    return CRYPT_S_OK;
}

int VELQCryptFile::_checkCryptHeader(DestFileHeader* pDestFileHeader) {
    static constexpr char16_t kTag[] = u" (_checkCryptHeader)";
    VELQ_TRACE(u"VELQCryptFile::_checkCryptHeader", kTag);
    if (m_pUserInfo == nullptr || pDestFileHeader == nullptr) {
        VELQ_FAIL(kTag, CRYPT_E_GENERAL);
    }
    const std::u16string owner = storedText(pDestFileHeader->m_szOwner);
    const std::u16string currentUser = m_pUserInfo->getDomainUserName();
    VELQ_LOG(DBG_LEVEL_INF, kTag, u"Encrypted file owner: %s, current user: %s.", owner.c_str(),
             currentUser.c_str());
    if (lowered(owner) != lowered(currentUser)) {
        VELQ_FAIL(kTag, CRYPT_E_INVALID_FILE);
    }
    // The stored name becomes the last component of the destination path: it must not leave the folder
    // nor name the folder itself. A field without its NUL holds no name the writer could have stored.
    const std::u16string fileName = storedText(pDestFileHeader->m_szFileName);
    if (!isStorableFileName(fileName)) {
        VELQ_LOG(DBG_LEVEL_ERR, kTag, u"ASSERT( %s )", u"isStorableFileName(m_szFileName)");
        VELQ_FAIL(kTag, CRYPT_E_INVALID_FILE);
    }
    return CRYPT_S_OK;
}
