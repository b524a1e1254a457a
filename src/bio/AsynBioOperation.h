// AsynBioOperation: one session with the biometric framework and one biometric operation at a time on a
// worker thread of its own, each sample reported to one registered client.
//
// Threads (see also the comments of each call):
//   caller            constructor, openSession, verifyUser (and the other starters), setClient,
//                     cancelOperation, closeSession, destructor
//   worker            ThreadCallback/ThreadProc: locks the unit, arms one sample after the other and waits
//   framework thread  the static callbacks, NotifyClient, and through the client setThreadAutoEnd
//   window thread     setThreadAutoEnd through the wait window's close handler
//
// The client is called with m_lock held, one notification at a time. It may call back into the object on
// the same thread (setThreadAutoEnd, getResult, getUserInfo, getNotifyData). Inside a notification the
// client reads getResult and getUserInfo as the callback has just written them.
//
// The object must outlive its worker: the owner waits for getThreadHandle() to be signalled, then calls
// cancelOperation and closeSession, and only then destroys the object. The destructor closes no session.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "bio/FPThreadEvent.h"
#include "plat/types.h"
#include "plat/winbio.h"

class AsynBioOperation;
class VELQBioOperation;
class VELQUserInfo;

// What the worker is to do (m_opType), and the type of a notification.
enum BioOperationType : std::int32_t {
    OP_TYPE_NULL = 0,            // worker: only notify and end; notification: null or unknown operation
    OP_TYPE_VERIFYUSER = 1,      // worker: identify in a loop
    OP_TYPE_VERIFYUSER_END = 2,  // notification after each sample of an identification or event monitor
    OP_TYPE_ENROLL = 3,          // worker: enroll m_userInfo; notification after each enrollment sample
    OP_TYPE_ENROLL_END = 4,      // notification once, when an enrollment has ended
    OP_TYPE_IMAGE = 5,           // worker: repeated capture; notification after each capture sample
    OP_TYPE_IMAGE_END = 6,       // notification when a capture stops on an error
    OP_TYPE_EVENT_IDENTIFY = 7,  // worker: event monitor in a loop
};

// Results stored in m_result or returned, beside 0 (success).
inline constexpr plat::HRESULT BIO_E_NOT_IDENTIFIED = static_cast<plat::HRESULT>(0x80040289);
inline constexpr plat::HRESULT BIO_E_DEVICE = static_cast<plat::HRESULT>(0x8004028A);
inline constexpr plat::HRESULT BIO_E_FAILED = static_cast<plat::HRESULT>(0x8004028E);
inline constexpr plat::HRESULT BIO_E_ENROLL_BUSY = static_cast<plat::HRESULT>(0x80040288);
inline constexpr plat::HRESULT BIO_E_ACCESS_DENIED = static_cast<plat::HRESULT>(0x80040266);
inline constexpr plat::HRESULT BIO_E_DUPLICATE = static_cast<plat::HRESULT>(0x8004028D);
inline constexpr plat::HRESULT BIO_E_ENROLL_FAILED = static_cast<plat::HRESULT>(0x8004028F);

// The application type of a verification, and the one that asks for the maintenance flag.
inline constexpr unsigned char BIO_APP_TYPE_VERIFY = 20;
inline constexpr unsigned char BIO_APP_TYPE_MAINTENANCE = 30;

// The last sample's details, written by the callbacks.
struct BioNotifyData {
    plat::DWORD m_feedBack = 50;   // WINBIO_REJECT_DETAIL of the last sample; 50 until a sample came
    plat::DWORD m_enrollDone = 0;  // 1 when an enrollment has just completed
    plat::DWORD m_bitmapSize = 0;
    plat::DWORD m_pBitmap = 0;

    void setFeedBack(plat::DWORD feedBack) { m_feedBack = feedBack; }
    void setEnrollDone(plat::DWORD done) { m_enrollDone = done; }
};

