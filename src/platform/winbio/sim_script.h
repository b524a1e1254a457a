// The description of the simulated sensor (the file VELQ_WINBIO_SIM), one statement per line:
//   enabled 0|1              the enabled setting (default 1)
//   units N                  fingerprint units, 0 to 64 (default 1)
//   enrolled SID|self N      that user has N (0 to 10) templates
//   enrolling                another enrollment runs
//   fail NAME 0xCODE         the WinBio call NAME fails with CODE (hex)
// and the timeline, taken in order:
//   touch SID|self | touch unknown|nomatch|bad | touch error 0xCODE (a failure code)
//   close-window | session CODE | power CODE | pause MS
// Words are separated by blanks or tabs; blank lines and lines whose first word starts with '#' are
// skipped; a CR before the line end is ignored. SIDs are in the text form "S-1-...".
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "plat/types.h"

namespace plat::winbio {

// What `self` stands for in a SID field.
inline constexpr std::string_view kSelfSid = "self";

struct SimStep {
    enum class Kind { Touch, CloseWindow, Session, Power, Pause };
    Kind kind = Kind::Touch;
    // Touch: the callback's status (S_OK for a user's finger) and, with S_OK, the SID text or "self".
    HRESULT status = S_OK;
    std::string sid;
    // Session/power: the event code; pause: the milliseconds.
    std::uint32_t value = 0;
};

struct SimScript {
    bool enabled = true;
    unsigned units = 1;
    // SID text (or "self") -> number of templates; a later line for the same SID wins.
    std::map<std::string, unsigned> enrolled;
    bool enrolling = false;
    // WinBio call name -> the code it fails with.
    std::map<std::string, HRESULT> failures;
    std::vector<SimStep> timeline;
};

// Reads `text` into `script` (which starts from the defaults). On the first bad line gives false and
// `error` = "line N: <what is wrong>" (N counted from 1); `script` is then unspecified.
bool parseSimScript(std::string_view text, SimScript& script, std::string& error);

// True for the names of the calls in plat/winbio.h (those a `fail` statement may name).
bool isWinBioCallName(std::string_view name);

}  // namespace plat::winbio
