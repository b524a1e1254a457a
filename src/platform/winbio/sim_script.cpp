#include "winbio/sim_script.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "plat/security.h"
#include "plat/strings.h"

namespace plat::winbio {

namespace {

constexpr std::array<std::string_view, 16> kCallNames = {"WinBioGetEnabledSetting",
                                                         "WinBioEnumBiometricUnits",
                                                         "WinBioOpenSession",
                                                         "WinBioCloseSession",
                                                         "WinBioLockUnit",
                                                         "WinBioUnlockUnit",
                                                         "WinBioIdentifyWithCallback",
                                                         "WinBioWait",
                                                         "WinBioCancel",
                                                         "WinBioFree",
                                                         "WinBioEnrollBegin",
                                                         "WinBioEnrollCaptureWithCallback",
                                                         "WinBioEnrollDiscard",
                                                         "WinBioEnumEnrollments",
                                                         "WinBioRegisterEventMonitor",
                                                         "WinBioUnregisterEventMonitor"};

constexpr unsigned kMaxUnits = 64;
constexpr unsigned kMaxTemplates = 10;

std::vector<std::string_view> wordsOf(std::string_view line) {
    std::vector<std::string_view> words;
    std::size_t at = 0;
    while (at < line.size()) {
        const std::size_t start = line.find_first_not_of(" \t", at);
        if (start == std::string_view::npos) {
            break;
        }
        const std::size_t end = std::min(line.find_first_of(" \t", start), line.size());
        words.push_back(line.substr(start, end - start));
        at = end;
    }
    return words;
}

bool parseDecimal(std::string_view word, std::uint32_t& value) {
    if (word.empty() || word.front() == '+' || word.front() == '-') {
        return false;
    }
    const auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), value, 10);
    return ec == std::errc() && end == word.data() + word.size();
}

// "0x" and 1 to 8 hex digits.
bool parseHexCode(std::string_view word, std::uint32_t& value) {
    if (word.size() < 3 || word.size() > 10 || word[0] != '0' || (word[1] != 'x' && word[1] != 'X')) {
        return false;
    }
    const auto [end, ec] = std::from_chars(word.data() + 2, word.data() + word.size(), value, 16);
    return ec == std::errc() && end == word.data() + word.size();
}

// Event codes may be written either way.
bool parseCode(std::string_view word, std::uint32_t& value) {
    return parseHexCode(word, value) || parseDecimal(word, value);
}

bool isSidWord(std::string_view word) {
    if (word == kSelfSid) {
        return true;
    }
    // Windows' conversion under Wine takes a SID with an empty last field ("S-1-22-1-"); a script's SID
    // is refused for it on every system, as a typing slip.
    if (word.empty() || word.back() == '-' || word.find("--") != std::string_view::npos) {
        return false;
    }
    PSID sid = nullptr;
    const std::u16string text = fromUtf8(word);
    const bool valid = ConvertStringSidToSidW(text.c_str(), &sid) != FALSE;
    LocalFree(sid);
    return valid;
}

class LineParser {
public:
    LineParser(SimScript& script, std::string& error) : m_script(script), m_error(error) {}

    bool parse(const std::vector<std::string_view>& words) {
        const std::string_view verb = words[0];
        const std::size_t args = words.size() - 1;
        if (verb == "enabled") {
            return expectArgs(words, 1, "enabled 0|1") && parseEnabled(words[1]);
        }
        if (verb == "units") {
            return expectArgs(words, 1, "units N") && parseUnits(words[1]);
        }
        if (verb == "enrolled") {
            return expectArgs(words, 2, "enrolled SID N") && parseEnrolled(words[1], words[2]);
        }
        if (verb == "enrolling") {
            m_script.enrolling = true;
            return expectArgs(words, 0, "enrolling");
        }
        if (verb == "fail") {
            return expectArgs(words, 2, "fail NAME 0xCODE") && parseFail(words[1], words[2]);
        }
        if (verb == "touch") {
            return args >= 1 && words[1] == "error"
                       ? expectArgs(words, 2, "touch error 0xCODE") && parseTouchError(words[2])
                       : expectArgs(words, 1, "touch SID") && parseTouch(words[1]);
        }
        if (verb == "close-window") {
            m_script.timeline.push_back(SimStep{SimStep::Kind::CloseWindow, S_OK, {}, 0});
            return expectArgs(words, 0, "close-window");
        }
        if (verb == "session" || verb == "power" || verb == "pause") {
            return expectArgs(words, 1, std::string(verb) + (verb == "pause" ? " MS" : " CODE")) &&
                   parseValueStep(verb, words[1]);
        }
        return fail("unknown statement '" + std::string(verb) + "'");
    }

private:
    bool fail(const std::string& what) {
        m_error = what;
        return false;
    }

