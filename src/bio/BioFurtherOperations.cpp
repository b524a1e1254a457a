// The further operations of the engine beside verification: enrollment of a finger, repeated capture
// of a sample and identification through the event monitor, with their starters and callbacks.
#include <string>

#include "bio/AsynBioOperation.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "plat/security.h"

using namespace plat;

namespace {

// The fixed finger position of a repeated capture; its samples are never committed.
constexpr WINBIO_BIOMETRIC_SUBTYPE kImageSubFactor = 15;

}  // namespace

HRESULT AsynBioOperation::enrollFinger(VELQUserInfo* user, unsigned char subFactor) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::enrollFinger)", u"AsynBioOperation::enrollFinger");
    if (user == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::enrollFinger)", u"Error Code: 0x%x", E_POINTER);
        return E_POINTER;
    }
    m_userInfo = user;
    m_subFactor = subFactor;
    return _startWorker(OP_TYPE_ENROLL, true);
}

HRESULT AsynBioOperation::captureImage(bool keepRunning) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::captureImage)", u"AsynBioOperation::captureImage");
    return _startWorker(OP_TYPE_IMAGE, keepRunning);
}

HRESULT AsynBioOperation::identifyByEvent() {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::identifyByEvent)", u"AsynBioOperation::identifyByEvent");
    return _startWorker(OP_TYPE_EVENT_IDENTIFY, true);
}

HRESULT AsynBioOperation::_enrollBeginResult(HRESULT hr) const {
    if (hr == WINBIO_E_ENROLLMENT_IN_PROGRESS) {
        return BIO_E_ENROLL_BUSY;
    }
    return hr == E_ACCESSDENIED ? BIO_E_ACCESS_DENIED : BIO_E_DEVICE;
}

void AsynBioOperation::_runEnroll() {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"OP_TYPE_ENROLL");
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"Thread : enrollcapture start");
    if (m_userInfo.load() == nullptr || !m_bioOperation) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"m_userInfo or m_bioOperation is NULL");
        return;
    }
    WinBioEnrollDiscard(m_sessionHandle);
    HRESULT hr = WinBioEnrollBegin(m_sessionHandle, m_subFactor, m_unitId);
    if (hr < 0) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"WinBioEnrollBegin failed. hr = 0x%x",
                 hr);
        m_result = _enrollBeginResult(hr);
    } else {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                 u"Thread : WinBioEnrollCaptureWithCallback begin");
        hr = WinBioEnrollCaptureWithCallback(m_sessionHandle, EnrollCallback, this);
        if (hr < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                     u"WinBioEnrollCaptureWithCallback failed. 0x%x", hr);
            m_result = BIO_E_DEVICE;
        } else {
            _cancelIfEnded();
            WinBioWait(m_sessionHandle);
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"WinBioWait: 0x%x", m_sessionHandle);
        }
    }
    if (_client().callback != nullptr) {
        const bool locked = m_lock.Lock(1500, 1);
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"ThreadCallback : Enroll is end");
        NotifyClient(OP_TYPE_ENROLL);
        NotifyClient(OP_TYPE_ENROLL_END);
        if (locked) {
            m_lock.Unlock();
        }
    }
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"Thread : enrollcapture end");
}

void AsynBioOperation::_runImage() {
    while (m_keepRunning) {
        WinBioEnrollDiscard(m_sessionHandle);
        HRESULT hr = WinBioEnrollBegin(m_sessionHandle, kImageSubFactor, m_unitId);
        if (hr < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                     u"WinBioEnrollBegin failed. hr = 0x%x", hr);
            m_result = _enrollBeginResult(hr);
            NotifyClient(OP_TYPE_IMAGE_END);
            m_keepRunning = false;
            continue;
        }
        hr = WinBioEnrollCaptureWithCallback(m_sessionHandle, CaptureEnrollCallback, this);
        if (hr < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                     u"Call WinBioEnrollCaptureWithCallback failed");
            m_result = BIO_E_DEVICE;
            NotifyClient(OP_TYPE_IMAGE_END);
            m_keepRunning = false;
            continue;
        }
        _cancelIfEnded();
        hr = WinBioWait(m_sessionHandle);
        if (hr < 0) {
            // The session cannot be waited on: the operation and the worker end at once.
            m_result = BIO_E_DEVICE;
            m_keepRunning = false;
            break;
        }
        WinBioEnrollDiscard(m_sessionHandle);
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                 u"End of image capture success. hr = 0x%x \n", hr);
    }
    // No capture is ever kept, also not one that a cancel interrupted.
    WinBioEnrollDiscard(m_sessionHandle);
}

