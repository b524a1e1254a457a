// The biometric framework's client calls, records and codes (the Windows values). The process's WinBio
// backend (VELQ_WINBIO) carries them out:
//   sim   the simulated sensor, driven by the file VELQ_WINBIO_SIM (a developer build option; a warning
//         is printed on stderr whenever it is active);
//   none  no sensor: the framework is enabled, enumeration finds no unit, and every call that needs a
//         sensor or a session fails (WINBIO_E_INVALID_UNIT, or E_HANDLE for a session handle).
// Unless a call says otherwise: a null out-pointer gives E_POINTER, an unknown session handle E_HANDLE.
// Callbacks run on a thread of the backend, never on the caller's, and only while the operation that
// armed them is pending; each pending operation ends with exactly one last callback (its result, or
// WINBIO_E_CANCELED after WinBioCancel or WinBioCloseSession).
#pragma once

#include <cstddef>

#include "plat/guid.h"
#include "plat/security.h"
#include "plat/types.h"

namespace plat {

using BOOLEAN = BYTE;
using SIZE_T = std::size_t;
using WINBIO_SESSION_HANDLE = ULONG;
using WINBIO_UNIT_ID = ULONG;
using WINBIO_BIOMETRIC_TYPE = ULONG;
using WINBIO_POOL_TYPE = ULONG;
using WINBIO_SESSION_FLAGS = ULONG;
using WINBIO_BIOMETRIC_SUBTYPE = BYTE;
using WINBIO_BIOMETRIC_SENSOR_SUBTYPE = ULONG;
using WINBIO_CAPABILITIES = ULONG;
using WINBIO_REJECT_DETAIL = ULONG;
using WINBIO_EVENT_TYPE = ULONG;
using WINBIO_SETTING_SOURCE_TYPE = ULONG;
using WINBIO_IDENTITY_TYPE = ULONG;
using WINBIO_STRING = WCHAR[256];

inline constexpr WINBIO_BIOMETRIC_TYPE WINBIO_TYPE_FINGERPRINT = 0x00000008;
inline constexpr WINBIO_POOL_TYPE WINBIO_POOL_SYSTEM = 1;
inline constexpr WINBIO_POOL_TYPE WINBIO_POOL_PRIVATE = 2;
inline constexpr WINBIO_SESSION_FLAGS WINBIO_FLAG_DEFAULT = 0x00000000;
inline constexpr WINBIO_SESSION_FLAGS WINBIO_FLAG_RAW = 0x00000001;
inline constexpr WINBIO_SESSION_FLAGS WINBIO_FLAG_MAINTENANCE = 0x00000002;
// The database argument of WinBioOpenSession: the pool's default database, as in the Windows header.
inline GUID* const WINBIO_DB_DEFAULT = reinterpret_cast<GUID*>(static_cast<std::uintptr_t>(1));

inline constexpr WINBIO_SETTING_SOURCE_TYPE WINBIO_SETTING_SOURCE_INVALID = 0;
inline constexpr WINBIO_SETTING_SOURCE_TYPE WINBIO_SETTING_SOURCE_DEFAULT = 1;
inline constexpr WINBIO_SETTING_SOURCE_TYPE WINBIO_SETTING_SOURCE_POLICY = 2;
inline constexpr WINBIO_SETTING_SOURCE_TYPE WINBIO_SETTING_SOURCE_LOCAL = 3;

inline constexpr WINBIO_IDENTITY_TYPE WINBIO_ID_TYPE_NULL = 0;
inline constexpr WINBIO_IDENTITY_TYPE WINBIO_ID_TYPE_WILDCARD = 1;
inline constexpr WINBIO_IDENTITY_TYPE WINBIO_ID_TYPE_GUID = 2;
inline constexpr WINBIO_IDENTITY_TYPE WINBIO_ID_TYPE_SID = 3;

inline constexpr WINBIO_BIOMETRIC_SUBTYPE WINBIO_SUBTYPE_NO_INFORMATION = 0x00;
inline constexpr WINBIO_BIOMETRIC_SUBTYPE WINBIO_ANSI_381_POS_RH_INDEX_FINGER = 0x02;
inline constexpr WINBIO_BIOMETRIC_SUBTYPE WINBIO_SUBTYPE_ANY = 0xFF;

inline constexpr WINBIO_EVENT_TYPE WINBIO_EVENT_FP_UNCLAIMED = 0x00000001;
inline constexpr WINBIO_EVENT_TYPE WINBIO_EVENT_FP_UNCLAIMED_IDENTIFY = 0x00000002;
inline constexpr WINBIO_EVENT_TYPE WINBIO_EVENT_ERROR = 0xFFFFFFFF;

inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_HIGH = 1;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_LOW = 2;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_LEFT = 3;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_RIGHT = 4;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_FAST = 5;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_SLOW = 6;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_POOR_QUALITY = 7;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_SKEWED = 8;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_TOO_SHORT = 9;
inline constexpr WINBIO_REJECT_DETAIL WINBIO_FP_MERGE_FAILURE = 10;

// Result codes besides those of plat/types.h.
constexpr HRESULT winbioCode(ULONG value) {
    return static_cast<HRESULT>(value);
}
inline constexpr HRESULT E_ACCESSDENIED = winbioCode(0x80070005);
inline constexpr HRESULT E_HANDLE = winbioCode(0x80070006);
inline constexpr HRESULT WINBIO_I_MORE_DATA = winbioCode(0x00090001);
inline constexpr HRESULT WINBIO_E_UNSUPPORTED_FACTOR = winbioCode(0x80098001);
inline constexpr HRESULT WINBIO_E_INVALID_UNIT = winbioCode(0x80098002);
inline constexpr HRESULT WINBIO_E_UNKNOWN_ID = winbioCode(0x80098003);
inline constexpr HRESULT WINBIO_E_CANCELED = winbioCode(0x80098004);
inline constexpr HRESULT WINBIO_E_NO_MATCH = winbioCode(0x80098005);
inline constexpr HRESULT WINBIO_E_CAPTURE_ABORTED = winbioCode(0x80098006);
inline constexpr HRESULT WINBIO_E_ENROLLMENT_IN_PROGRESS = winbioCode(0x80098007);
inline constexpr HRESULT WINBIO_E_BAD_CAPTURE = winbioCode(0x80098008);
inline constexpr HRESULT WINBIO_E_INVALID_CONTROL_CODE = winbioCode(0x80098009);
inline constexpr HRESULT WINBIO_E_DATA_COLLECTION_IN_PROGRESS = winbioCode(0x8009800B);
inline constexpr HRESULT WINBIO_E_UNSUPPORTED_DATA_FORMAT = winbioCode(0x8009800C);
inline constexpr HRESULT WINBIO_E_UNSUPPORTED_DATA_TYPE = winbioCode(0x8009800D);
inline constexpr HRESULT WINBIO_E_UNSUPPORTED_PURPOSE = winbioCode(0x8009800E);
inline constexpr HRESULT WINBIO_E_INVALID_DEVICE_STATE = winbioCode(0x8009800F);
inline constexpr HRESULT WINBIO_E_DEVICE_BUSY = winbioCode(0x80098010);
inline constexpr HRESULT WINBIO_E_DATABASE_CANT_CREATE = winbioCode(0x80098011);
inline constexpr HRESULT WINBIO_E_DATABASE_CANT_OPEN = winbioCode(0x80098012);
inline constexpr HRESULT WINBIO_E_DATABASE_CANT_CLOSE = winbioCode(0x80098013);
inline constexpr HRESULT WINBIO_E_DATABASE_CANT_ERASE = winbioCode(0x80098014);
inline constexpr HRESULT WINBIO_E_DATABASE_CANT_FIND = winbioCode(0x80098015);
inline constexpr HRESULT WINBIO_E_DATABASE_ALREADY_EXISTS = winbioCode(0x80098016);
inline constexpr HRESULT WINBIO_E_DATABASE_FULL = winbioCode(0x80098018);
inline constexpr HRESULT WINBIO_E_DATABASE_LOCKED = winbioCode(0x80098019);
inline constexpr HRESULT WINBIO_E_DATABASE_CORRUPTED = winbioCode(0x8009801A);
inline constexpr HRESULT WINBIO_E_DATABASE_NO_SUCH_RECORD = winbioCode(0x8009801B);
inline constexpr HRESULT WINBIO_E_DUPLICATE_ENROLLMENT = winbioCode(0x8009801C);
inline constexpr HRESULT WINBIO_E_DATABASE_READ_ERROR = winbioCode(0x8009801D);
inline constexpr HRESULT WINBIO_E_DATABASE_WRITE_ERROR = winbioCode(0x8009801E);
inline constexpr HRESULT WINBIO_E_DATABASE_NO_RESULTS = winbioCode(0x8009801F);
inline constexpr HRESULT WINBIO_E_DATABASE_NO_MORE_RECORDS = winbioCode(0x80098020);
inline constexpr HRESULT WINBIO_E_DATABASE_EOF = winbioCode(0x80098021);
inline constexpr HRESULT WINBIO_E_DATABASE_BAD_INDEX_VECTOR = winbioCode(0x80098022);
inline constexpr HRESULT WINBIO_E_INCORRECT_BSP = winbioCode(0x80098024);
inline constexpr HRESULT WINBIO_E_INCORRECT_SENSOR_POOL = winbioCode(0x80098025);
inline constexpr HRESULT WINBIO_E_NO_CAPTURE_DATA = winbioCode(0x80098026);
inline constexpr HRESULT WINBIO_E_INVALID_SENSOR_MODE = winbioCode(0x80098027);
inline constexpr HRESULT WINBIO_E_LOCK_VIOLATION = winbioCode(0x8009802A);
inline constexpr HRESULT WINBIO_E_DUPLICATE_TEMPLATE = winbioCode(0x8009802B);
inline constexpr HRESULT WINBIO_E_INVALID_OPERATION = winbioCode(0x8009802C);
inline constexpr HRESULT WINBIO_E_SESSION_BUSY = winbioCode(0x8009802D);
inline constexpr HRESULT WINBIO_E_CRED_PROV_DISABLED = winbioCode(0x80098030);
inline constexpr HRESULT WINBIO_E_CRED_PROV_NO_CREDENTIAL = winbioCode(0x80098031);
inline constexpr HRESULT WINBIO_E_DISABLED = winbioCode(0x80098032);
inline constexpr HRESULT WINBIO_E_CONFIGURATION_FAILURE = winbioCode(0x80098033);
inline constexpr HRESULT WINBIO_E_SENSOR_UNAVAILABLE = winbioCode(0x80098034);
inline constexpr HRESULT WINBIO_E_SAS_ENABLED = winbioCode(0x80098035);
inline constexpr HRESULT WINBIO_E_DEVICE_FAILURE = winbioCode(0x80098036);
inline constexpr HRESULT WINBIO_E_FAST_USER_SWITCH_DISABLED = winbioCode(0x80098037);
inline constexpr HRESULT WINBIO_E_NOT_ACTIVE_CONSOLE = winbioCode(0x80098038);
inline constexpr HRESULT WINBIO_E_EVENT_MONITOR_ACTIVE = winbioCode(0x80098039);
inline constexpr HRESULT WINBIO_E_INVALID_PROPERTY_TYPE = winbioCode(0x8009803A);
inline constexpr HRESULT WINBIO_E_INVALID_PROPERTY_ID = winbioCode(0x8009803B);
inline constexpr HRESULT WINBIO_E_UNSUPPORTED_PROPERTY = winbioCode(0x8009803C);
inline constexpr HRESULT WINBIO_E_ADAPTER_INTEGRITY_FAILURE = winbioCode(0x8009803D);

struct WINBIO_VERSION {
    DWORD MajorVersion;
    DWORD MinorVersion;
};

struct WINBIO_UNIT_SCHEMA {
    WINBIO_UNIT_ID UnitId;
    WINBIO_POOL_TYPE PoolType;
    WINBIO_BIOMETRIC_TYPE BiometricFactor;
    WINBIO_BIOMETRIC_SENSOR_SUBTYPE SensorSubType;
    WINBIO_CAPABILITIES Capabilities;
    WINBIO_STRING DeviceInstanceId;
    WINBIO_VERSION FirmwareVersion;
    WINBIO_STRING Description;
    WINBIO_STRING Manufacturer;
    WINBIO_STRING Model;
    WINBIO_STRING SerialNumber;
};

// Whose finger it was. For an account, Value.AccountSid holds the binary SID (plat/security.h) and its
// size; on POSIX that is "S-1-22-1-<uid>".
struct WINBIO_IDENTITY {
    WINBIO_IDENTITY_TYPE Type;
    union {
        ULONG Null;
        ULONG Wildcard;
        GUID TemplateGuid;
        struct {
            ULONG Size;
            BYTE Data[SECURITY_MAX_SID_SIZE];
        } AccountSid;
    } Value;
};

struct WINBIO_EVENT {
    WINBIO_EVENT_TYPE Type;
    union {
        struct {
            HRESULT ErrorCode;
        } Unclaimed;
        struct {
            HRESULT ErrorCode;
            WINBIO_IDENTITY Identity;
            WINBIO_BIOMETRIC_SUBTYPE SubFactor;
            WINBIO_REJECT_DETAIL RejectDetail;
        } UnclaimedIdentify;
        struct {
            HRESULT ErrorCode;
        } Error;
    } Parameters;
};

using PWINBIO_IDENTIFY_CALLBACK = void (*)(void* context, HRESULT operationStatus, WINBIO_UNIT_ID unitId,
                                           WINBIO_IDENTITY* identity, WINBIO_BIOMETRIC_SUBTYPE subFactor,
                                           WINBIO_REJECT_DETAIL rejectDetail);
using PWINBIO_ENROLL_CAPTURE_CALLBACK = void (*)(void* context, HRESULT operationStatus,
                                                 WINBIO_REJECT_DETAIL rejectDetail);
// The event belongs to the callback, which releases it with WinBioFree.
using PWINBIO_EVENT_CALLBACK = void (*)(void* context, HRESULT operationStatus, WINBIO_EVENT* event);

// Whether biometrics are enabled, and where that setting comes from. Void on Windows; here it gives
// S_OK, or a failure code (then *value is 0 and *source WINBIO_SETTING_SOURCE_INVALID).
HRESULT WinBioGetEnabledSetting(BOOLEAN* value, WINBIO_SETTING_SOURCE_TYPE* source);
// The units of `factor`: an array (release with WinBioFree; null when the count is 0) and its count.
// A factor without the fingerprint bit gives WINBIO_E_UNSUPPORTED_FACTOR.
HRESULT WinBioEnumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** unitSchemaArray,
                                 SIZE_T* unitCount);
