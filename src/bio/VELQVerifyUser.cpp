#include "bio/VELQVerifyUser.h"

#include <new>
#include <string>

#include "bio/FPWaitDialog.h"
#include "common/VELQBioOperation.h"
#include "common/VELQUserInfo.h"
#include "diag/DbgLog.h"
#include "plat/foreground.h"
#include "plat/sync.h"
#include "plat/threads.h"
#include "plat/ui.h"
#include "plat/winbio.h"
#include "ui/KelMsgBox.h"

namespace {

void setCursor(plat::DWORD id) {
    plat::SetCursor(plat::LoadCursorW(nullptr, id));
}

void showMessage(plat::UINT textId, plat::UINT captionId, plat::UINT flags) {
    setCursor(plat::IDC_ARROW);
    kelMsgBox(textId, captionId, flags, plat::GetForegroundWindow(), nullptr);
}

}  // namespace

VELQVerifyUser::VELQVerifyUser(plat::HWND parentWindow, bool keepTrying)
    : m_keepTrying(keepTrying),
      m_verified(plat::FALSE),
      m_cancelled(plat::FALSE),
      m_hParentWnd(parentWindow),
      m_waitDialog(nullptr) {}

VELQVerifyUser::~VELQVerifyUser() {
    delete m_waitDialog;
    m_waitDialog = nullptr;
}

plat::BOOL VELQVerifyUser::initBIODevice() {
    if (m_bioOp.openSession(BIO_APP_TYPE_VERIFY) != 0) {
        return plat::FALSE;
    }
    m_bioOp.setClient(nullptr, nullptr);
    if (m_waitDialog == nullptr) {
        m_waitDialog = new (std::nothrow) CFPWaitDialog();
    }
    return m_waitDialog != nullptr ? plat::TRUE : plat::FALSE;
}

plat::HRESULT VELQVerifyUser::hasFingerPrints(plat::ULONG* pCount) {
    VELQUserInfo* user = VELQUserInfoManager::getCurrentProcessOwner();
    if (user == nullptr) {
        return 1;
    }
    const std::u16string name = user->getUserName();
    VELQ_LOG(DBG_LEVEL_INF, u" (VELQVerifyUser::hasFingerPrints)", u"hasFingerPrints : pUserInfo = %s",
             name.c_str());
    user->load(0);
    VELQBioOperation* service = m_bioOp.getBioOperation();
    if (service == nullptr) {
        return plat::E_POINTER;
    }
    plat::ULONG fingers[10] = {};
    return service->getEnrolledFingers(user, 10, fingers, pCount);
}

plat::BOOL VELQVerifyUser::verifyUser(plat::BOOL* pCancelled, plat::BOOL* pVerified) {
    setCursor(plat::IDC_WAIT);
    plat::ULONG count = 0;
    const plat::HRESULT hr = hasFingerPrints(&count);
    VELQ_LOG(DBG_LEVEL_INF, u" (VELQVerifyUser::verifyUser)", u"hasFingerPrints hr = 0x%x finger count = %d",
             static_cast<unsigned>(hr), static_cast<int>(count));
    if (hr == plat::WINBIO_E_ENROLLMENT_IN_PROGRESS || hr < 0 || count == 0 || m_waitDialog == nullptr) {
        if (hr == plat::WINBIO_E_ENROLLMENT_IN_PROGRESS) {
            showMessage(kMsgEnrollmentBusy, kCaptionWarning, plat::MB_ICONWARNING);
        } else {
            showMessage(kMsgEnrollFingers, kCaptionError, plat::MB_ICONERROR);
        }
        *pCancelled = plat::TRUE;
        *pVerified = plat::FALSE;
        return plat::FALSE;
    }
    startVerify();
    setCursor(plat::IDC_ARROW);
    const plat::HANDLE worker = m_bioOp.getThreadHandle();
    if (worker != nullptr) {
        plat::WaitForSingleObject(worker, plat::INFINITE);
    }
    m_waitDialog->closeAndWait();
    *pCancelled = m_cancelled.load();
    *pVerified = m_verified.load();
    return plat::TRUE;
}

