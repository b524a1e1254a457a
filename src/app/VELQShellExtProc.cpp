#include "app/VELQShellExtProc.h"

#include <algorithm>

#include "app/VELQCryptBatch.h"

#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"
#include "plat/files.h"
#include "plat/foreground.h"
#include "plat/handle.h"
#include "plat/paths.h"
#include "plat/ui.h"
#include "ui/KelMsgBox.h"
#include "ui/ResourceHelper.h"

namespace {

// Message and caption ids of the string table.
constexpr plat::UINT kMsgBackupKeyFailed = 1021;
constexpr plat::UINT kMsgRecoverKeyQuestion = 1023;
constexpr plat::UINT kCaptionInformation = 1017;
constexpr plat::UINT kCaptionError = 1018;

constexpr plat::UINT kMenuEncrypt = 1;
constexpr plat::UINT kMenuDecrypt = 2;
constexpr plat::UINT kMenuSearch = 4;

// Read access to the extended attributes: enough to open the key file without reading it.
constexpr plat::DWORD kFileReadEa = 0x8;

// A folder as the system tells folders apart. The application directory is joined with "/" onto a data
// home the user may write with either separator and in any case, while the walk joins names with the
// system's separator and spells the requested folder as it was given; Windows takes both separators and
// ignores case, so both are evened out there (on POSIX nothing changes).
std::u16string comparableFolder(std::u16string path) {
    std::replace(path.begin(), path.end(), u'/', plat::kPathSeparator);
    if constexpr (plat::kFileNamesIgnoreCase) {
        plat::CharLowerW(path.data());
    }
    return path;
}

}  // namespace

// The failure line of the house style, at the point of failure; a macro so that the site names its caller.
#define LOG_ERROR_CODE(tag, code) \
    VELQ_LOG(DBG_LEVEL_ERR, tag, u"Error Code: 0x%x", static_cast<unsigned>(code))

VELQShellExtProc::VELQShellExtProc(const std::vector<std::u16string>& decryptFiles)
    : m_vDecryptFilePath(decryptFiles), m_uMenuType(kMenuDecrypt), m_bEncrypt(plat::FALSE) {}

VELQShellExtProc::VELQShellExtProc(const std::vector<std::u16string>& encryptFiles,
                                   const std::vector<std::u16string>& decryptFiles, plat::UINT uMenuType)
    : m_vEncryptFilePath(encryptFiles),
      m_vDecryptFilePath(decryptFiles),
      m_uMenuType(uMenuType),
      m_bEncrypt(plat::TRUE) {}

VELQShellExtProc::VELQShellExtProc(const std::vector<std::u16string>& encryptFiles,
                                   const std::vector<std::u16string>& decryptFiles,
                                   const std::vector<std::u16string>& folders,
                                   const std::vector<std::u16string>& legalMedia, const plat::UINT& uMenuType)
    : m_vEncryptFilePath(encryptFiles),
      m_vDecryptFilePath(decryptFiles),
      m_vFolderPath(folders),
      m_vLegalMedia(legalMedia),
      m_uMenuType(uMenuType),
      m_bEncrypt(plat::TRUE) {}

VELQShellExtProc::~VELQShellExtProc() = default;

plat::LONG VELQShellExtProc::run() {
    switch (m_uMenuType) {
        case kMenuEncrypt:
            m_bEncrypt = plat::TRUE;
            return beginEncrypt();
        case kMenuDecrypt:
            m_bEncrypt = plat::FALSE;
            return beginDecrypt();
        case kMenuSearch:
            openSearchDlg();
            return 1;
        default:
            return 1;
    }
}

plat::LONG VELQShellExtProc::findFiles() {
    m_vAllEncryptFilePath.insert(m_vAllEncryptFilePath.end(), m_vEncryptFilePath.begin(),
                                 m_vEncryptFilePath.end());
    m_vAllDecryptFilePath.insert(m_vAllDecryptFilePath.end(), m_vDecryptFilePath.begin(),
                                 m_vDecryptFilePath.end());
    _addExcludeFolder();
    for (const std::u16string& folder : m_vFolderPath) {
        _findFilesInFolder(folder);
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (VELQShellExtProc::findFiles)", u"%s = %d", u"m_vAllEncryptFilePath.size()",
             static_cast<int>(m_vAllEncryptFilePath.size()));
    VELQ_LOG(DBG_LEVEL_TRC, u" (VELQShellExtProc::findFiles)", u"%s = %d", u"m_vAllDecryptFilePath.size()",
             static_cast<int>(m_vAllDecryptFilePath.size()));
    const bool bFound = m_bEncrypt ? !m_vAllEncryptFilePath.empty() : !m_vAllDecryptFilePath.empty();
    return bFound ? 1 : 0;
}

void VELQShellExtProc::_addExcludeFolder() {
    VELQUserInfo* pUser = VELQUserInfoManager::getCurrentProcessOwner();
    if (pUser == nullptr) {
        // Without an owner there is no application directory to keep out; the walk goes on unguarded.
        VELQ_LOG(DBG_LEVEL_WRN, u" (VELQShellExtProc::_addExcludeFolder)",
                 u"No process owner: nothing excluded");
        return;
    }
    const std::u16string folder = getVELQAppUserDirectory(pUser->getUserName(), pUser->getDomain(), u"");
    VELQUserInfoManager::releaseUsers();
    m_vExcludeFolderPath.push_back(folder);
}

