// The person's answers for the scripted UI (VELQ_UI_SCRIPT): one answer per line, taken in order by each
// interaction that waits for one. Blank lines and lines that start with '#' are skipped. The queue is one
// per process and shared by every interaction kind; each kind interprets the raw line itself with the
// helpers below, and an answer that does not fit is still used up.
#pragma once

#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "plat/types.h"

namespace plat::ui {

// Takes the next answer out of `pending` (bytes read so far). A line ends at '\n'; a final line without
// one counts only when `atEnd` (no more bytes will come). One '\r' before the line end is dropped, so
// files written with CRLF line ends work. Skipped lines are removed as well. Returns nothing when
// `pending` holds no complete answer yet.
std::optional<std::string> takeAnswerLine(std::string& pending, bool atEnd);

// A message-box answer ("yes", "no", "ok", "cancel", exactly, in lower case) as IDYES, IDNO, IDOK,
// IDCANCEL; 0 for anything else.
int messageBoxAnswerOf(std::string_view line);

// The answer of a dialog that asks for a file and a password: "VERB PATH<TAB>PASSWORD" (VERB "export" or
// "import", then one blank). PATH must not be empty; PASSWORD may be, and may hold blanks and tabs of its
// own (the first tab ends PATH). Anything else gives nothing. Both parts come back as UTF-16.
struct PathPasswordAnswer {
    std::u16string path;
    std::u16string password;
};
std::optional<PathPasswordAnswer> pathPasswordAnswerOf(std::string_view line, std::string_view verb);

// The queue itself. Thread-safe: every answer goes to exactly one caller. The file is opened on the first
// call of next(), not before, so that VELQ_UI_SCRIPT may name a FIFO that a driver opens later; it is read
// as the answers are needed, so answers appended to a regular file after its end are still taken.
class ScriptAnswers {
public:
    // An empty path: no answers at all.
    explicit ScriptAnswers(std::string utf8Path);
    ~ScriptAnswers();
    ScriptAnswers(const ScriptAnswers&) = delete;
    ScriptAnswers& operator=(const ScriptAnswers&) = delete;

    // The next answer line (raw, without its line end), or nothing when none is left. A file that cannot
    // be opened is reported once on stderr and then holds no answers.
    std::optional<std::string> next();
    // How many answers have been handed out.
    unsigned taken() const;

private:
    bool _readMore();

    mutable std::mutex m_mutex;
    std::string m_szPath;
    std::FILE* m_pStream = nullptr;
    bool m_bOpenTried = false;
    std::string m_szPending;
    unsigned m_nTaken = 0;
};

}  // namespace plat::ui
