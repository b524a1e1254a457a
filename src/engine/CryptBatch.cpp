// The batch of a VELQCryptFile: its life (constructor, destructor), the flow of one batch, the loop over
// the files, the recovery of an invalid key and the closing of a record's handles.
#include <new>

#include "app/VELQShellExtProc.h"
#include "common/VELQCrypt.h"
#include "common/VELQUserInfo.h"
#include "common/crypto/Crypto.h"
#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"
#include "plat/foreground.h"
#include "plat/handle.h"
#include "plat/messages.h"
#include "plat/paths.h"
#include "plat/sync.h"
#include "plat/sysinfo.h"
#include "plat/threads.h"
#include "plat/ui.h"
#include "plat/windows.h"
#include "ui/KelMsgBox.h"
#include "ui/ResourceHelper.h"

plat::HANDLE g_hProgressReadyEvent = plat::INVALID_HANDLE_VALUE;
plat::HANDLE g_hErrorDialogReadyEvent = nullptr;
std::u16string g_strEncryptTitle;
std::u16string g_strEncryptLine1;
std::u16string g_strEncryptLine2;
std::u16string g_strEncryptLine3;
std::u16string g_strDecryptTitle;
std::u16string g_strDecryptLine1;
std::u16string g_strDecryptLine2;
std::u16string g_strDecryptLine3;
std::u16string g_strTotalErrors;

namespace {

constexpr plat::DWORD kDataBufferSize = 0x10030;  // one block of 65,536 and the 48 of a final call
constexpr plat::UINT kTextKeyInvalidRecover = 1052;
constexpr plat::UINT kCaptionInformation = 1017;
constexpr plat::UINT kRecoverQuestionFlags = plat::MB_YESNO | plat::MB_ICONQUESTION | plat::MB_TOPMOST;

void allocateBuffer(CryptBuffer& buffer, plat::DWORD size, bool zeroed) {
    buffer.m_pData = zeroed ? new (std::nothrow) plat::BYTE[size]() : new (std::nothrow) plat::BYTE[size];
    buffer.m_dwSize = buffer.m_pData != nullptr ? size : 0;
}

// The data buffer held plain bytes of the person's files: they do not stay behind in freed memory.
void freeBuffer(CryptBuffer& buffer) {
    if (buffer.m_pData != nullptr) {
        velqcrypto::wipe(buffer.m_pData, buffer.m_dwSize);
    }
    delete[] buffer.m_pData;
    buffer.m_pData = nullptr;
    buffer.m_dwSize = 0;
}

void closeAndReset(plat::HANDLE& handle, plat::HANDLE closedValue) {
    if (plat::isUsableHandle(handle)) {
        plat::CloseHandle(handle);
    }
    handle = closedValue;
}

void loadProgressTexts() {
    g_strEncryptTitle = loadResString(1005);
    g_strEncryptLine1 = loadResString(1006);
    g_strEncryptLine2 = loadResString(1007);
    g_strEncryptLine3 = loadResString(1008);
    g_strDecryptTitle = loadResString(1009);
    g_strDecryptLine1 = loadResString(1010);
    g_strDecryptLine2 = loadResString(1011);
    g_strDecryptLine3 = loadResString(1012);
}

}  // namespace

VELQCryptFile::VELQCryptFile(const std::vector<std::u16string>& paths, plat::BOOL bDeleteSource)
    : m_hProgressThread(nullptr),
      m_dwProgressThreadId(0),
      m_nCurrentFile(0),
      m_bDeleteSource(bDeleteSource),
      m_dwAllocationGranularity(0),
      m_vFilePaths(paths),
      m_pCrypt(nullptr),
      m_pUserInfo(nullptr),
      m_hErrorDialog(nullptr),
      m_hErrorDialogThread(nullptr),
      m_identityHeader{},
      m_crc32Key(0),
      m_dwPostedPercent(kNoPercentPosted),
      m_nSummedFiles(0),
      m_fSummedPercent(0.0F) {
    VELQ_TRACE(u"VELQCryptFile::VELQCryptFile", u" (VELQCryptFile::VELQCryptFile)");
    plat::SYSTEM_INFO systemInfo{};
    plat::GetSystemInfo(&systemInfo);
    m_dwAllocationGranularity = systemInfo.dwAllocationGranularity;
    VELQ_LOG(DBG_LEVEL_TRC, u" (VELQCryptFile::VELQCryptFile)", u"%s = %u", u"m_dwAllocationGranularity",
             m_dwAllocationGranularity);

    // A null owner is kept as null: _initCryptScene then fails with -11 and the batch asks for recovery.
    if (VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner()) {
        m_pUserInfo = new (std::nothrow) VELQUserInfo(*owner);
        VELQUserInfoManager::releaseUsers();
    }

    // Missing buffers fail the files that need them (-5 or -11), not the object.
    allocateBuffer(m_headerBuffer, _getIdentityHeaderSize() + _getEncryptedHeaderSize(), false);
    allocateBuffer(m_dataBuffer, kDataBufferSize, true);

    // Without the event or the thread the error list is tried once more when the first row is due.
    g_hErrorDialogReadyEvent = plat::CreateEventW(nullptr, plat::TRUE, plat::FALSE, u"VELQCryptEvent");
    m_hErrorDialogThread = plat::beginThread(&VELQCryptFile::_ThreadProcShowMessage, this);

    loadProgressTexts();
}