// The client: the notification's type, the object and the registered context. Its result is not read.
using BioClientProc = plat::HRESULT (*)(int type, AsynBioOperation* op, void* context);

class AsynBioOperation {
public:
    // Unit 1, no session, no client, OP_TYPE_NULL; makes the notification lock (a failure is ignored:
    // the lock is made again at its first use).
    AsynBioOperation();
    // Clears the client and the pointers, frees the notification data and the service object, closes the
    // lock. Closes no session and waits for no thread: see the header comment.
    ~AsynBioOperation();
    AsynBioOperation(const AsynBioOperation&) = delete;
    AsynBioOperation& operator=(const AsynBioOperation&) = delete;

    // Opens the session (caller thread). Creates the service object if there is none yet. 0 on success;
    // E_POINTER without a process owner; BIO_E_FAILED when biometrics are disabled or the setting is
    // invalid (the owner's stored fingerprint count is refreshed first); BIO_E_DEVICE when no sensor is
    // found or the session cannot be opened. Pass BIO_APP_TYPE_VERIFY.
    plat::HRESULT openSession(unsigned char appType);

    // Starts the worker for OP_TYPE_VERIFYUSER: it identifies sample after sample while `keepRunning`
    // stays true (false: it locks and unlocks the unit and ends without a read). E_POINTER without a
    // service object (no worker). Otherwise 0; a worker that could not start leaves no thread handle and
    // OP_TYPE_NULL. Call once per verification, after openSession.
    plat::HRESULT verifyUser(bool keepRunning);

    // Operations of our own after the pattern of verifyUser; same results and same end (cancel, then
    // wait for the thread). enrollFinger: enrolls finger position `subFactor` of `user` (not owned; must
    // outlive the worker); E_POINTER for a null user. captureImage: captures samples repeatedly while
    // `keepRunning` stays true, never keeping one. identifyByEvent: reports each touch of the process
    // owner through the event monitor until setThreadAutoEnd.
    plat::HRESULT enrollFinger(VELQUserInfo* user, unsigned char subFactor);
    plat::HRESULT captureImage(bool keepRunning);
    plat::HRESULT identifyByEvent();

    // Registers the client, or clears it with two nulls; any thread. Always 0. The pair is read and
    // written whole, so a notification never calls a half-cleared client or a null one; a notification
    // that read the old client just before this call may still run it once (never after the worker's
    // WinBioWait has returned, since that outlasts every callback).
    plat::HRESULT setClient(BioClientProc callback, void* context);

    // Lets the worker end after the sample in progress: clears m_keepRunning and the client and cancels
    // what is pending. Any thread, the client's own notification included. 0, or BIO_E_FAILED when the
    // cancel failed. Once the worker runs, an end asked for here is never lost, even while the worker is
    // between two samples. Starting a worker (verifyUser and the others) sets m_keepRunning anew: an
    // owner whose wait may have been ended before the start calls this again after the start.
    plat::HRESULT setThreadAutoEnd();

    // Cancels the operation and, once the worker has ended, closes its handle (caller thread). A worker
    // still running keeps its handle and only loses its client. Always 0.
    plat::HRESULT cancelOperation();

    // Cancels and ends the session (caller thread). Always 0; a failure is logged and leaves the session
    // open.
    plat::HRESULT closeSession();

    plat::HRESULT getResult() const { return m_result.load(); }
    // The user of the last identified sample (owned by VELQUserInfoManager), null otherwise.
    VELQUserInfo* getUserInfo() const { return m_userInfo.load(); }
    VELQBioOperation* getBioOperation() const { return m_bioOperation.get(); }
    // The last sample's details; null before the first sample. Read it inside a notification only.
    const BioNotifyData* getNotifyData() const { return m_notifyData.get(); }
    // The worker's handle (waitable; signalled when it has ended), null when none was started or
    // cancelOperation has closed it. It stays owned by this object.
    plat::HANDLE getThreadHandle() const { return m_hBioThread; }
    plat::WINBIO_SESSION_HANDLE getSessionHandle() const { return m_sessionHandle; }
    plat::WINBIO_UNIT_ID getUnitId() const { return m_unitId; }

