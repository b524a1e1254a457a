// VELQBioOperation: the common component's biometric service object. The engine (AsynBioOperation)
// creates one, tells it the session it opened, and asks it how many fingers a user has enrolled.
#pragma once

#include "plat/types.h"
#include "plat/winbio.h"

class VELQUserInfo;

class VELQBioOperation {
public:
    // A new service object for the application type `appType` (20 for verification). The caller owns it
    // and deletes it. Null only when memory runs out.
    static VELQBioOperation* createBioOperation(unsigned char appType);

    VELQBioOperation(const VELQBioOperation&) = delete;
    VELQBioOperation& operator=(const VELQBioOperation&) = delete;
    virtual ~VELQBioOperation();

    // The application type this object was created for.
    virtual unsigned char getAppType() const;

    // Remembers the open session `session` on unit `unitId` (0: forget the session). The object never
    // closes it: the session stays its opener's. Always 0.
    virtual long attachSession(plat::WINBIO_SESSION_HANDLE session, plat::WINBIO_UNIT_ID unitId,
                               plat::BOOL isAdministrator);

    // The fingers of `user` that the biometric backend knows: up to `maxFingers` sub-factors go to
    // `fingers` (which must hold that many words), their number to *count. Asks on the attached session;
    // without one it opens a session of its own for the question and closes it again. Results: 0 (a count
    // of 0 means no template); WINBIO_E_ENROLLMENT_IN_PROGRESS (0x80098007) while another enrollment
    // runs; E_POINTER for a null argument; E_INVALIDARG for a user whose SID text is not valid; any
    // failure of the backend's calls as it came. *count is 0 on every failure.
    virtual long getEnrolledFingers(VELQUserInfo* user, plat::ULONG maxFingers, plat::ULONG* fingers,
                                    plat::ULONG* count);

protected:
    explicit VELQBioOperation(unsigned char appType);

private:
    long _enumerateOnSession(plat::WINBIO_SESSION_HANDLE session, plat::WINBIO_UNIT_ID unitId,
                             VELQUserInfo* user, plat::ULONG maxFingers, plat::ULONG* fingers,
                             plat::ULONG* count);

    unsigned char m_appType;
    plat::WINBIO_SESSION_HANDLE m_sessionHandle;
    plat::WINBIO_UNIT_ID m_unitId;
    plat::BOOL m_isAdministrator;
};
