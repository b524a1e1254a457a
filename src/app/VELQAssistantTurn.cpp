#include "app/VELQAssistant.h"
#include "bio/VELQVerifyUser.h"
#include "diag/DbgLog.h"
#include "plat/handle.h"
#include "plat/sync.h"

namespace {

// The turn event of this process: kept open until the process ends, so that the signal it leaves
// behind stays for the next process.
plat::HANDLE g_hAssistantEvent = nullptr;

}  // namespace

plat::BOOL VELQAssistant::verifyUserInTurn(VELQVerifyUser* verifyUser) {
    if (verifyUser == nullptr) {
        return plat::FALSE;
    }
    bool bOtherFirst = false;
    const plat::HANDLE hEvent = _openAssistantEvent(&bOtherFirst);
    if (hEvent != nullptr && bOtherFirst) {
        VELQ_LOG(DBG_LEVEL_INF, u" (VELQAssistant::verifyUserInTurn)", u"Waiting for the verification turn");
        plat::WaitForSingleObject(hEvent, plat::INFINITE);
    }
    plat::BOOL bCancelled = plat::FALSE;
    plat::BOOL bVerified = plat::FALSE;
    const plat::BOOL bResult = verifyUser->verifyUser(&bCancelled, &bVerified);
    const plat::BOOL bPassed = (bResult && !bCancelled && bVerified) ? plat::TRUE : plat::FALSE;
    if (hEvent != nullptr) {
        plat::SetEvent(hEvent);
        if (g_hAssistantEvent != nullptr) {
            plat::CloseHandle(g_hAssistantEvent);  // a second verification in one process keeps one handle
        }
        g_hAssistantEvent = hEvent;
    }
    return bPassed;
}
