// The program's side of the hand-off: a file manager (or `velq`) writes the request's paths into a named
// mapping, creates a named event and starts the program with MAPPING::EVENT::BYTES::T. The text, the
// order of signalling and the on-disk form of the objects are described in docs/HANDOFF.md and
// docs/NAMED_OBJECTS.md.
#include <climits>
#include <cstdint>
#include <cstring>

#include "app/VELQAssistant.h"
#include "diag/DbgLog.h"
#include "plat/errors.h"
#include "plat/handle.h"
#include "plat/named.h"

namespace {

constexpr std::u16string_view kMarkEncrypt = u"DropEncryptFilePath::";
constexpr std::u16string_view kMarkDecrypt = u"DropDecryptFilePath::";
constexpr std::u16string_view kMarkFolder = u"DropFolderPath::";
constexpr std::u16string_view kMarkMedia = u"DropLegalMedia::";
constexpr const char16_t* kAssistantEventName = u"VELQAssistantEvent";
constexpr std::size_t npos = std::u16string_view::npos;

#define LOG_HANDOFF_ERROR(tag, code) \
    VELQ_LOG(DBG_LEVEL_ERR, tag, u"Error Code: 0x%x", static_cast<unsigned>(code))

// _wtoi as the C runtime has it: leading blanks, a sign, decimal digits up to the first other character;
// values beyond an int saturate, as the runtime's overflow result does.
int decimalValue(std::u16string_view text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == u' ' || text[i] == u'\t')) {
        ++i;
    }
    bool bNegative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
        bNegative = text[i] == u'-';
        ++i;
    }
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        value = value * 10 + (text[i] - u'0');
        if (value > static_cast<std::int64_t>(INT_MAX) + 1) {
            value = static_cast<std::int64_t>(INT_MAX) + 1;
        }
    }
    value = bNegative ? -value : value;
    if (value > INT_MAX) {
        return INT_MAX;
    }
    return static_cast<int>(value);
}

// How many bytes the view at `pView` may be read: the requested count, or for a whole-mapping view (0)
// what the platform reports as the view's extent.
std::size_t viewExtent(const void* pView, int nBytes) {
    if (nBytes > 0) {
        return static_cast<std::size_t>(nBytes);
    }
    plat::MEMORY_BASIC_INFORMATION info{};
    if (plat::VirtualQuery(pView, &info, sizeof(info)) == 0) {
        return 0;
    }
    return info.RegionSize;
}

// The UTF-16LE text at the start of the view, up to its NUL. false when no NUL lies inside the
// `extent` bytes: the text is then refused rather than read past the view.
bool copyTextToNul(const void* pView, std::size_t extent, std::u16string& text) {
    const auto* bytes = static_cast<const unsigned char*>(pView);
    const std::size_t units = extent / 2;
    for (std::size_t i = 0; i < units; ++i) {
        const auto unit = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
        if (unit == u'\0') {
            return true;
        }
        text.push_back(unit);
    }
    return false;
}

// Opens the mapping, maps BYTES and copies the text out; the mapping and its view are given up before
// returning. The event has been signalled by then on every path (see initData).
bool readHandOffText(plat::HANDLE hMapping, int nBytes, std::u16string& text) {
    if (nBytes < 0) {
        // A negative count cannot be mapped: the same failure as a view that fails.
        return false;
    }
    const void* pView =
        plat::MapViewOfFile(hMapping, plat::FILE_MAP_READ, 0, 0, static_cast<std::size_t>(nBytes));
    if (pView == nullptr) {
        return false;
    }
    const bool bTerminated = copyTextToNul(pView, viewExtent(pView, nBytes), text);
    plat::UnmapViewOfFile(pView);
    if (!bTerminated) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQAssistant::initData)",
                 u"The hand-off text has no end within %d bytes", nBytes);
    }
    return bTerminated;
}

}  // namespace

bool VELQAssistant::_parseHandOffCmdLine(std::u16string_view line, HandOffFields& fields) {
    const std::size_t mappingEnd = line.find(u':');
    if (mappingEnd == npos || mappingEnd + 2 > line.size()) {
        return false;
    }
    const std::size_t eventStart = mappingEnd + 2;
    const std::size_t eventEnd = line.find(u':', eventStart);
    if (eventEnd == npos) {
        return false;
    }
    const std::size_t bytesStart = eventEnd + 2;
    const std::size_t typeColon = line.rfind(u':');
    // The last ":" must close a "::" that stands behind BYTES' start.
    if (typeColon == npos || typeColon < bytesStart + 1) {
        return false;
    }
    fields.szMapping = std::u16string(line.substr(0, mappingEnd));
    fields.szEvent = std::u16string(line.substr(eventStart, eventEnd - eventStart));
    fields.nBytes = decimalValue(line.substr(bytesStart, typeColon - 1 - bytesStart));
    fields.uMenuType = static_cast<plat::UINT>(decimalValue(line.substr(typeColon + 1)));
    return true;
}