    bool expectArgs(const std::vector<std::string_view>& words, std::size_t count, const std::string& form) {
        if (words.size() - 1 != count) {
            return fail("expected '" + form + "'");
        }
        return true;
    }

    bool parseEnabled(std::string_view word) {
        if (word != "0" && word != "1") {
            return fail("enabled takes 0 or 1, not '" + std::string(word) + "'");
        }
        m_script.enabled = word == "1";
        return true;
    }

    bool parseUnits(std::string_view word) {
        std::uint32_t units = 0;
        if (!parseDecimal(word, units) || units > kMaxUnits) {
            return fail("units takes a number from 0 to " + std::to_string(kMaxUnits));
        }
        m_script.units = units;
        return true;
    }

    bool parseEnrolled(std::string_view sid, std::string_view countWord) {
        std::uint32_t count = 0;
        if (!isSidWord(sid)) {
            return fail("'" + std::string(sid) + "' is neither a SID nor 'self'");
        }
        if (!parseDecimal(countWord, count) || count > kMaxTemplates) {
            return fail("the number of templates must be 0 to " + std::to_string(kMaxTemplates));
        }
        m_script.enrolled[std::string(sid)] = count;
        return true;
    }

    bool parseFail(std::string_view name, std::string_view codeWord) {
        std::uint32_t code = 0;
        if (!isWinBioCallName(name)) {
            return fail("'" + std::string(name) + "' is no WinBio call");
        }
        if (!parseHexCode(codeWord, code)) {
            return fail("the code must be written 0x and up to 8 hex digits, not '" + std::string(codeWord) +
                        "'");
        }
        m_script.failures[std::string(name)] = static_cast<HRESULT>(code);
        return true;
    }

    bool parseTouch(std::string_view who) {
        HRESULT status = S_OK;
        if (who == "unknown") {
            status = static_cast<HRESULT>(0x80098003);
        } else if (who == "nomatch") {
            status = static_cast<HRESULT>(0x80098005);
        } else if (who == "bad") {
            status = static_cast<HRESULT>(0x80098008);
        } else if (!isSidWord(who)) {
            return fail("touch takes a SID, self, unknown, nomatch, bad or error 0xCODE, not '" +
                        std::string(who) + "'");
        }
        m_script.timeline.push_back(
            SimStep{SimStep::Kind::Touch, status, status == S_OK ? std::string(who) : std::string(), 0});
        return true;
    }

    bool parseTouchError(std::string_view codeWord) {
        std::uint32_t code = 0;
        if (!parseHexCode(codeWord, code)) {
            return fail("the code must be written 0x and up to 8 hex digits, not '" + std::string(codeWord) +
                        "'");
        }
        // A touch that "fails" with a success code would identify nobody and yet succeed.
        if (!FAILED(static_cast<HRESULT>(code))) {
            return fail("touch error takes a failure code (0x8...), not '" + std::string(codeWord) + "'");
        }
        m_script.timeline.push_back(SimStep{SimStep::Kind::Touch, static_cast<HRESULT>(code), {}, 0});
        return true;
    }

    bool parseValueStep(std::string_view verb, std::string_view word) {
        std::uint32_t value = 0;
        const bool isPause = verb == "pause";
        if (isPause ? !parseDecimal(word, value) : !parseCode(word, value)) {
            return fail(std::string(verb) + " takes a number, not '" + std::string(word) + "'");
        }
        const SimStep::Kind kind = isPause             ? SimStep::Kind::Pause
                                   : verb == "session" ? SimStep::Kind::Session
                                                       : SimStep::Kind::Power;
        m_script.timeline.push_back(SimStep{kind, S_OK, {}, value});
        return true;
    }

    SimScript& m_script;
    std::string& m_error;
};

}  // namespace

bool isWinBioCallName(std::string_view name) {
    return std::find(kCallNames.begin(), kCallNames.end(), name) != kCallNames.end();
}

bool parseSimScript(std::string_view text, SimScript& script, std::string& error) {
    error.clear();
    LineParser parser(script, error);
    std::size_t lineNumber = 0;
    std::size_t at = 0;
    while (at <= text.size()) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        ++lineNumber;
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        const std::vector<std::string_view> words = wordsOf(line);
        if (words.empty() || words[0].front() == '#') {
            continue;
        }
        if (!parser.parse(words)) {
            error = "line " + std::to_string(lineNumber) + ": " + error;
            return false;
        }
    }
    return true;
}

}  // namespace plat::winbio
