// The biometric engine: session, worker, client registration and the verification loop. The callbacks
// are in IdentifyCallback.cpp and BioFurtherOperations.cpp, the error texts in WinBioErrors.cpp.
#include "bio/AsynBioOperation.h"

#include "common/VELQBioOperation.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "plat/handle.h"
#include "plat/security.h"
#include "plat/threads.h"

using namespace plat;

AsynBioOperation::AsynBioOperation()
    : m_hBioThread(nullptr),
      m_sessionHandle(0),
      m_unitId(1),
      m_appType(0),
      m_result(0),
      m_opType(OP_TYPE_NULL),
      m_pUserInfoList(nullptr),
      m_userInfo(nullptr),
      m_subFactor(0),
      m_threadRunning(false),
      m_keepRunning(false) {
    m_lock.createMutex();
}

AsynBioOperation::~AsynBioOperation() {
    setClient(nullptr, nullptr);
    m_notifyData.reset();
    m_userInfo = nullptr;
    m_pUserInfoList = nullptr;
    m_sessionHandle = 0;
    m_threadRunning = false;
    if (m_hBioThread != nullptr) {
        CloseHandle(m_hBioThread);
        m_hBioThread = nullptr;
    }
    m_lock.closeMutex();
}

bool AsynBioOperation::_isAdministrator() {
    PSID administrators = nullptr;
    if (AllocateAndInitializeSid(&SECURITY_NT_AUTHORITY, 2, SECURITY_BUILTIN_DOMAIN_RID,
                                 DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0, &administrators) == FALSE) {
        return false;
    }
    BOOL isMember = FALSE;
    if (CheckTokenMembership(nullptr, administrators, &isMember) == FALSE) {
        isMember = FALSE;
    }
    FreeSid(administrators);
    return isMember != FALSE;
}

HRESULT AsynBioOperation::openSession(unsigned char appType) {
    VELQ_TRACE(u"AsynBioOperation::openSession", u" (AsynBioOperation::openSession)");
    VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner();
    if (owner == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::openSession)", u"Error Code: 0x%x", E_POINTER);
        return E_POINTER;
    }
    if (!m_bioOperation) {
        m_bioOperation.reset(VELQBioOperation::createBioOperation(appType));
    }
    BOOLEAN enabled = FALSE;
    WINBIO_SETTING_SOURCE_TYPE source = WINBIO_SETTING_SOURCE_INVALID;
    WinBioGetEnabledSetting(&enabled, &source);
    if (enabled == FALSE || source == WINBIO_SETTING_SOURCE_INVALID) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::openSession)",
                 u"WinBio Device disabled or invalid setting");
        updateUserTemplatesCount(owner);
        return BIO_E_FAILED;
    }
    m_appType = appType;
    m_sessionHandle = 0;
    const bool isAdministrator = _isAdministrator();
    WINBIO_SESSION_FLAGS flags = WINBIO_FLAG_DEFAULT;
    if (appType == BIO_APP_TYPE_MAINTENANCE) {
        if (isAdministrator) {
            flags = WINBIO_FLAG_DEFAULT | WINBIO_FLAG_MAINTENANCE;
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::openSession)",
                     u"openSession flag: WINBIO_FLAG_MAINTENANCE for import/export");
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::openSession)",
                     u"wibioFlag:  WINBIO_FLAG_DEFAULT|WINBIO_FLAG_MAINTENANCE ");
        } else {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::openSession)", u"wibioFlag:  WINBIO_FLAG_DEFAULT");
        }
    }
    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T unitCount = 0;
    HRESULT hr = WinBioEnumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &unitCount);
    if (unitCount == 0 || hr < 0 || units == nullptr) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::openSession)",
                 u"WinBioEnumBiometricUnits failed hr = 0x%x", hr);
        LogWinBioErrors(hr);
        if (units != nullptr) {
            WinBioFree(units);
        }
        return BIO_E_DEVICE;
    }
    m_unitId = units[unitCount - 1].UnitId;
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::openSession)", u"openSession:m_unitId = %d", m_unitId);
    WinBioFree(units);
    hr = WinBioOpenSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, flags, nullptr, 0, WINBIO_DB_DEFAULT,
                           &m_sessionHandle);
    if (hr < 0) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::openSession)", u"Open session error hr = 0x%x", hr);
        LogWinBioErrors(hr);
        m_sessionHandle = 0;
        return BIO_E_DEVICE;
    }
    if (m_bioOperation) {
        m_bioOperation->attachSession(m_sessionHandle, m_unitId, isAdministrator ? TRUE : FALSE);
    }
    return 0;
}

