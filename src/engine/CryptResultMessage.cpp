// The text of an error row: which message each result code of the engine shows.
#include "engine/VELQCryptFile.h"
#include "ui/ResourceHelper.h"

namespace {

constexpr std::size_t kMaxPathInRow = 128;

// String ids of the row messages.
constexpr plat::UINT kMsgSuccess = 1032;         // "Operation successful!"
constexpr plat::UINT kMsgFailed = 1033;          // "Operation failed!"
constexpr plat::UINT kMsgKeyInvalid = 1034;      // "The key is invalid!"
constexpr plat::UINT kMsgFileInvalid = 1035;     // "The file is invalid!"
constexpr plat::UINT kMsgEncryptFailed = 1038;   // "Failed to encrypt file!"
constexpr plat::UINT kMsgDecryptFailed = 1039;   // "Failed to decrypt file!"
constexpr plat::UINT kMsgCanceled = 1042;        // "The operation is canceled."
constexpr plat::UINT kMsgUnknown = 1043;         // "Unknown errors!"
constexpr plat::UINT kMsgAccessDenied = 1054;    // "You have insufficient priviledges ..."
constexpr plat::UINT kMsgWriteProtected = 1055;  // "The media is write protected."
constexpr plat::UINT kMsgDiskFull = 1056;        // "There is not enough space on the target disk."
constexpr plat::UINT kMsgSharing = 1057;         // "The program cannot access the file because ..."
constexpr plat::UINT kMsgPathNotFound = 1058;    // "The destination file path may be too long ..."
constexpr plat::UINT kMsgFileNotFound = 1062;    // "File is not found."
constexpr plat::UINT kMsgOpenFailed = 1063;      // "Failed to open file!"

struct ResultMessage {
    int nResult;
    plat::UINT id;
};

// Every code with a text of its own. -4, -6, -11, 6, E_FAIL and all other values show "Operation failed!".
constexpr ResultMessage kResultMessages[] = {
    {CRYPT_S_OK, kMsgSuccess},
    {CRYPT_E_OPEN_FILE, kMsgOpenFailed},
    {CRYPT_E_UNKNOWN, kMsgUnknown},
    {CRYPT_E_CANCELED, kMsgCanceled},
    {CRYPT_E_ENCRYPT, kMsgEncryptFailed},
    {CRYPT_E_DECRYPT, kMsgDecryptFailed},
    {CRYPT_E_INVALID_KEY, kMsgKeyInvalid},
    {CRYPT_E_INVALID_FILE, kMsgFileInvalid},
    {CRYPT_E_CRC, kMsgDecryptFailed},
    {CRYPT_E_VERIFY_CRC, kMsgEncryptFailed},
    {static_cast<int>(plat::ERROR_FILE_NOT_FOUND), kMsgFileNotFound},
    {static_cast<int>(plat::ERROR_PATH_NOT_FOUND), kMsgPathNotFound},
    {static_cast<int>(plat::ERROR_ACCESS_DENIED), kMsgAccessDenied},
    {static_cast<int>(plat::ERROR_WRITE_PROTECT), kMsgWriteProtected},
    {static_cast<int>(plat::ERROR_SHARING_VIOLATION), kMsgSharing},
    {static_cast<int>(plat::ERROR_DISK_FULL), kMsgDiskFull},
};

}  // namespace

plat::UINT VELQCryptFile::_resultMessageId(int nResult) {
    for (const ResultMessage& entry : kResultMessages) {
        if (entry.nResult == nResult) {
            return entry.id;
        }
    }
    return kMsgFailed;
}

std::u16string VELQCryptFile::_buildResultMessage(int nResult, const std::u16string& path) {
    const std::u16string message = loadResString(_resultMessageId(nResult));
    if (nResult == CRYPT_S_OK) {
        return message;
    }
    std::u16string text = path;
    if (text.size() > kMaxPathInRow) {
        text.resize(kMaxPathInRow);
        text += u"... ";
    }
    if (!text.empty()) {
        text += u": ";
    }
    return text + message;
}
