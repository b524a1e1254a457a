// The identification callback: turns each sample of the framework into the engine's result, decides
// whether the worker reads another sample, tells the client and finds whose finger it was.
#include <cstring>
#include <string>

#include "bio/AsynBioOperation.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "plat/security.h"

using namespace plat;

void AsynBioOperation::IdentifyCallback(void* context, HRESULT OperationStatus, WINBIO_UNIT_ID /*unitId*/,
                                        WINBIO_IDENTITY* identity, WINBIO_BIOMETRIC_SUBTYPE /*subFactor*/,
                                        WINBIO_REJECT_DETAIL RejectDetail) {
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)", u"Thread : IdentifyCallback running");
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)",
             u"IdentifyCallback:OperationStatus=0x%x", OperationStatus);
    auto* self = static_cast<AsynBioOperation*>(context);
    if (self == nullptr) {
        return;
    }
    const std::vector<VELQUserInfo*>* users = self->m_pUserInfoList;
    if (users == nullptr || users->empty()) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)", u"User info list is null.");
        return;
    }
    self->_notifyData().setFeedBack(RejectDetail);

    if (OperationStatus < 0) {
        VELQ_LOG(DBG_LEVEL_TRC, u" (AsynBioOperation::IdentifyCallback)", u"%s = %X", u"OperationStatus",
                 OperationStatus);
        LogWinBioErrors(OperationStatus);
        if (OperationStatus == WINBIO_E_UNKNOWN_ID || OperationStatus == WINBIO_E_NO_MATCH) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)", u"Unknown identity.");
            self->m_result = BIO_E_NOT_IDENTIFIED;
            self->NotifyClient(OP_TYPE_VERIFYUSER_END);
        } else if (OperationStatus == WINBIO_E_BAD_CAPTURE) {
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)",
                     u"IdentifyCallback:Bad capture");
            self->m_result = BIO_E_NOT_IDENTIFIED;
            self->NotifyClient(OP_TYPE_VERIFYUSER_END);
        } else {
            // A device failure, or the cancel that ends the wait: the loop ends and nobody is told.
            VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)",
                     u"IdentifyCallback:DEVICE_ERROR");
            self->m_result = BIO_E_DEVICE;
            self->m_keepRunning = false;
        }
        return;
    }

    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)",
             u"Got avalidable fingprint, checking ...");
    LPWSTR sidText = nullptr;
    VELQUserInfo* finding = nullptr;
    if (identity != nullptr && ConvertSidToStringSidW(identity->Value.AccountSid.Data, &sidText) != FALSE) {
        self->m_userInfo = nullptr;
        VELQ_LOG(DBG_LEVEL_TRC, u" (AsynBioOperation::IdentifyCallback)", u"%s = %s", u"sidStr", sidText);
        const std::u16string sid(sidText);
        for (VELQUserInfo* user : *users) {
            if (user != nullptr && user->getVELQSID() == sid) {
                const std::u16string name = user->getUserName();
                VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)",
                         u"Fingerprint belong to Username = %s SID = %s", name.c_str(), sidText);
                finding = user;
                break;
            }
        }
        LocalFree(sidText);
    } else {
        self->m_userInfo = nullptr;
    }

    if (finding == nullptr) {
        VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)",
                 u"Fingerprint not belong to any user.");
        self->m_result = BIO_E_NOT_IDENTIFIED;
        self->NotifyClient(OP_TYPE_VERIFYUSER_END);
        return;
    }
    const std::u16string name = finding->getUserName();
    VELQ_LOG(DBG_LEVEL_INF, u" (AsynBioOperation::IdentifyCallback)", u"Fingerprint belong to user: %s",
             name.c_str());
    self->m_result = 0;
    self->m_userInfo = finding;
    self->NotifyClient(OP_TYPE_VERIFYUSER_END);
}