HRESULT AsynBioOperation::updateUserTemplatesCount(VELQUserInfo* user) {
    if (user == nullptr || !m_bioOperation) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::updateUserTemplatesCount)", u"Error Code: 0x%x",
                 E_POINTER);
        return E_POINTER;
    }
    if (user->getUserName().empty()) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::updateUserTemplatesCount)", u"Error Code: 0x%x",
                 BIO_E_FAILED);
        return BIO_E_FAILED;
    }
    ULONG fingers[10] = {};
    ULONG count = 0;
    m_bioOperation->getEnrolledFingers(user, 10, fingers, &count);
    user->setFingerprintCount(count);
    user->save(0);
    return 0;
}

HRESULT AsynBioOperation::verifyUser(bool keepRunning) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::verifyUser)", u"AsynBioOperation::VerifyUser");
    return _startWorker(OP_TYPE_VERIFYUSER, keepRunning);
}

HRESULT AsynBioOperation::_startWorker(BioOperationType opType, bool keepRunning) {
    if (!m_bioOperation) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::_startWorker)", u"Error Code: 0x%x", E_POINTER);
        return E_POINTER;
    }
    if (m_hBioThread != nullptr) {
        // One worker at a time: a finished one is forgotten, a running one refuses the new start.
        DWORD exitCode = 0;
        if (GetExitCodeThread(m_hBioThread, &exitCode) != FALSE && exitCode == STILL_ACTIVE) {
            VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::_startWorker)", u"Error Code: 0x%x", BIO_E_FAILED);
            return BIO_E_FAILED;
        }
        CloseHandle(m_hBioThread);
        m_hBioThread = nullptr;
    }
    m_opType = opType;
    m_keepRunning = keepRunning;
    m_hBioThread = beginThread(ThreadCallback, this);
    if (m_hBioThread == nullptr) {
        m_opType = OP_TYPE_NULL;
        return E_FAIL;
    }
    return 0;
}

HRESULT AsynBioOperation::setClient(BioClientProc callback, void* context) {
    std::lock_guard<std::mutex> guard(m_clientGuard);
    m_client.callback = callback;
    m_client.context = context;
    return 0;
}

AsynBioOperation::Client AsynBioOperation::_client() const {
    std::lock_guard<std::mutex> guard(m_clientGuard);
    return m_client;
}

HRESULT AsynBioOperation::setThreadAutoEnd() {
    m_keepRunning = false;
    setClient(nullptr, nullptr);
    const HRESULT hr = WinBioCancel(m_sessionHandle);
    if (hr >= 0) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::setThreadAutoEnd)",
                 u"setThreadAutoEnd suc. WinBioCancel");
        return 0;
    }
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::setThreadAutoEnd)",
             u"setThreadAutoEnd: WinBioCancel failed. 0x%x ", hr);
    LogWinBioErrors(hr);
    return BIO_E_FAILED;
}

HRESULT AsynBioOperation::cancelOperation() {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::cancelOperation)", u"Calling WinBioCancel");
    const HRESULT hr = WinBioCancel(m_sessionHandle);
    if (hr < 0) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::cancelOperation)", u"Call WinBioCancel failed");
        LogWinBioErrors(hr);
    }
    m_opType = OP_TYPE_NULL;
    if (m_hBioThread != nullptr) {
        DWORD exitCode = 0;
        GetExitCodeThread(m_hBioThread, &exitCode);
        if (exitCode == STILL_ACTIVE) {
            setClient(nullptr, nullptr);
        } else {
            CloseHandle(m_hBioThread);
            m_hBioThread = nullptr;
        }
    }
    return 0;
}

HRESULT AsynBioOperation::closeSession() {
    HRESULT hr = WinBioCancel(m_sessionHandle);
    if (hr >= 0) {
        hr = WinBioCloseSession(m_sessionHandle);
        if (hr >= 0) {
            m_sessionHandle = 0;
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::closeSession)", u"CloseSession Finished");
        }
    }
    if (hr < 0) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::closeSession)", u"Error Code: 0x%x", hr);
        LogWinBioErrors(hr);
    }
    return 0;
}

HRESULT AsynBioOperation::LockWinBioUnit(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unitId) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::LockWinBioUnit)", u"WinBioLockUnit");
    const HRESULT hr = WinBioLockUnit(session, unitId);
    if (hr < 0) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::LockWinBioUnit)", u"LockWinBioUnit Failed ");
        LogWinBioErrors(hr);
    }
    return hr;
}

HRESULT AsynBioOperation::UnlockWinBioUnit(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unitId) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::UnlockWinBioUnit)", u"WinBioUnlockUnit");
    const HRESULT hr = WinBioUnlockUnit(session, unitId);
    if (hr < 0) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::UnlockWinBioUnit)", u"UnlockWinBioUnit Failed ");
        LogWinBioErrors(hr);
    }
    return hr;
}

