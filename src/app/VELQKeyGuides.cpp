// The key guides of VELQShellExtProc: a first key with its password-protected backup, and the recovery of
// a lost or invalid key from such a backup. Each guide holds a named mutex for its whole run, so that a
// second process that needs the same guide fails at once instead of showing a second dialog.
#include <algorithm>

#include "app/VELQShellExtProc.h"
#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQKeyTransfer.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/foreground.h"
#include "plat/handle.h"
#include "plat/named.h"
#include "plat/ui.h"
#include "ui/KelMsgBox.h"
#include "ui/ResourceHelper.h"

namespace {

constexpr plat::UINT kMsgNewKeyBackup = 1020;
constexpr plat::UINT kMsgRecoverKeyFailed = 1022;
constexpr plat::UINT kMsgLoadKeyFailed = 1051;
constexpr plat::UINT kMsgInvalidPassword = 1066;
constexpr plat::UINT kCaptionInformation = 1017;
constexpr plat::UINT kCaptionError = 1018;

constexpr plat::WCHAR kBackupMutexName[] = u"Backup_Key_Mutex";
constexpr plat::WCHAR kRecoverMutexName[] = u"Recover_Key_Mutex";

// The export dialog's arguments: default extension, the filter (name and pattern, two NULs at the end),
// password field width, password hidden, password length 1 to 50.
constexpr plat::WCHAR kKeyExtension[] = u"key";
constexpr plat::WCHAR kKeyFilter[] = u"Key File(*.key)\0*.key\0";  // the literal adds the second NUL
constexpr int kExportFieldChars = 23;
constexpr unsigned kMinPassword = 1;
constexpr unsigned kMaxPassword = 50;

constexpr plat::HRESULT kResultUnset = static_cast<plat::HRESULT>(0x8000FFFF);

// Creates the guide's mutex: S_OK with the handle, E_POINTER without one, E_FAIL when another process
// runs the guide (the name existed). The handle of an existing name is closed again at once.
plat::HRESULT takeGuideMutex(const plat::WCHAR* name, plat::HANDLE& hMutex) {
    hMutex = plat::CreateMutexW(nullptr, plat::FALSE, name);
    if (hMutex == nullptr) {
        return plat::E_POINTER;
    }
    if (plat::GetLastError() == plat::ERROR_ALREADY_EXISTS) {
        plat::CloseHandle(hMutex);
        hMutex = nullptr;
        return plat::E_FAIL;
    }
    return plat::S_OK;
}

plat::HRESULT saveNewKey(VELQKey& key, const std::u16string& exportPath, const std::u16string& password) {
    VELQUserInfo* pUser = VELQUserInfoManager::getCurrentProcessOwner();
    if (pUser == nullptr) {
        return plat::E_POINTER;
    }
    const std::u16string rootKeyPath = getUserRootKeyFilePath(pUser->getUserName(), pUser->getDomain(), u"");
    if (rootKeyPath.empty()) {
        return plat::E_FAIL;
    }
    const plat::HRESULT hr = key.saveToFile(rootKeyPath, password);
    if (hr < 0) {
        return hr;
    }
    if (!plat::CopyFileW(rootKeyPath.c_str(), exportPath.c_str(), plat::FALSE)) {
        // Without its backup the new key would be lost with its file: the next encrypt starts again.
        plat::DeleteFileW(rootKeyPath.c_str());
        return plat::E_FAIL;
    }
    return plat::S_OK;
}

// Steps 4 to 13 of the backup: the dialog, a new key, saved as the root key file and copied to the
// chosen place. 1 when the person cancelled.
plat::HRESULT runBackup(PasswordExportDlg& dialog, MODAL_RESULT& modalResult, VELQKey*& pKey) {
    plat::HRESULT hr = dialog.showModal(plat::GetForegroundWindow(), &modalResult);
    if (hr < 0) {
        return hr;
    }
    if (modalResult != MODAL_OK) {
        return 1;  // cancelled: no key is made
    }
    const std::u16string exportPath = dialog.getExportFilePath();
    std::u16string password = dialog.getPassword();
    createVELQAppUserDirectory();
    hr = VELQCrypt::createVELQKey(&pKey);
    if (hr >= 0) {
        hr = saveNewKey(*pKey, exportPath, password);
    }
    std::fill(password.begin(), password.end(), u'\0');
    return hr;
}

// Steps 3 to 6 of the recovery: the dialog again and again until a backup loads and is installed, or
// the person gives up (E_FAIL) or the dialog fails (its code).
plat::HRESULT runRecovery(PasswordImportDlg& dialog, VELQKey*& pKey) {
    createVELQAppUserDirectory();
    VELQUserInfo* pUser = VELQUserInfoManager::getCurrentProcessOwner();
    if (pUser == nullptr) {
        return plat::E_POINTER;
    }
    const std::u16string rootKeyPath = getUserRootKeyFilePath(pUser->getUserName(), pUser->getDomain(), u"");
    MODAL_RESULT modalResult = MODAL_CANCEL;
    std::u16string importPath;
    for (;;) {
        dialog.setImportFilePath(importPath);
        const plat::HRESULT hr = dialog.showModal(plat::GetForegroundWindow(), &modalResult);
        if (hr < 0) {
            return hr;
        }
        if (modalResult != MODAL_OK) {
            return plat::E_FAIL;
        }
        importPath = dialog.getImportFilePath();
        std::u16string password = dialog.getPassword();
        const long loaded = VELQKey::loadVELQKey(&pKey, importPath, password);
        std::fill(password.begin(), password.end(), u'\0');
        if (loaded < 0) {
            const plat::UINT textId =
                loaded == VELQ_E_WRONG_PASSPHRASE ? kMsgInvalidPassword : kMsgLoadKeyFailed;
            kelMsgBox(textId, kCaptionError, plat::MB_ICONERROR, plat::GetForegroundWindow(), g_hInstance);
            continue;
        }
        if (pKey->import(rootKeyPath) < 0) {
            kelMsgBox(kMsgRecoverKeyFailed, kCaptionError, plat::MB_ICONERROR, nullptr, g_hInstance);
            continue;
        }
        return plat::S_OK;
    }
}

}  // namespace