VELQCryptFile::~VELQCryptFile() {
    VELQ_TRACE(u"VELQCryptFile::~VELQCryptFile", u" (VELQCryptFile::~VELQCryptFile)");
    for (FileInfo* info : m_vFileInfos) {
        delete info;
    }
    m_vFileInfos.clear();
    delete m_pCrypt;
    m_pCrypt = nullptr;

    // A hidden list that never got a row ends here. A window belongs to its thread, so the dialog thread
    // destroys it itself once WM_CLOSE has ended its loop; the wait below sees that end.
    _waitForErrorDialogOrItsEnd();
    if (m_hErrorDialog.load() != nullptr && !_isErrorDialogVisible()) {
        plat::SendMessageW(m_hErrorDialog.load(), plat::WM_CLOSE, 0, 0);
    }

    delete m_pUserInfo;
    m_pUserInfo = nullptr;
    freeBuffer(m_dataBuffer);
    freeBuffer(m_headerBuffer);
    closeAndReset(g_hErrorDialogReadyEvent, nullptr);

    if (m_hErrorDialogThread != nullptr) {
        plat::WaitForSingleObject(m_hErrorDialogThread, plat::INFINITE);
    }
    closeAndReset(m_hErrorDialogThread, nullptr);
    closeAndReset(m_hProgressThread, nullptr);
}

// A batch may end before its dialog thread has made its window; a WM_CLOSE must not be missed then, or the
// final wait would never end. The ready event cannot tell: its name is shared by every VELQ process, so
// another process's list may have set it. The thread's own two outcomes can: a window, or its end.
void VELQCryptFile::_waitForErrorDialogOrItsEnd() {
    constexpr plat::DWORD kPollMs = 10;
    if (m_hErrorDialogThread == nullptr) {
        return;
    }
    while (m_hErrorDialog.load() == nullptr &&
           plat::WaitForSingleObject(m_hErrorDialogThread, kPollMs) == plat::WAIT_TIMEOUT) {
    }
}

int VELQCryptFile::beginCryptFiles(int mode) {
    VELQ_TRACE(u"VELQCryptFile::beginCryptFiles", u" (beginCryptFiles)");
    if (mode == CRYPT_MODE_REJECTED) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (beginCryptFiles)", u"Error Code: 0x%x",
                 static_cast<unsigned>(CRYPT_E_GENERAL));
        return CRYPT_E_GENERAL;
    }
    return _beginCryptFiles(mode);
}

int VELQCryptFile::_beginCryptFiles(int mode) {
    VELQ_TRACE(u"VELQCryptFile::_beginCryptFiles", u" (_beginCryptFiles)");
    if (_initCryptScene() != CRYPT_S_OK && _tryRecoveryKey() < 0) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (_beginCryptFiles)", u"Error Code: 0x%x",
                 static_cast<unsigned>(CRYPT_E_GENERAL));
        return CRYPT_E_GENERAL;
    }
    // A batch whose progress thread could not start runs without a dialog.
    _startProgressBar(mode);
    _initData(mode);
    _processAllFiles(mode);
    _stopProgressBar();

    // The rows stay before the person until the list is closed, which ends its thread.
    if (m_hErrorDialog.load() != nullptr && _isErrorDialogVisible() && m_hErrorDialogThread != nullptr) {
        plat::WaitForSingleObject(m_hErrorDialogThread, plat::INFINITE);
    }
    return CRYPT_S_OK;
}

