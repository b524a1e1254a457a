// VELQVerifyUser: the fingerprint gate. One object serves one verification: initBIODevice, verifyUser
// (through VELQAssistant::verifyUserInTurn), stopBIODevice, destructor, in this order on one thread.
//
// The gate passes only for a finger that identifies the very user who owns the process; any other finger,
// however often, shows the refusal picture and the sensor reads on. The wait has no limit and no time-out:
// it ends by a match, by the wait window going away (the person, a session or power event) or by a failure
// of the sensor.
//
// Threads: the caller's (the public calls), the window thread (onWaitWindowClosed), the biometric worker
// and the framework's callback thread (VerifyUserProc). The object must outlive the worker and the window
// thread; verifyUser returns only after both have ended.
#pragma once

#include <atomic>
#include <mutex>

#include "bio/AsynBioOperation.h"
#include "plat/types.h"

class CFPWaitDialog;

class VELQVerifyUser {
public:
    // Texts shown by the gate (message id, caption id).
    static constexpr plat::UINT kMsgSensorFailed = 1059;
    static constexpr plat::UINT kMsgEnrollFingers = 1060;
    static constexpr plat::UINT kMsgEnrollmentBusy = 1065;
    static constexpr plat::UINT kCaptionError = 1018;
    static constexpr plat::UINT kCaptionWarning = 1019;
    // The wait window's icon.
    static constexpr plat::UINT kWindowIcon = 12;
    // How long the tick and the cross stay.
    static constexpr plat::DWORD kPictureMs = 600;

    // `parentWindow` owns the wait window (the program passes null); `keepTrying`: read sample after
    // sample until the wait ends (the program passes true).
    VELQVerifyUser(plat::HWND parentWindow, bool keepTrying);
    // Deletes the wait window (joining its thread), then the engine.
    ~VELQVerifyUser();
    VELQVerifyUser(const VELQVerifyUser&) = delete;
    VELQVerifyUser& operator=(const VELQVerifyUser&) = delete;

    // Opens the biometric session for a verification and prepares the wait window. FALSE when the sensor
    // cannot be used (biometrics disabled, no unit, no session, no process owner) or the window object
    // cannot be made. Call once, before verifyUser.
    plat::BOOL initBIODevice();

    // Runs the whole wait and blocks until it is over. FALSE, with *pCancelled TRUE and *pVerified FALSE,
    // after showing message 1065 (another enrollment runs) or 1060 (the owner has no enrolled finger, or
    // the count cannot be had); then no window appears. Otherwise TRUE, with *pVerified TRUE and
    // *pCancelled FALSE only when a finger of the process owner was read.
    plat::BOOL verifyUser(plat::BOOL* pCancelled, plat::BOOL* pVerified);

    // Clears the client, cancels and closes the session. TRUE always; harmless on an idle session.
    plat::BOOL stopBIODevice();

    // The process owner's enrolled fingers into *pCount: the result of getEnrolledFingers (0x80098007
    // while another enrollment runs), 1 without a process owner (the count stays), E_POINTER without the
    // biometric service object.
    plat::HRESULT hasFingerPrints(plat::ULONG* pCount);

    // Shows the window (close handler set first), then starts the worker, unless the window has already
    // gone: then the wait is over before it began. TRUE always.
    plat::BOOL startVerify();

    // The engine's client (context: this object): judges each identified sample. 0 always.
    static plat::HRESULT VerifyUserProc(int type, AsynBioOperation* op, void* context);
    // The wait window's close handler (context: this object): a window gone before a match cancels. 0.
    static int onWaitWindowClosed(void* context);

    CFPWaitDialog* getWaitDialog() const { return m_waitDialog; }

private:
    void _onSample(AsynBioOperation* op);
    void _showRefusal();

    bool m_keepTrying;
    // Written by the callback thread and the window thread; read by the caller once both have ended.
    std::atomic<plat::BOOL> m_verified;
    std::atomic<plat::BOOL> m_cancelled;
    plat::HWND m_hParentWnd;
    CFPWaitDialog* m_waitDialog;
    AsynBioOperation m_bioOp;
    // Keeps the start of the worker and the window's close handler apart, so a window that goes while
    // the worker starts cannot leave a worker that nothing ends.
    std::mutex m_startGuard;
};