void AsynBioOperation::_runEventIdentify() {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"OP_TYPE_EVENT_IDENTIFY");
    m_keepRunning = true;
    while (m_keepRunning) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"Begin to event identify.");
        WinBioUnregisterEventMonitor(m_sessionHandle);
        HRESULT hr = WinBioRegisterEventMonitor(m_sessionHandle, WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY,
                                                EventMonitorCallback, this);
        if (hr < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)",
                     u"EventMonitorCallback failed. hr = 0x%x", hr);
            m_result = BIO_E_DEVICE;
            NotifyClient(OP_TYPE_VERIFYUSER_END);
            WinBioUnregisterEventMonitor(m_sessionHandle);
            break;
        }
        _cancelIfEnded();
        hr = WinBioWait(m_sessionHandle);
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::ThreadProc)", u"WinBioWait 0x%x", m_sessionHandle);
        if (hr < 0) {
            // A session that cannot be waited on would make this loop spin: end it as a device failure.
            m_result = BIO_E_DEVICE;
            WinBioUnregisterEventMonitor(m_sessionHandle);
            break;
        }
    }
}

void AsynBioOperation::EventMonitorCallback(void* context, HRESULT OperationStatus, WINBIO_EVENT* event) {
    if (event == nullptr) {
        return;
    }
    auto* self = static_cast<AsynBioOperation*>(context);
    if (self == nullptr) {
        WinBioFree(event);
        return;
    }
    self->_notifyData().setFeedBack(event->Parameters.UnclaimedIdentify.RejectDetail);
    if (OperationStatus < 0) {
        if (OperationStatus == WINBIO_E_UNKNOWN_ID || OperationStatus == WINBIO_E_NO_MATCH) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EventMonitorCallback)", u"Unknown identity.");
            self->m_result = BIO_E_NOT_IDENTIFIED;
            self->NotifyClient(OP_TYPE_VERIFYUSER_END);
        } else if (OperationStatus == WINBIO_E_BAD_CAPTURE || OperationStatus == WINBIO_E_NO_CAPTURE_DATA) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EventMonitorCallback)",
                     u"IdentifyCallback:Bad capture");
        } else {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EventMonitorCallback)",
                     u"IdentifyCallback:DEVICE_ERROR OperationStatus = 0x%x", OperationStatus);
            self->m_result = BIO_E_DEVICE;
        }
        WinBioFree(event);
        return;
    }
    if (event->Type == WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY) {
        LPWSTR sidText = nullptr;
        const BOOL converted = ConvertSidToStringSidW(
            event->Parameters.UnclaimedIdentify.Identity.Value.AccountSid.Data, &sidText);
        VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner();
        self->m_userInfo = owner;
        if (converted == FALSE || sidText == nullptr || event->Parameters.UnclaimedIdentify.ErrorCode < 0) {
            self->m_result = BIO_E_NOT_IDENTIFIED;
            self->NotifyClient(OP_TYPE_VERIFYUSER_END);
        } else if (owner != nullptr && owner->getVELQSID() == std::u16string(sidText)) {
            self->m_result = 0;
            self->NotifyClient(OP_TYPE_VERIFYUSER_END);
        }
        LocalFree(sidText);
    }
    WinBioFree(event);
}

