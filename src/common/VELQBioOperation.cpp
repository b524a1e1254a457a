// The biometric service object: it knows the session the engine opened and answers how many fingers a
// user has enrolled, by asking the biometric backend itself (never a stored count).
#include "common/VELQBioOperation.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/VELQUserInfo.h"
#include "plat/security.h"

using namespace plat;

namespace {

// The account identity of `sidText`, for WinBioEnumEnrollments.
bool identityOfSid(const std::u16string& sidText, WINBIO_IDENTITY& identity) {
    PSID sid = nullptr;
    if (ConvertStringSidToSidW(sidText.c_str(), &sid) == FALSE) {
        return false;
    }
    const DWORD length = GetLengthSid(sid);
    const bool fits = length > 0 && length <= SECURITY_MAX_SID_SIZE;
    if (fits) {
        identity = WINBIO_IDENTITY{};
        identity.Type = WINBIO_ID_TYPE_SID;
        identity.Value.AccountSid.Size = length;
        std::memcpy(identity.Value.AccountSid.Data, sid, length);
    }
    LocalFree(sid);
    return fits;
}

// The unit that the engine would use: the last fingerprint unit of the enumeration; 0 when none.
WINBIO_UNIT_ID lastFingerprintUnit() {
    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T count = 0;
    const HRESULT hr = WinBioEnumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count);
    WINBIO_UNIT_ID unit = 0;
    if (hr >= 0 && count > 0 && units != nullptr) {
        unit = units[count - 1].UnitId;
    }
    if (units != nullptr) {
        WinBioFree(units);
    }
    return unit;
}

}  // namespace

VELQBioOperation* VELQBioOperation::createBioOperation(unsigned char appType) {
    return new (std::nothrow) VELQBioOperation(appType);
}

VELQBioOperation::VELQBioOperation(unsigned char appType)
    : m_appType(appType), m_sessionHandle(0), m_unitId(0), m_isAdministrator(FALSE) {}

VELQBioOperation::~VELQBioOperation() = default;

unsigned char VELQBioOperation::getAppType() const {
    return m_appType;
}

long VELQBioOperation::attachSession(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unitId,
                                     BOOL isAdministrator) {
    m_sessionHandle = session;
    m_unitId = session != 0 ? unitId : 0;
    m_isAdministrator = isAdministrator;
    return 0;
}

long VELQBioOperation::getEnrolledFingers(VELQUserInfo* user, ULONG maxFingers, ULONG* fingers,
                                          ULONG* count) {
    if (count == nullptr) {
        return E_POINTER;
    }
    *count = 0;
    if (user == nullptr || (fingers == nullptr && maxFingers > 0)) {
        return E_POINTER;
    }
    if (m_sessionHandle != 0) {
        return _enumerateOnSession(m_sessionHandle, m_unitId, user, maxFingers, fingers, count);
    }
    // Asked before the engine opened its session (biometrics disabled): a short session of our own.
    WINBIO_SESSION_HANDLE session = 0;
    const HRESULT opened = WinBioOpenSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, WINBIO_FLAG_DEFAULT,
                                             nullptr, 0, WINBIO_DB_DEFAULT, &session);
    if (opened < 0) {
        return opened;
    }
    const long hr = _enumerateOnSession(session, lastFingerprintUnit(), user, maxFingers, fingers, count);
    WinBioCloseSession(session);
    return hr;
}

long VELQBioOperation::_enumerateOnSession(WINBIO_SESSION_HANDLE session, WINBIO_UNIT_ID unitId,
                                           VELQUserInfo* user, ULONG maxFingers, ULONG* fingers,
                                           ULONG* count) {
    WINBIO_IDENTITY identity{};
    if (!identityOfSid(user->getVELQSID(), identity)) {
        return E_INVALIDARG;
    }
    WINBIO_BIOMETRIC_SUBTYPE* subFactors = nullptr;
    SIZE_T found = 0;
    const HRESULT hr = WinBioEnumEnrollments(session, unitId, &identity, &subFactors, &found);
    if (hr >= 0) {
        const SIZE_T kept = std::min<SIZE_T>(found, maxFingers);
        for (SIZE_T i = 0; i < kept; ++i) {
            fingers[i] = subFactors[i];
        }
        *count = static_cast<ULONG>(kept);
    }
    if (subFactors != nullptr) {
        WinBioFree(subFactors);
    }
    return hr;
}