    // Refreshes the stored fingerprint count of `user` from the service object and saves it. 0;
    // BIO_E_FAILED for a user without a name; E_POINTER for a null user or no service object.
    plat::HRESULT updateUserTemplatesCount(VELQUserInfo* user);

    // The platform calls, logged; they give the platform's result.
    static plat::HRESULT LockWinBioUnit(plat::WINBIO_SESSION_HANDLE session, plat::WINBIO_UNIT_ID unitId);
    static plat::HRESULT UnlockWinBioUnit(plat::WINBIO_SESSION_HANDLE session, plat::WINBIO_UNIT_ID unitId);

    // Delivers one notification of `type` to the client, under m_lock.
    void NotifyClient(int type);
    // One log line naming `type`.
    static void LogNotifyClientType(int type);
    // One ERR log line with the text of a negative `hr` (nothing for 0 or positive ones); gives `hr`, or
    // 0 when nothing was logged.
    static plat::HRESULT LogWinBioErrors(plat::HRESULT hr);
    // The text LogWinBioErrors writes for a negative `hr`.
    static const char16_t* winBioErrorText(plat::HRESULT hr);

    // The callbacks of the framework; `context` is the object (nothing is done when it is null).
    static void IdentifyCallback(void* context, plat::HRESULT OperationStatus, plat::WINBIO_UNIT_ID unitId,
                                 plat::WINBIO_IDENTITY* identity, plat::WINBIO_BIOMETRIC_SUBTYPE subFactor,
                                 plat::WINBIO_REJECT_DETAIL RejectDetail);
    static void EventMonitorCallback(void* context, plat::HRESULT OperationStatus, plat::WINBIO_EVENT* event);
    static void EnrollCallback(void* context, plat::HRESULT OperationStatus,
                               plat::WINBIO_REJECT_DETAIL RejectDetail);
    static void CaptureEnrollCallback(void* context, plat::HRESULT OperationStatus,
                                      plat::WINBIO_REJECT_DETAIL RejectDetail);

    // The worker's entry (`arg` is the object) and body.
    static unsigned ThreadCallback(void* arg);
    unsigned ThreadProc();

private:
    struct Client {
        BioClientProc callback = nullptr;
        void* context = nullptr;
    };

    Client _client() const;
    plat::HRESULT _startWorker(BioOperationType opType, bool keepRunning);
    BioNotifyData& _notifyData();
    void _cancelIfEnded();
    void _runVerifyUser();
    void _runEnroll();
    void _runImage();
    void _runEventIdentify();
    plat::HRESULT _enrollBeginResult(plat::HRESULT hr) const;
    static bool _isAdministrator();

    plat::HANDLE m_hBioThread;
    plat::WINBIO_SESSION_HANDLE m_sessionHandle;
    plat::WINBIO_UNIT_ID m_unitId;
    unsigned char m_appType;
    // The client pair, read and written together under m_clientGuard so that a call never sees half.
    mutable std::mutex m_clientGuard;
    Client m_client;
    // Written only by the framework thread's callbacks; freed by the destructor.
    std::unique_ptr<BioNotifyData> m_notifyData;
    std::atomic<plat::HRESULT> m_result;
    std::unique_ptr<VELQBioOperation> m_bioOperation;
    std::atomic<std::int32_t> m_opType;
    std::vector<VELQUserInfo*>* m_pUserInfoList;
    std::atomic<VELQUserInfo*> m_userInfo;
    unsigned char m_subFactor;
    std::atomic<bool> m_threadRunning;
    std::atomic<bool> m_keepRunning;
    CFPThreadEvent m_lock;
};
