// The texts that the engine logs for the biometric framework's error codes.
#include "bio/AsynBioOperation.h"
#include "diag/DbgLog.h"

using namespace plat;

namespace {

struct WinBioErrorText {
    HRESULT code;
    const char16_t* text;
};

// Codes without a text of their own (0x8009800A, 0x80098017, 0x80098023, 0x80098028, 0x80098029,
// 0x8009802E, 0x8009802F) are left out on purpose: they log the unknown text.
constexpr WinBioErrorText kTexts[] = {
    {static_cast<HRESULT>(0x80098001),
     u"Windows Biometric Service doesn't support the specified biometric factor."},
    {static_cast<HRESULT>(0x80098002), u"The unit ID number doesn't correspond to a valid biometric device."},
    {static_cast<HRESULT>(0x80098003), u"The biometric sample doesn't match any known identity."},
    {static_cast<HRESULT>(0x80098004), u"The biometric operation was canceled before it could complete."},
    {static_cast<HRESULT>(0x80098005),
     u"The biometric sample doesn't match the specified identity or sub-factor."},
    {static_cast<HRESULT>(0x80098006),
     u"A biometric sample could not be captured because the operation was aborted."},
    {static_cast<HRESULT>(0x80098007),
     u"An enrollment transaction could not be started because another enrollment is already in progress."},
    {static_cast<HRESULT>(0x80098008),
     u"The captured sample cannot be used for any further biometric operations."},
    {static_cast<HRESULT>(0x80098009),
     u"The biometric unit doesn't support the specified unit control code."},
    {static_cast<HRESULT>(0x8009800B),
     u"The driver already has a pending data collection operation in progress."},
    {static_cast<HRESULT>(0x8009800C),
     u"The biometric sensor driver does not support the requested data format."},
    {static_cast<HRESULT>(0x8009800D),
     u"The biometric sensor driver does not support the requested data type."},
    {static_cast<HRESULT>(0x8009800E),
     u"The biometric sensor driver does not support the requested data purpose."},
    {static_cast<HRESULT>(0x8009800F),
     u"The biometric unit is not in the proper state to perform the specified operation."},
    {static_cast<HRESULT>(0x80098010),
     u"The operation could not be performed because the sensor device was busy."},
    {static_cast<HRESULT>(0x80098011),
     u"The biometric unit's storage adapter was unable to create a new database."},
    {static_cast<HRESULT>(0x80098012),
     u"The biometric unit's storage adapter was unable to open an existing database."},
    {static_cast<HRESULT>(0x80098013),
     u"The biometric unit's storage adapter was unable to close a database."},
    {static_cast<HRESULT>(0x80098014),
     u"The biometric unit's storage adapter was unable to erase a database."},
    {static_cast<HRESULT>(0x80098015),
     u"The biometric unit's storage adapter was unable to find a database."},
    {static_cast<HRESULT>(0x80098016),
     u"The biometric unit's storage adapter was unable to create a database because that database already "
     u"exists."},
    {static_cast<HRESULT>(0x80098018),
     u"The biometric unit's storage adapter was unable to add a record to the database because the database "
     u"is full."},
    {static_cast<HRESULT>(0x80098019), u"The database is locked and its contents are inaccessible."},
    {static_cast<HRESULT>(0x8009801A),
     u"The contents of the database have become corrupted and are inaccessible."},
    {static_cast<HRESULT>(0x8009801B),
     u"No records were deleted because the specified identity and sub-factor are not present in the "
     u"database."},
    {static_cast<HRESULT>(0x8009801C),
     u"The specified identity and sub-factor are already enrolled in the database."},
    {static_cast<HRESULT>(0x8009801D), u"An error occurred while trying to read from the database."},
    {static_cast<HRESULT>(0x8009801E), u"An error occurred while trying to write to the database."},
    {static_cast<HRESULT>(0x8009801F), u"No records in the database matched the query."},
    {static_cast<HRESULT>(0x80098020), u"All records from the most recent database query have been viewed."},
    {static_cast<HRESULT>(0x80098021), u"A database operation unexpectedly encountered the end of the file."},
    {static_cast<HRESULT>(0x80098022), u"A database operation failed due to a malformed index vector."},
    {static_cast<HRESULT>(0x80098024),
     u"The biometric unit doesn't belong to the specified service provider."},
    {static_cast<HRESULT>(0x80098025), u"The biometric unit doesn't belong to the specified sensor pool."},
    {static_cast<HRESULT>(0x80098026), u"The sensor adapter's capture buffer is empty."},
    {static_cast<HRESULT>(0x80098027),
     u"The sensor adapter doesn't support the sensor mode specified in the configuration."},
    {static_cast<HRESULT>(0x8009802A),
     u"The requested operation cannot be performed due to a locking conflict."},
    {static_cast<HRESULT>(0x8009802B),
     u"The data in a biometric template matches another template already in the database."},
    {static_cast<HRESULT>(0x8009802C),
     u"The requested operation is not valid for the current state of the session or biometric unit."},
    {static_cast<HRESULT>(0x8009802D),
     u"The session cannot begin a new operation because another operation is already in progress."},
    {static_cast<HRESULT>(0x80098030),
     u"System policy settings have disabled the Windows biometric credential provider."},
    {static_cast<HRESULT>(0x80098031), u"The requested credential was not found."},
    {static_cast<HRESULT>(0x80098032),
     u"System policy settings have disabled the Windows biometric service."},
    {static_cast<HRESULT>(0x80098033), u"The biometric unit could not be configured."},
    {static_cast<HRESULT>(0x80098034),
     u"A private pool cannot be created because one or more biometric units are not available."},
    {static_cast<HRESULT>(0x80098035), u"A secure attention sequence (CTRL-ALT-DEL) is required for logon."},
    {static_cast<HRESULT>(0x80098036), u"A biometric sensor has failed."},
    {static_cast<HRESULT>(0x80098037), u"Fast user switching is disabled."},
    {static_cast<HRESULT>(0x80098038),
     u"The System sensor pool cannot be opened from Terminal Server client sessions."},
    {static_cast<HRESULT>(0x80098039),
     u"There is already an active event monitor associated with the specified session."},
    {static_cast<HRESULT>(0x8009803A), u"The value specified is not a valid property type."},
    {static_cast<HRESULT>(0x8009803B), u"The value specified is not a valid property ID."},
    {static_cast<HRESULT>(0x8009803C), u"The biometric unit doesn't support the specified property."},
    {static_cast<HRESULT>(0x8009803D), u"The adapter binary did not pass its integrity check."},
};

constexpr const char16_t* kUnknownText = u"WinBio Unknown Errors";

}  // namespace

const char16_t* AsynBioOperation::winBioErrorText(HRESULT hr) {
    for (const WinBioErrorText& entry : kTexts) {
        if (entry.code == hr) {
            return entry.text;
        }
    }
    return kUnknownText;
}

HRESULT AsynBioOperation::LogWinBioErrors(HRESULT hr) {
    if (hr >= 0) {
        return 0;
    }
    VELQ_LOG(DBG_LEVEL_ERR, u" (AsynBioOperation::LogWinBioErrors)", u"%s", winBioErrorText(hr));
    return hr;
}