plat::BOOL VELQVerifyUser::startVerify() {
    m_waitDialog->startThread(kWindowIcon, m_hParentWnd);
    m_waitDialog->setCloseCallback(&VELQVerifyUser::onWaitWindowClosed, this);
    m_waitDialog->ShowWaitUI(false);
    std::lock_guard<std::mutex> lock(m_startGuard);
    if (m_cancelled.load()) {
        // The window went before the worker could start: nothing would be left to end its wait.
        VELQ_LOG(DBG_LEVEL_INF, u" (VELQVerifyUser::startVerify)", u"The wait ended before it began");
        return plat::TRUE;
    }
    m_bioOp.setClient(&VELQVerifyUser::VerifyUserProc, this);
    m_bioOp.verifyUser(m_keepTrying);
    return plat::TRUE;
}

plat::HRESULT VELQVerifyUser::VerifyUserProc(int type, AsynBioOperation* op, void* context) {
    if (type != OP_TYPE_VERIFYUSER_END || op == nullptr || context == nullptr) {
        return 0;
    }
    static_cast<VELQVerifyUser*>(context)->_onSample(op);
    return 0;
}

void VELQVerifyUser::_showRefusal() {
    m_waitDialog->setImage(CFPWaitDialog::kPictureRefused);
    plat::Sleep(kPictureMs);
    m_waitDialog->setImage(CFPWaitDialog::kPictureFinger);
}

void VELQVerifyUser::_onSample(AsynBioOperation* op) {
    const plat::HRESULT result = op->getResult();
    VELQUserInfo* user = op->getUserInfo();
    if (result == BIO_E_NOT_IDENTIFIED) {
        _showRefusal();
        return;
    }
    if (result != 0 || user == nullptr) {
        return;
    }
    VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner();
    const std::u16string fingerUser = user->getDomainUserName();
    const std::u16string ownerUser = owner != nullptr ? owner->getDomainUserName() : std::u16string();
    if (owner != nullptr && fingerUser == ownerUser) {
        VELQ_LOG(DBG_LEVEL_INF, u" (VELQVerifyUser::VerifyUserProc)", u"User matched. User: %s",
                 fingerUser.c_str());
        m_waitDialog->setImage(CFPWaitDialog::kPictureMatched);
        plat::Sleep(kPictureMs);
        // After the pause: a close that came during it is overruled by the match.
        m_verified.store(plat::TRUE);
        m_cancelled.store(plat::FALSE);
        m_bioOp.setThreadAutoEnd();
        m_waitDialog->hide();
        return;
    }
    VELQ_LOG(DBG_LEVEL_INF, u" (VELQVerifyUser::VerifyUserProc)",
             u"User not match. Fingerprint user: %s, Current user: %s", fingerUser.c_str(),
             ownerUser.c_str());
    _showRefusal();
}

int VELQVerifyUser::onWaitWindowClosed(void* context) {
    if (context == nullptr) {
        return 0;
    }
    auto* self = static_cast<VELQVerifyUser*>(context);
    std::lock_guard<std::mutex> lock(self->m_startGuard);
    if (!self->m_verified.load()) {
        self->m_verified.store(plat::FALSE);
        self->m_cancelled.store(plat::TRUE);
    }
    self->m_bioOp.setThreadAutoEnd();
    return 0;
}

plat::BOOL VELQVerifyUser::stopBIODevice() {
    VELQ_LOG(DBG_LEVEL_INF, u" (VELQVerifyUser::stopBIODevice)", u"Enter stopBIODevice");
    m_bioOp.setClient(nullptr, nullptr);
    m_bioOp.cancelOperation();
    m_bioOp.closeSession();
    VELQ_LOG(DBG_LEVEL_INF, u" (VELQVerifyUser::stopBIODevice)", u"Exit stopBIODevice");
    return plat::TRUE;
}