void AsynBioOperation::EnrollCallback(void* context, HRESULT OperationStatus,
                                      WINBIO_REJECT_DETAIL RejectDetail) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EnrollCallback)",
             u"EnrollCallback:OperationStatus=0x%x, RejectDetail=%d", OperationStatus, RejectDetail);
    auto* self = static_cast<AsynBioOperation*>(context);
    if (self == nullptr) {
        return;
    }
    BioNotifyData& data = self->_notifyData();
    data.setEnrollDone(0);
    data.setFeedBack(RejectDetail);
    if (OperationStatus < 0) {
        VELQ_LOG(DBG_LEVEL_TRC, u" (AsynBioOperation::EnrollCallback)", u"%s = %X", u"OperationStatus",
                 OperationStatus);
        LogWinBioErrors(OperationStatus);
    }
    const bool moreData = OperationStatus == WINBIO_I_MORE_DATA ||
                          (OperationStatus == 0 && RejectDetail == WINBIO_FP_POOR_QUALITY);
    if (OperationStatus == WINBIO_E_BAD_CAPTURE) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EnrollCallback)",
                 u"EnrollCallback:Bad capture; reason: %d", RejectDetail);
        self->m_result = 0;
        self->NotifyClient(OP_TYPE_ENROLL);
        const HRESULT hr = WinBioEnrollCaptureWithCallback(self->m_sessionHandle, EnrollCallback, context);
        if (hr < 0) {
            self->m_result = BIO_E_DEVICE;
            VELQ_LOG(DBG_LEVEL_TRC, u" (AsynBioOperation::EnrollCallback)", u"%s = %X", u"hr", hr);
            LogWinBioErrors(hr);
        }
    } else if (OperationStatus == E_ACCESSDENIED || OperationStatus == E_HANDLE ||
               OperationStatus == WINBIO_E_CANCELED) {
        self->m_result = BIO_E_DEVICE;
    } else if (OperationStatus == E_FAIL) {
        self->m_result = BIO_E_ENROLL_FAILED;
    } else if (OperationStatus == WINBIO_E_DUPLICATE_TEMPLATE ||
               OperationStatus == WINBIO_E_DUPLICATE_ENROLLMENT) {
        self->m_result = BIO_E_DUPLICATE;
    } else if (OperationStatus < 0) {
        self->m_result = BIO_E_NOT_IDENTIFIED;
    } else if (moreData) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EnrollCallback)",
                 u"EnrollCallback: More data required.");
        self->m_result = 0;
        self->NotifyClient(OP_TYPE_ENROLL);
        const HRESULT hr = WinBioEnrollCaptureWithCallback(self->m_sessionHandle, EnrollCallback, context);
        if (hr < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EnrollCallback)",
                     u"EnrollCallback:WinBioEnrollCaptureWithCallback failed. hr = 0x%x", hr);
            LogWinBioErrors(hr);
        }
    } else if (OperationStatus == 0) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::EnrollCallback)", u"EnrollCallback: Enroll complete.");
        self->m_result = 0;
        data.setEnrollDone(1);
        self->NotifyClient(OP_TYPE_ENROLL);
    }
}

void AsynBioOperation::CaptureEnrollCallback(void* context, HRESULT OperationStatus,
                                             WINBIO_REJECT_DETAIL RejectDetail) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::CaptureEnrollCallback)",
             u"CaptureEnrollCallback:OperationStatus=0x%x, RejectDetail=%d", OperationStatus, RejectDetail);
    auto* self = static_cast<AsynBioOperation*>(context);
    if (self == nullptr) {
        return;
    }
    self->_notifyData().setFeedBack(RejectDetail);
    if (OperationStatus < 0) {
        VELQ_LOG(DBG_LEVEL_TRC, u" (AsynBioOperation::CaptureEnrollCallback)", u"%s = %X", u"OperationStatus",
                 OperationStatus);
        LogWinBioErrors(OperationStatus);
    }
    if (OperationStatus == WINBIO_E_BAD_CAPTURE) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::CaptureEnrollCallback)",
                 u"CaptureEnrollCallback: Swipe your finger to capture another sample.");
        self->m_result = 0;
        self->NotifyClient(OP_TYPE_IMAGE);
    } else if (OperationStatus == E_ACCESSDENIED || OperationStatus == E_HANDLE) {
        self->m_result = BIO_E_FAILED;
        self->m_keepRunning = false;
        self->m_notifyData.reset();
        self->NotifyClient(OP_TYPE_IMAGE_END);
    } else if (OperationStatus == E_FAIL || OperationStatus == WINBIO_E_DUPLICATE_TEMPLATE ||
               OperationStatus == WINBIO_E_DUPLICATE_ENROLLMENT) {
        self->m_result = 0;
        self->NotifyClient(OP_TYPE_IMAGE);
    } else if (OperationStatus == WINBIO_E_CANCELED) {
        self->m_result = BIO_E_FAILED;
        self->m_keepRunning = false;
    } else if (OperationStatus < 0) {
        self->m_result = BIO_E_NOT_IDENTIFIED;
        self->m_keepRunning = false;
    } else if (OperationStatus == WINBIO_I_MORE_DATA) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::CaptureEnrollCallback)",
                 u"EnrollCallback: More data required.");
        self->m_result = 0;
        self->NotifyClient(OP_TYPE_IMAGE);
        const HRESULT hr =
            WinBioEnrollCaptureWithCallback(self->m_sessionHandle, CaptureEnrollCallback, context);
        if (hr < 0) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::CaptureEnrollCallback)",
                     u"EnrollCallback:WinBioEnrollCaptureWithCallback failed. hr = 0x%x", hr);
            LogWinBioErrors(hr);
            self->m_result = BIO_E_DEVICE;
            self->m_keepRunning = false;
        }
    } else if (OperationStatus == 0) {
        self->m_result = 0;
        self->NotifyClient(OP_TYPE_IMAGE);
    }
}