void VELQCryptFile::_initData(int mode) {
    VELQ_TRACE(u"VELQCryptFile::_initData", u" (_initData)");
    for (const std::u16string& path : m_vFilePaths) {
        FileInfo* info = new (std::nothrow) FileInfo;
        if (info == nullptr) {
            continue;
        }
        std::u16string extension(plat::PathFindExtensionW(path.c_str()));
        plat::CharLowerW(extension.data());
        VELQ_LOG(DBG_LEVEL_TRC, u" (_initData)", u"%s = %s", u"szExtension", extension.c_str());
        info->m_bEncrypted = extension == CRYPT_FILE_EXTENSION ? plat::TRUE : plat::FALSE;

        // An encrypted file in an encrypt batch is passed over in silence: no row, no place in the count.
        if (info->m_bEncrypted && mode == CRYPT_MODE_ENCRYPT) {
            delete info;
            continue;
        }
        info->m_szFilePath = path;
        info->m_sDestFileInfo.m_szDestFilePath = path;
        VELQ_LOG(DBG_LEVEL_TRC, u" (_initData)", u"%s = %s", u"m_szFilePath", path.c_str());
        m_vFileInfos.push_back(info);
    }
}

int VELQCryptFile::_processAllFiles(int mode) {
    VELQ_TRACE(u"VELQCryptFile::_processAllFiles", u" (_processAllFiles)");
    const bool bEncrypt = mode == CRYPT_MODE_ENCRYPT;
    VELQ_LOG(DBG_LEVEL_TRC, u" (_processAllFiles)", u"%s = %s", u"bEncrypt", bEncrypt ? u"true" : u"false");

    // The files the loop is done with are deleted beside its next file; the batch ends once they are gone.
    m_fileRemover.beginBatch();
    std::size_t i = 0;
    while (i < m_vFileInfos.size()) {
        _updateFileCountLine(static_cast<plat::DWORD>(i + 1), mode);
        if (m_progressDialog.hasUserCancelled()) {
            break;
        }
        FileInfo* info = m_vFileInfos[i];
        VELQ_LOG(DBG_LEVEL_INF, u" (_processAllFiles)", u"### Processing file: %s. ###",
                 info->m_szFilePath.c_str());
        m_nCurrentFile = static_cast<plat::DWORD>(i);
        info->m_nCryptMode = mode;

        // Without a cipher (no owner, or a recovery whose scene failed and was given up) no file can be
        // worked: each fails with -11 before its source is even opened.
        int nResult = CRYPT_E_GENERAL;
        if (m_pCrypt != nullptr) {
            nResult = bEncrypt ? _encryptFile(info) : _decryptFile(info);
        }
        VELQ_LOG(DBG_LEVEL_TRC, u" (_processAllFiles)", u"%s = %d", u"nResult", nResult);
        _closeFileHandles(info);

        if (nResult == CRYPT_E_INVALID_KEY) {
            if (_tryRecoveryKey() >= 0) {
                continue;  // the same record again, counter included
            }
        } else if (nResult != CRYPT_S_OK) {
            _showMessageDialog(_buildResultMessage(nResult, info->m_szFilePath));
            if (m_pCrypt != nullptr) {
                m_pCrypt->endCryptProcess(bEncrypt);
            }
        }
        ++i;
    }
    m_fileRemover.endBatch();
    return CRYPT_S_OK;
}

int VELQCryptFile::_tryRecoveryKey() {
    VELQ_TRACE(u"VELQCryptFile::_tryRecoveryKey", u" (_tryRecoveryKey)");
    for (;;) {
        const int answer = kelMsgBox(kTextKeyInvalidRecover, kCaptionInformation, kRecoverQuestionFlags,
                                     plat::GetForegroundWindow(), nullptr);
        if (answer != plat::IDYES) {
            VELQ_LOG(DBG_LEVEL_ERR, u" (_tryRecoveryKey)", u"Error Code: 0x%x",
                     static_cast<unsigned>(plat::E_FAIL));
            return plat::E_FAIL;
        }
        if (VELQShellExtProc::recoverKeyGuide() == 0) {
            VELQ_LOG(DBG_LEVEL_ERR, u" (_tryRecoveryKey)", u"Error Code: 0x%x",
                     static_cast<unsigned>(plat::E_FAIL));
            return plat::E_FAIL;
        }
        if (_initCryptScene() != CRYPT_E_INVALID_KEY) {
            return CRYPT_S_OK;
        }
    }
}

void VELQCryptFile::_closeFileHandles(FileInfo* lpFileInfos) {
    if (lpFileInfos == nullptr) {
        return;
    }
    closeAndReset(lpFileInfos->m_hMapFile, nullptr);
    closeAndReset(lpFileInfos->m_hFile, plat::INVALID_HANDLE_VALUE);
    closeAndReset(lpFileInfos->m_sDestFileInfo.m_hDestMapFile, nullptr);
    closeAndReset(lpFileInfos->m_sDestFileInfo.m_hDestFile, plat::INVALID_HANDLE_VALUE);
}