// Opens a session on the fingerprint system pool (the only pool here; E_INVALIDARG for another) with the
// default database. *sessionHandle is never 0 on success.
HRESULT WinBioOpenSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE poolType, WINBIO_SESSION_FLAGS flags,
                          WINBIO_UNIT_ID* unitArray, SIZE_T unitCount, GUID* databaseId,
                          WINBIO_SESSION_HANDLE* sessionHandle);
// Cancels what is pending (its callback gets WINBIO_E_CANCELED) and ends the session. Returns once no
// callback of the session runs any more (at once when called from inside one of them).
HRESULT WinBioCloseSession(WINBIO_SESSION_HANDLE sessionHandle);
// Reserves unit `unitId` (1 to the unit count; else WINBIO_E_INVALID_UNIT) for the session; a unit that
// another session holds gives WINBIO_E_LOCK_VIOLATION. Unlock releases it.
HRESULT WinBioLockUnit(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_UNIT_ID unitId);
HRESULT WinBioUnlockUnit(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_UNIT_ID unitId);
// Arms one identification: `callback` runs once, on the backend's thread, with the sample's outcome.
// A session with an operation already pending gives WINBIO_E_SESSION_BUSY.
HRESULT WinBioIdentifyWithCallback(WINBIO_SESSION_HANDLE sessionHandle, PWINBIO_IDENTIFY_CALLBACK callback,
                                   void* context);
