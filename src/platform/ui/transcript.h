// The interaction transcript (VELQ_UI_TRANSCRIPT): one JSON object per line, UTF-8, appended in the order
// in which the interactions happen. Every interaction kind of every backend writes through this writer,
// so the escaping rules and the one-write-per-line rule live in one place.
#pragma once

#include <atomic>
#include <concepts>
#include <string>
#include <string_view>
#include <vector>

#include "plat/types.h"

namespace plat::ui {

// Builds one JSON object, field by field, in the order the fields are added. Texts are escaped for JSON:
// '"' and '\\' are escaped, control characters become \b \f \n \r \t or \u00XX, U+2028/U+2029 become
// \u2028/\u2029 (valid JSON either way, but some readers treat them as line ends), lone surrogates become
// U+FFFD; everything else is written as UTF-8. Keys are the caller's literals and are escaped the same way.
class JsonLine {
public:
    JsonLine();
    JsonLine& add(std::string_view key, std::u16string_view text);
    // A UTF-8 text; invalid sequences become U+FFFD.
    JsonLine& addUtf8(std::string_view key, std::string_view text);
    // Without this, a u"..." literal would pick the bool overload (a pointer converts to bool first).
    JsonLine& add(std::string_view key, const char16_t* text) { return add(key, std::u16string_view(text)); }
    JsonLine& add(std::string_view key, long long number);
    // Only a real bool: an int or a pointer must never turn into true/false unnoticed.
    template <typename Flag>
    requires std::same_as<Flag, bool> JsonLine& add(std::string_view key, Flag flag) {
        return _addFlag(key, flag);
    }
    JsonLine& add(std::string_view key, const std::vector<std::u16string>& texts);
    // The finished object followed by one '\n'.
    std::string line() const;

private:
    void _key(std::string_view key);
    JsonLine& _addFlag(std::string_view key, bool flag);
    std::string m_szBody;
};

// Appends `text` (UTF-16) to `out` as a JSON string, quotes included.
void appendJsonString(std::string& out, std::u16string_view text);

// Appends finished lines to a file. Each line is opened, written by one write() and closed: O_APPEND makes
// each write land whole at the end, so lines of threads and of processes never mix. We open per line
// rather than once per process because interactions come at a person's pace (the cost does not matter),
// no descriptor then has to outlive the threads that may still write while the process ends, and a test
// driver may move or truncate the file between steps and still get every later line.
// A failed write is reported once on stderr and otherwise ignored: the transcript records the program's
// work and must never change it.
class Transcript {
public:
    // An empty path: no transcript; write() does nothing.
    explicit Transcript(std::string utf8Path);
    ~Transcript();
    Transcript(const Transcript&) = delete;
    Transcript& operator=(const Transcript&) = delete;

    bool enabled() const { return !m_szPath.empty(); }
    const std::string& path() const { return m_szPath; }
    // Appends `line` (which ends in '\n'). The file is created owner-only (0600) if missing: it may name
    // the person's files. Returns false when the line could not be written whole.
    bool write(const std::string& line);
    bool write(const JsonLine& json) { return write(json.line()); }

private:
    std::string m_szPath;
    std::atomic<bool> m_bWarned{false};
};

}  // namespace plat::ui
