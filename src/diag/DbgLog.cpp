#include "diag/DbgLog.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <mutex>
#include <string>

#include "plat/format.h"
#include "plat/paths.h"
#include "plat/profile.h"
#include "plat/streams.h"
#include "plat/strings.h"
#include "plat/user_account.h"

namespace {

constexpr std::size_t kLineCapacity = 512;
constexpr std::size_t kPathCapacity = plat::MAX_PATH;
constexpr const char16_t* kSection = u"LOG";
// Before the settings are read, every level passes the first comparison and reaches the read.
constexpr int kSettingsUnread = INT_MAX;
constexpr int kLogOff = INT_MIN;

struct DbgLogSettings {
    int level = 0;
    int destination = 0;
    std::u16string logFile;
    int sourceFileFormat = 0;
    int timeDateFormat = 1;
    bool flush = true;
};

// The process's log: settings read once, the held-open stream opened once, the base of stamp form 3
// taken once. Lines themselves take no lock.
class DbgLogState {
public:
    // Highest level written, kLogOff when the log is off, kSettingsUnread before the first read.
    std::atomic<int> m_nThreshold{kSettingsUnread};
    std::atomic<bool> m_bLoaded{false};
    std::atomic<bool> m_bStreamTried{false};
    std::atomic<std::FILE*> m_pStream{nullptr};
    std::atomic<bool> m_bTickBaseTaken{false};
    plat::DWORD m_dwTickBase = 0;
    DbgLogSettings m_sSettings;
    DbgLogEnvironment m_sEnvironment;
    std::mutex m_lock;
};

DbgLogState& state() {
    static DbgLogState s_state;  // never destroyed before lines logged by other statics' destructors
    return s_state;
}

// "DbgLog.ini" in the folder of the running program; empty when its path is unavailable.
std::u16string configurationPathBesideProgram() {
    char16_t program[kPathCapacity];
    const plat::DWORD length = plat::GetModuleFileNameW(nullptr, program, kPathCapacity);
    if (length == 0 || length >= kPathCapacity) {
        return {};
    }
    program[length] = u'\0';
    const std::size_t folderLength = static_cast<std::size_t>(plat::PathFindFileNameW(program) - program);
    return folderLength == 0 ? std::u16string() : std::u16string(program, folderLength) + u"DbgLog.ini";
}

int readInt(const char16_t* key, int fallback, const std::u16string& file) {
    return static_cast<int>(plat::GetPrivateProfileIntW(kSection, key, fallback, file.c_str()));
}

DbgLogSettings readSettings(const std::u16string& file) {
    DbgLogSettings s;
    const int level = readInt(u"Level", 0, file);
    s.level = level >= DBG_LEVEL_ERR && level <= DBG_LEVEL_TRC ? level : 0;
    const int destination = readInt(u"Destination", 0, file);
    s.destination = destination >= 0 && destination <= 4 ? destination : 0;
    const std::u16string fallback = plat::defaultLogFile();
    char16_t logFile[kPathCapacity + 1];
    const plat::DWORD length = plat::GetPrivateProfileStringW(kSection, u"LogFile", fallback.c_str(), logFile,
                                                              kPathCapacity + 1, file.c_str());
    s.logFile.assign(logFile, length);
    s.sourceFileFormat = readInt(u"SourceFileFormat", 0, file) == 1 ? 1 : 0;
    const int timeDate = readInt(u"TimeDateFormat", 1, file);
    s.timeDateFormat = timeDate >= 0 && timeDate <= 3 ? timeDate : 1;
    s.flush = readInt(u"Flush", 1, file) != 0;
    return s;
}

void ensureSettings(DbgLogState& log) {
    if (log.m_bLoaded.load(std::memory_order_acquire)) {
        return;
    }
    const std::lock_guard<std::mutex> guard(log.m_lock);
    if (log.m_bLoaded.load(std::memory_order_relaxed)) {
        return;
    }
    const std::u16string file = log.m_sEnvironment.configPath.empty() ? configurationPathBesideProgram()
                                                                      : log.m_sEnvironment.configPath;
    log.m_sSettings = readSettings(file);
    log.m_bLoaded.store(true, std::memory_order_release);
    log.m_nThreshold.store(log.m_sSettings.destination == 0 ? kLogOff : log.m_sSettings.level,
                           std::memory_order_release);
}

// Opens the log file: "LogFile" with its variables expanded; a missing folder is created once.
// Owner-only where the system lets us choose (see plat/streams.h), since lines name the user's files.
std::FILE* openLogFile(const std::u16string& logFile, bool append) {
    char16_t expanded[kPathCapacity];
    const plat::DWORD needed = plat::ExpandEnvironmentStringsW(logFile.c_str(), expanded, kPathCapacity);
    if (needed == 0 || needed > kPathCapacity) {
        return nullptr;
    }
    const std::u16string path(expanded);
    const plat::StreamMode mode = append ? plat::StreamMode::kAppend : plat::StreamMode::kReplace;
    std::FILE* stream = plat::openStream(path, mode);
    if (stream == nullptr && errno == ENOENT) {
        // The folder: everything before the last separator (a name without one has no folder to make).
        const std::size_t nameStart = static_cast<std::size_t>(plat::PathFindFileNameW(expanded) - expanded);
        if (nameStart > 1) {
            plat::SHCreateDirectoryExW(nullptr, path.substr(0, nameStart - 1).c_str(), nullptr);
            stream = plat::openStream(path, mode);
        }
    }
    return stream;
}

void closeHeldStream() {
    std::FILE* stream = state().m_pStream.exchange(nullptr);
    if (stream != nullptr) {
        std::fclose(stream);
    }
}

// The stream of destination 2: opened at the first line of the process, and never again, even when that
// attempt failed.
std::FILE* heldStream(DbgLogState& log) {
    if (!log.m_bStreamTried.load(std::memory_order_acquire)) {
        const std::lock_guard<std::mutex> guard(log.m_lock);
        if (!log.m_bStreamTried.load(std::memory_order_relaxed)) {
            log.m_pStream.store(openLogFile(log.m_sSettings.logFile, false));
            static std::once_flag s_exitHandler;
            std::call_once(s_exitHandler, [] { std::atexit(closeHeldStream); });
            log.m_bStreamTried.store(true, std::memory_order_release);
        }
    }
    return log.m_pStream.load();
}

plat::DWORD tickBase(DbgLogState& log, plat::DWORD now) {
    if (!log.m_bTickBaseTaken.load(std::memory_order_acquire)) {
        const std::lock_guard<std::mutex> guard(log.m_lock);
        if (!log.m_bTickBaseTaken.load(std::memory_order_relaxed)) {
            log.m_dwTickBase = now;
            log.m_bTickBaseTaken.store(true, std::memory_order_release);
        }
    }
    return log.m_dwTickBase;
}

// Appends the time stamp at line[length]; returns the new length.
std::size_t appendTimeStamp(DbgLogState& log, char16_t* line, std::size_t length) {
    const int form = log.m_sSettings.timeDateFormat;
    if (form == 0) {
        return length;
    }
    if (form == 3) {
        const plat::DWORD now = log.m_sEnvironment.getTickCount();
        const plat::DWORD elapsed = now - tickBase(log, now);
        const int n = plat::format16(line + length, kLineCapacity - length, u"%d.%03d: ",
                                     static_cast<int>(elapsed / 1000), static_cast<int>(elapsed % 1000));
        return n > 0 ? length + static_cast<std::size_t>(n) : length;
    }
    plat::SYSTEMTIME now{};
    log.m_sEnvironment.getLocalTime(&now);
    const int room = static_cast<int>(kLineCapacity - length);
    if (form == 2) {
        const int n =
            plat::GetDateFormatW(plat::LOCALE_USER_DEFAULT, 0, &now, u"yyyy-MM-dd ", line + length, room);
        length += n > 0 ? static_cast<std::size_t>(n - 1) : 0;  // a date that fails is left out
    }
    const int t = plat::GetTimeFormatW(plat::LOCALE_USER_DEFAULT, 0, &now, u"HH:mm:ss", line + length,
                                       static_cast<int>(kLineCapacity - length));
    length += t > 0 ? static_cast<std::size_t>(t - 1) : 0;
    const int n = plat::format16(line + length, kLineCapacity - length, u".%03d: ",
                                 static_cast<int>(now.wMilliseconds));
    return n > 0 ? length + static_cast<std::size_t>(n) : length;
}

const char16_t* levelName(std::int32_t level) {
    static constexpr const char16_t* kNames[] = {u"ERR", u"WRN", u"INF", u"TRC"};
    return level >= DBG_LEVEL_ERR && level <= DBG_LEVEL_TRC ? kNames[level] : u"???";
}

const char16_t* sourceName(const char16_t* file, int sourceFileFormat) {
    if (file == nullptr || sourceFileFormat == 1) {
        return file;
    }
    return plat::PathFindFileNameW(file);
}

// The line as UTF-8 in `out` (room for 3 bytes a unit). Lone surrogates become U+FFFD.
std::size_t encodeUtf8(const char16_t* line, std::size_t length, char* out) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < length; ++i) {
        char32_t cp = line[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < length && line[i + 1] >= 0xDC00 &&
            line[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<char32_t>(line[++i]) - 0xDC00);
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out[n++] = static_cast<char>(cp);
        } else if (cp < 0x800) {
            out[n++] = static_cast<char>(0xC0 | (cp >> 6));
            out[n++] = static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out[n++] = static_cast<char>(0xE0 | (cp >> 12));
            out[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out[n++] = static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out[n++] = static_cast<char>(0xF0 | (cp >> 18));
            out[n++] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out[n++] = static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return n;
}

// The line goes out as plain text by one write, so that lines of different threads do not mix. The file
// gets UTF-8 with "\n" only: POSIX text mode adds no CR (the Windows build writes CRLF).
void writeLine(std::FILE* stream, const char16_t* line, std::size_t length, bool flush) {
    char bytes[kLineCapacity * 3];
    const std::size_t count = encodeUtf8(line, length, bytes);
    std::fwrite(bytes, 1, count, stream);
    if (flush) {
        std::fflush(stream);
    }
}

void sendLine(DbgLogState& log, const char16_t* line, std::size_t length) {
    switch (log.m_sSettings.destination) {
        case 1:
            log.m_sEnvironment.outputDebugString(line);
            break;
        case 2:
            if (std::FILE* stream = heldStream(log)) {
                writeLine(stream, line, length, log.m_sSettings.flush);
            }
            break;
        case 3:
            if (std::FILE* stream = openLogFile(log.m_sSettings.logFile, true)) {
                writeLine(stream, line, length, false);
                std::fclose(stream);
            }
            break;
        case 4: {
            std::FILE* stream =
                log.m_sEnvironment.errorStream != nullptr ? log.m_sEnvironment.errorStream : stderr;
            writeLine(stream, line, length, true);
            break;
        }
        default:
            break;
    }
}

int printLine(DbgLogState& log, const DbgLogSite& site, const char16_t* format, va_list args) {
    char16_t line[kLineCapacity];
    std::size_t length = appendTimeStamp(log, line, 0);
    const int prefix =
        plat::format16(line + length, kLineCapacity - length, u"%s(%d): %s [%s]%s: ",
                       sourceName(site.file, log.m_sSettings.sourceFileFormat), static_cast<int>(site.line),
                       site.category, levelName(site.level), site.tag);
    bool cut = prefix < 0;
    length = cut ? kLineCapacity - 1 : length + static_cast<std::size_t>(prefix);
    if (!cut) {
        const int message = plat::vformat16(line + length, kLineCapacity - length, format, args);
        cut = message < 0;
        length += cut ? 0 : static_cast<std::size_t>(message);
    }
    if (cut && length + plat::wcslen16(line + length) < kLineCapacity - 1) {
        // A format that failed: the text so far ends the line, which still counts as cut.
        length += plat::wcslen16(line + length);
        line[length++] = u'\n';
        line[length] = u'\0';
        sendLine(log, line, length);
        return static_cast<int>(kLineCapacity);
    }
    if (cut || length >= kLineCapacity - 1) {
        line[kLineCapacity - 2] = u'\n';
        line[kLineCapacity - 1] = u'\0';
        length = kLineCapacity;
    } else {
        line[length++] = u'\n';
        line[length] = u'\0';
    }
    // A line counted as 512 holds 511 units and its NUL.
    sendLine(log, line, length == kLineCapacity ? kLineCapacity - 1 : length);
    return static_cast<int>(length);
}

}  // namespace

int dbgLogPrint(const DbgLogSite& site, const char16_t* format, ...) {
    DbgLogState& log = state();
    if (site.level > log.m_nThreshold.load(std::memory_order_acquire)) {
        return 0;
    }
    ensureSettings(log);
    if (site.level > log.m_nThreshold.load(std::memory_order_acquire)) {
        return 0;
    }
    va_list args;
    va_start(args, format);
    const int length = printLine(log, site, format, args);
    va_end(args);
    return length;
}

DbgTrace::DbgTrace(const char16_t* name, const char16_t* file, std::int32_t line, const char16_t* category,
                   std::int32_t level, const char16_t* tag)
    : m_szName(name), m_sSite{file, line, tag, category, level} {
    dbgLogPrint(m_sSite, u"ENTER %s", m_szName);
}

DbgTrace::~DbgTrace() {
    dbgLogPrint(m_sSite, u"LEAVE %s", m_szName);
}

void dbgLogReset(const DbgLogEnvironment& environment) {
    DbgLogState& log = state();
    closeHeldStream();
    const std::lock_guard<std::mutex> guard(log.m_lock);
    log.m_sEnvironment = environment;
    log.m_sSettings = DbgLogSettings();
    log.m_bStreamTried.store(false);
    log.m_bTickBaseTaken.store(false);
    log.m_bLoaded.store(false);
    log.m_nThreshold.store(kSettingsUnread);
}