// Blocks until nothing is pending on the session any more (every armed callback has returned). It has no
// time-out: WinBioCancel from another thread (or from a callback) is what ends a wait nobody answers.
HRESULT WinBioWait(WINBIO_SESSION_HANDLE sessionHandle);
// Ends whatever is pending on the session: each pending callback gets WINBIO_E_CANCELED. S_OK also when
// nothing is pending. Callable from any thread, callbacks included; it does not wait for the callbacks.
HRESULT WinBioCancel(WINBIO_SESSION_HANDLE sessionHandle);
// Releases memory that a WinBio call gave the caller. Null gives E_POINTER.
HRESULT WinBioFree(void* address);
// Starts an enrollment of `subFactor` on `unitId`: WINBIO_E_ENROLLMENT_IN_PROGRESS while another runs.
HRESULT WinBioEnrollBegin(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_BIOMETRIC_SUBTYPE subFactor,
                          WINBIO_UNIT_ID unitId);
// Arms one enrollment sample (WINBIO_E_INVALID_OPERATION without WinBioEnrollBegin). The callback may arm
// the next sample from inside itself; the caller's WinBioWait lasts through all of them.
HRESULT WinBioEnrollCaptureWithCallback(WINBIO_SESSION_HANDLE sessionHandle,
                                        PWINBIO_ENROLL_CAPTURE_CALLBACK callback, void* context);
// Ends the session's enrollment, if any. S_OK either way.
HRESULT WinBioEnrollDiscard(WINBIO_SESSION_HANDLE sessionHandle);
// Lists the sub-factors enrolled for `identity` (a SID identity) on `unitId`: array (release with
// WinBioFree; null for none) and count. WINBIO_E_ENROLLMENT_IN_PROGRESS while an enrollment runs.
HRESULT WinBioEnumEnrollments(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_UNIT_ID unitId,
                              WINBIO_IDENTITY* identity, WINBIO_BIOMETRIC_SUBTYPE** subFactorArray,
                              SIZE_T* subFactorCount);
// Registers the session's one event monitor for `eventMask`: each touch gives one callback until it is
// unregistered or cancelled. A second one gives WINBIO_E_EVENT_MONITOR_ACTIVE.
HRESULT WinBioRegisterEventMonitor(WINBIO_SESSION_HANDLE sessionHandle, WINBIO_EVENT_TYPE eventMask,
                                   PWINBIO_EVENT_CALLBACK callback, void* context);
// Ends the event monitor without a further callback. S_OK also when none is registered.
HRESULT WinBioUnregisterEventMonitor(WINBIO_SESSION_HANDLE sessionHandle);

}  // namespace plat