plat::LONG VELQShellExtProc::_isExcludeFolder(const std::u16string& path) const {
    const std::u16string spelled = comparableFolder(path);
    for (const std::u16string& excluded : m_vExcludeFolderPath) {
        if (comparableFolder(excluded) == spelled) {
            return 1;
        }
    }
    return 0;
}

plat::LONG VELQShellExtProc::_isEncryptedFile(const std::u16string& path) {
    plat::LPCWSTR extension = plat::PathFindExtensionW(path.c_str());
    std::u16string lowered(extension != nullptr ? extension : u"");
    plat::CharLowerW(lowered.data());
    return lowered == u".lqvz" ? 1 : 0;
}

void VELQShellExtProc::_findFilesInFolder(const std::u16string& folder) {
    if (folder.empty() || _isExcludeFolder(folder)) {
        return;
    }
    const std::u16string pattern = folder + plat::kPathSeparator + u"*.*";
    plat::WIN32_FIND_DATAW data{};
    plat::HANDLE hFind = plat::FindFirstFileW(pattern.c_str(), &data);
    if (hFind == plat::INVALID_HANDLE_VALUE) {
        return;
    }
    do {
        const std::u16string name(data.cFileName);
        if (name == u"." || name == u"..") {
            continue;
        }
        const std::u16string path = folder + plat::kPathSeparator + name;
        if ((data.dwFileAttributes & plat::FILE_ATTRIBUTE_DIRECTORY) != 0) {
            _findFilesInFolder(path);
        } else if (_isEncryptedFile(name)) {
            m_vAllDecryptFilePath.push_back(path);
        } else {
            m_vAllEncryptFilePath.push_back(path);
        }
    } while (plat::FindNextFileW(hFind, &data));
    plat::FindClose(hFind);
}

plat::LONG VELQShellExtProc::isExistKeyFile() {
    VELQUserInfo* pUser = VELQUserInfoManager::getCurrentProcessOwner();
    if (pUser == nullptr) {
        LOG_ERROR_CODE(u" (VELQShellExtProc::isExistKeyFile)", plat::E_FAIL);
        return 0;
    }
    plat::LONG result = 0;
    const std::u16string keyPath = getUserRootKeyFilePath(pUser->getUserName(), pUser->getDomain(), u"");
    if (!keyPath.empty()) {
        plat::HANDLE hFile = plat::CreateFileW(keyPath.c_str(), kFileReadEa, 0, nullptr, plat::OPEN_EXISTING,
                                               plat::FILE_ATTRIBUTE_NORMAL, nullptr);
        if (hFile != plat::INVALID_HANDLE_VALUE) {
            const plat::DWORD size = plat::GetFileSize(hFile, nullptr);
            result = (size != 0 && size != plat::INVALID_FILE_SIZE) ? 1 : 0;
            plat::CloseHandle(hFile);
        }
    }
    VELQUserInfoManager::releaseUsers();
    if (result == 0) {
        LOG_ERROR_CODE(u" (VELQShellExtProc::isExistKeyFile)", plat::E_FAIL);
    }
    return result;
}

int VELQShellExtProc::_askRecoverKey() {
    return kelMsgBox(kMsgRecoverKeyQuestion, kCaptionInformation, plat::MB_YESNO | plat::MB_ICONQUESTION,
                     plat::GetForegroundWindow(), g_hInstance);
}

plat::LONG VELQShellExtProc::beginEncrypt() {
    if (findFiles() == 0) {
        return 0;
    }
    if (isExistKeyFile() == 0) {
        const int answer = _askRecoverKey();
        if (answer == plat::IDYES) {
            if (recoverKeyGuide() == 0) {
                LOG_ERROR_CODE(u" (VELQShellExtProc::beginEncrypt)", plat::E_FAIL);
                return 0;
            }
        } else if (answer == plat::IDNO) {
            const plat::LONG backup = _backupKeyGuide();
            if (backup < 0) {
                kelMsgBox(kMsgBackupKeyFailed, kCaptionError, plat::MB_ICONERROR, plat::GetForegroundWindow(),
                          g_hInstance);
                LOG_ERROR_CODE(u" (VELQShellExtProc::beginEncrypt)", backup);
                return backup;
            }
            if (backup == 1) {
                return 1;
            }
        }
        // Any other answer means the box itself failed: the engine's own key check decides then.
    }
    return _runCryptBatch();
}

plat::LONG VELQShellExtProc::beginDecrypt() {
    if (findFiles() == 0) {
        return 0;
    }
    if (isExistKeyFile() == 0) {
        if (_askRecoverKey() != plat::IDYES || recoverKeyGuide() == 0) {
            LOG_ERROR_CODE(u" (VELQShellExtProc::beginDecrypt)", plat::E_FAIL);
            return 0;
        }
    }
    return _runCryptBatch();
}

plat::LONG VELQShellExtProc::_runCryptBatch() {
    const std::vector<std::u16string>& paths = m_bEncrypt ? m_vAllEncryptFilePath : m_vAllDecryptFilePath;
    const plat::LONG result =
        runCryptBatch(paths, plat::TRUE, m_bEncrypt ? CRYPT_MODE_ENCRYPT : CRYPT_MODE_DECRYPT);
    if (result != 0) {
        LOG_ERROR_CODE(u" (VELQShellExtProc::_runCryptBatch)", result);
        return 0;
    }
    return 1;
}