void AsynBioOperation::NotifyClient(int type) {
    LogNotifyClientType(type);
    if (_client().callback == nullptr) {
        return;
    }
    const bool locked = m_lock.Lock(0, INFINITE);
    // Looked at again: the client may have been cleared while this notification waited for the lock.
    const Client client = _client();
    if (client.callback != nullptr) {
        client.callback(type, this, client.context);
    }
    if (locked) {
        m_lock.Unlock();
    }
}

void AsynBioOperation::LogNotifyClientType(int type) {
    static constexpr const char16_t* kNames[] = {
        u"NotifyClientType: OP_TYPE_NULL",           u"NotifyClientType: OP_TYPE_VERIFYUSER",
        u"NotifyClientType: OP_TYPE_VERIFYUSER_END", u"NotifyClientType: OP_TYPE_ENROLL",
        u"NotifyClientType: OP_TYPE_ENROLL_END",     u"NotifyClientType: OP_TYPE_IMAGE",
        u"NotifyClientType: OP_TYPE_IMAGE_END",      u"NotifyClientType: OP_TYPE_EVENT_IDENTIFY",
    };
    const bool known = type >= OP_TYPE_NULL && type <= OP_TYPE_EVENT_IDENTIFY;
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::LogNotifyClientType)", u"%s",
             known ? kNames[type] : u"NotifyClientType: Unknown");
}

// setThreadAutoEnd may run between the worker's look at m_keepRunning and the arming of a sample; its
// cancel then found nothing pending and would be lost, leaving WinBioWait without an end. Looking again
// after the arming closes that gap: either this look sees the end, or the end's cancel comes after the
// arming and reaches it.
void AsynBioOperation::_cancelIfEnded() {
    if (!m_keepRunning) {
        WinBioCancel(m_sessionHandle);
    }
}

BioNotifyData& AsynBioOperation::_notifyData() {
    if (!m_notifyData) {
        m_notifyData = std::make_unique<BioNotifyData>();
    }
    return *m_notifyData;
}

unsigned AsynBioOperation::ThreadCallback(void* arg) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadCallback)", u"ThreadCallback begin.");
    if (arg != nullptr) {
        static_cast<AsynBioOperation*>(arg)->ThreadProc();
    }
    return 0;
}

unsigned AsynBioOperation::ThreadProc() {
    VELQ_TRACE(u"AsynBioOperation::ThreadProc", u" (AsynBioOperation::ThreadProc)");
    m_threadRunning = true;
    if (!m_bioOperation) {
        m_result = BIO_E_FAILED;
    } else {
        switch (m_opType.load()) {
            case OP_TYPE_NULL:
                VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"OP_TYPE_NULL");
                NotifyClient(OP_TYPE_NULL);
                break;
            case OP_TYPE_VERIFYUSER:
                _runVerifyUser();
                break;
            case OP_TYPE_ENROLL:
                _runEnroll();
                break;
            case OP_TYPE_IMAGE:
                _runImage();
                break;
            case OP_TYPE_EVENT_IDENTIFY:
                _runEventIdentify();
                break;
            default:
                NotifyClient(OP_TYPE_NULL);
                break;
        }
    }
    m_threadRunning = false;
    return 0;
}

void AsynBioOperation::_runVerifyUser() {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"OP_TYPE_VERIFYUSER");
    VELQUserInfoManager::initUsers(1);
    m_pUserInfoList = VELQUserInfoManager::getAllUsers();
    if (m_pUserInfoList == nullptr || m_pUserInfoList->empty()) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::ThreadProc)", u"m_pUserInfoList is empty");
        m_userInfo = nullptr;
        m_pUserInfoList = nullptr;
        m_result = BIO_E_FAILED;
        return;
    }
    LockWinBioUnit(m_sessionHandle, m_unitId);
    while (m_keepRunning) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"Thread : verifyUserWithCallBack start");
        if (WinBioIdentifyWithCallback(m_sessionHandle, IdentifyCallback, this) < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                     u"Thread : Device error or no template in device, monitor will close!");
            m_result = BIO_E_DEVICE;
            m_keepRunning = false;
        } else {
            _cancelIfEnded();
        }
        if (WinBioWait(m_sessionHandle) < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"WinBioWait failed.");
            m_keepRunning = false;
            m_result = BIO_E_DEVICE;
        }
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                 u"Thread : Leave verifyUserWithCallBack ");
    }
    UnlockWinBioUnit(m_sessionHandle, m_unitId);
}