void VELQAssistant::_parseFilePathList(std::vector<std::u16string>& list, std::u16string_view text,
                                       std::size_t from, std::size_t limit) {
    std::size_t p = text.find(u':', from);
    if (p == npos) {
        return;
    }
    p += 2;
    std::size_t s = p;
    while (p <= limit) {
        p = text.find(u';', s);
        if (p == npos || p > limit) {
            break;
        }
        list.emplace_back(text.substr(s, p - s));
        p += 1;
        s = p;
    }
}

bool VELQAssistant::parseHandOffText(std::u16string_view text, std::vector<std::u16string>& encryptFiles,
                                     std::vector<std::u16string>& decryptFiles,
                                     std::vector<std::u16string>& folders,
                                     std::vector<std::u16string>& legalMedia) {
    const std::size_t e = text.find(kMarkEncrypt);
    const std::size_t d = text.find(kMarkDecrypt);
    const std::size_t f = text.find(kMarkFolder);
    const std::size_t m = text.find(kMarkMedia);
    if (e == npos || d == npos || f == npos || m == npos || !(e < d && d < f && f < m)) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQAssistant::initData)", u"The hand-off text lacks a mark: %s",
                 std::u16string(text).c_str());
        return false;
    }
    // No ";" ahead of the media mark gives npos, and npos - 1 is a limit that nothing exceeds: the
    // fourth list is read only when the first three are empty.
    const std::size_t c = text.rfind(u';', m);
    _parseFilePathList(encryptFiles, text, e, d - 1);
    _parseFilePathList(decryptFiles, text, d, f - 1);
    _parseFilePathList(folders, text, f, m - 1);
    _parseFilePathList(legalMedia, text, m, c - 1);
    return true;
}

plat::BOOL VELQAssistant::initData(std::vector<std::u16string>& encryptFiles,
                                   std::vector<std::u16string>& decryptFiles,
                                   std::vector<std::u16string>& folders,
                                   std::vector<std::u16string>& legalMedia, plat::UINT* puMenuType,
                                   plat::LPCWSTR lpCmdLine) {
    VELQ_TRACE(u"initData", u" (VELQAssistant::initData)");
    HandOffFields fields{std::u16string(), std::u16string(), 0, 0};
    if (lpCmdLine == nullptr || puMenuType == nullptr || !_parseHandOffCmdLine(lpCmdLine, fields)) {
        LOG_HANDOFF_ERROR(u" (VELQAssistant::initData)", plat::E_INVALIDARG);
        return plat::FALSE;
    }
    *puMenuType = fields.uMenuType;

    plat::HANDLE hEvent = plat::OpenEventW(plat::EVENT_ALL_ACCESS, plat::TRUE, fields.szEvent.c_str());
    if (hEvent == nullptr) {
        VELQ_LOG(DBG_LEVEL_INF, u" (VELQAssistant::initData)", u"OpenEvent failure:%s ",
                 fields.szEvent.c_str());
        return plat::FALSE;
    }
    plat::HANDLE hMapping =
        plat::OpenFileMappingW(plat::FILE_MAP_READ, plat::FALSE, fields.szMapping.c_str());
    // The sender is released as soon as the mapping is held (or known to be gone): from here on our own
    // handle keeps the text alive, so nothing below may hold the sender up.
    plat::SetEvent(hEvent);
    plat::CloseHandle(hEvent);
    if (hMapping == nullptr) {
        VELQ_LOG(DBG_LEVEL_INF, u" (VELQAssistant::initData)", u"OpenFileMapping failure: %s",
                 fields.szMapping.c_str());
        return plat::FALSE;
    }
    std::u16string text;
    const bool bRead = readHandOffText(hMapping, fields.nBytes, text);
    plat::CloseHandle(hMapping);
    if (!bRead) {
        LOG_HANDOFF_ERROR(u" (VELQAssistant::initData)", plat::E_FAIL);
        return plat::FALSE;
    }
    if (!parseHandOffText(text, encryptFiles, decryptFiles, folders, legalMedia)) {
        LOG_HANDOFF_ERROR(u" (VELQAssistant::initData)", plat::E_FAIL);
        return plat::FALSE;
    }
    return plat::TRUE;
}

plat::HANDLE VELQAssistant::_openAssistantEvent(bool* pbOtherFirst) {
    bool bOtherFirst = false;
    plat::HANDLE hEvent = plat::CreateEventW(nullptr, plat::FALSE, plat::FALSE, kAssistantEventName);
    if (hEvent != nullptr && plat::GetLastError() == plat::ERROR_ALREADY_EXISTS) {
        bOtherFirst = true;
        plat::HANDLE hOpened = plat::OpenEventW(plat::EVENT_ALL_ACCESS, plat::FALSE, kAssistantEventName);
        if (hOpened != nullptr) {
            // One handle of ours is enough to wait and signal; the created one must not leak.
            plat::CloseHandle(hEvent);
            hEvent = hOpened;
        }
    }
    if (hEvent == nullptr) {
        VELQ_LOG(DBG_LEVEL_WRN, u" (VELQAssistant::_openAssistantEvent)", u"CreateEvent failure: %u",
                 static_cast<unsigned>(plat::GetLastError()));
    }
    if (pbOtherFirst != nullptr) {
        *pbOtherFirst = bOtherFirst;
    }
    return hEvent;
}