#define LOG_ERROR_CODE(tag, code) \
    VELQ_LOG(DBG_LEVEL_ERR, tag, u"Error Code: 0x%x", static_cast<unsigned>(code))

plat::LONG VELQShellExtProc::_backupKeyGuide() {
    PasswordExportDlg dialog(kKeyExtension, kKeyFilter, kExportFieldChars, false, kMinPassword, kMaxPassword);
    plat::HRESULT result = kResultUnset;
    MODAL_RESULT modalResult = MODAL_CANCEL;
    VELQKey* pKey = nullptr;
    plat::HANDLE hMutex = nullptr;

    result = takeGuideMutex(kBackupMutexName, hMutex);
    if (result == plat::S_OK) {
        kelMsgBox(kMsgNewKeyBackup, kCaptionInformation, plat::MB_ICONINFORMATION,
                  plat::GetForegroundWindow(), g_hInstance);
        result = runBackup(dialog, modalResult, pKey);
    }
    if (result < 0) {
        LOG_ERROR_CODE(u" (VELQShellExtProc::_backupKeyGuide)", result);
    }
    VELQKey::freeVELQKey(&pKey);
    VELQUserInfoManager::releaseUsers();
    if (hMutex != nullptr) {
        plat::CloseHandle(hMutex);
    }
    return result;
}

plat::LONG VELQShellExtProc::recoverKeyGuide() {
    VELQ_TRACE(u"recoverKeyGuide", u" (VELQShellExtProc::recoverKeyGuide)");
    plat::HRESULT result = kResultUnset;
    VELQKey* pKey = nullptr;
    PasswordImportDlg dialog(false, nullptr, 0);
    plat::HANDLE hMutex = nullptr;

    result = takeGuideMutex(kRecoverMutexName, hMutex);
    if (result == plat::S_OK) {
        result = runRecovery(dialog, pKey);
    }
    if (result < 0) {
        LOG_ERROR_CODE(u" (VELQShellExtProc::recoverKeyGuide)", result);
    }
    VELQUserInfoManager::releaseUsers();
    // One free for the key of the last attempt: each load replaced the one before (loadVELQKey frees it).
    VELQKey::freeVELQKey(&pKey);
    if (hMutex != nullptr) {
        plat::CloseHandle(hMutex);
    }
    return result >= 0 ? 1 : 0;
}
