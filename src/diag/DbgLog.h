// The debug log: one line per call, to the system log (standing in for the debugger), to a file or to the
// error stream. It is off unless "DbgLog.ini" beside the program switches it on (section "LOG"):
//
//   Level             highest level written: 0 ERR, 1 WRN, 2 INF, 3 TRC; any other value counts as 0
//   Destination       0 none, 1 system log, 2 log file held open, 3 log file opened per line, 4 stderr;
//                     any other value counts as 0
//   LogFile           path of the log file (up to 260 units), %NAME% variables expanded; default
//                     ${XDG_STATE_HOME:-$HOME/.local/state}/velq/log/log.txt (missing folders are created)
//   SourceFileFormat  1 the source path as the build gave it; anything else only the file name
//   TimeDateFormat    0 none, 1 "HH:mm:ss.mmm: ", 2 "yyyy-MM-dd HH:mm:ss.mmm: ", 3 "s.mmm: " since the first
//                     stamped line; any other value counts as 1
//   Flush             0 leaves the held-open file to its buffer; anything else flushes after each line
//
// A line reads  "<stamp><source>(<line>): <category> [<LVL>]<tag>: <message>\n", at most 511 units plus
// NUL; a longer one is cut and still ends in a line feed. The settings are read once per process, at the
// first call, from any thread. The log never fails and never stops the program.
//
// Call sites use the macros:
//   VELQ_LOG(DBG_LEVEL_ERR, u" (_parseCmdLine)", u"Error Code: 0x%x", hr);
//   VELQ_TRACE(u"VELQAssistant::initData", u" (VELQAssistant::initData)");   // ENTER now, LEAVE at scope end
// Formats are printf-style on char16_t (see plat/format.h): %s takes a const char16_t*.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "plat/system.h"

// Levels: a line is written when its level is not greater than the configured "Level".
inline constexpr std::int32_t DBG_LEVEL_ERR = 0;
inline constexpr std::int32_t DBG_LEVEL_WRN = 1;
inline constexpr std::int32_t DBG_LEVEL_INF = 2;
inline constexpr std::int32_t DBG_LEVEL_TRC = 3;

// What one log call carries. All pointers must stay valid for the call (the macros use literals).
struct DbgLogSite {
    const char16_t* file;      // source path of the call, as the build gave it
    std::int32_t line;         // source line of the call
    const char16_t* tag;       // " (FunctionName)": a blank and the function's name in parentheses
    const char16_t* category;  // always u"" in this program
    std::int32_t level;        // DBG_LEVEL_*
};

// Logs one line. Returns the number of units of the line with its line feed (512 when it was cut), or 0
// when the line was filtered out; then nothing is formatted (the cost is one comparison). Never fails
// visibly: a line that cannot be written is dropped. Safe from any thread.
int dbgLogPrint(const DbgLogSite& site, const char16_t* format, ...);

// A traced function: the constructor logs "ENTER <name>", the destructor "LEAVE <name>", both with the
// constructor's site. `name` and the site's texts must outlive the object (literals).
class DbgTrace {
public:
    DbgTrace(const char16_t* name, const char16_t* file, std::int32_t line, const char16_t* category,
             std::int32_t level, const char16_t* tag);
    ~DbgTrace();
    DbgTrace(const DbgTrace&) = delete;
    DbgTrace& operator=(const DbgTrace&) = delete;

private:
    const char16_t* m_szName;
    DbgLogSite m_sSite;
};

// Where the log gets its configuration, time and outputs. The process uses the defaults; tests (and a
// host that embeds the core) may pass others to dbgLogReset.
struct DbgLogEnvironment {
    // Path of the configuration file; empty: "DbgLog.ini" in the folder of the running program.
    std::u16string configPath;
    void (*getLocalTime)(plat::SYSTEMTIME*) = plat::GetLocalTime;
    plat::DWORD (*getTickCount)() = plat::GetTickCount;
    void (*outputDebugString)(const char16_t*) = plat::OutputDebugStringW;  // destination 1
    std::FILE* errorStream = nullptr;                                       // destination 4; null: stderr
};

// Closes a held-open log file and forgets every setting, so that the next call reads the configuration
// afresh through `environment` (and destination 2 starts its file anew). Must not run while other threads
// log; meant for tests and for a host that switches configuration between runs.
void dbgLogReset(const DbgLogEnvironment& environment);

#define VELQ_LOG_WIDEN2(text) u##text
#define VELQ_LOG_WIDEN(text) VELQ_LOG_WIDEN2(text)
#define VELQ_LOG_CONCAT2(a, b) a##b
#define VELQ_LOG_CONCAT(a, b) VELQ_LOG_CONCAT2(a, b)

// One log line at `level` with function tag `tag` (u" (Name)"); the site is a static of the call.
#define VELQ_LOG(level, tag, ...)                                                                      \
    do {                                                                                               \
        static constexpr DbgLogSite velqLogSite_{VELQ_LOG_WIDEN(__FILE__), __LINE__, tag, u"", level}; \
        dbgLogPrint(velqLogSite_, __VA_ARGS__);                                                        \
    } while (0)

// Traces the enclosing scope at level 3: ENTER now, LEAVE when the scope ends.
#define VELQ_TRACE(name, tag)                                                                     \
    DbgTrace VELQ_LOG_CONCAT(velqTrace_, __LINE__)(name, VELQ_LOG_WIDEN(__FILE__), __LINE__, u"", \
                                                   DBG_LEVEL_TRC, tag)
