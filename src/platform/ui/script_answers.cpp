#include "ui/script_answers.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "plat/streams.h"
#include "plat/strings.h"
#include "plat/ui.h"

namespace plat::ui {

namespace {
bool isSkipped(std::string_view line) {
    if (!line.empty() && line.front() == '#') {
        return true;
    }
    return line.find_first_not_of(" \t") == std::string_view::npos;
}
}  // namespace

std::optional<std::string> takeAnswerLine(std::string& pending, bool atEnd) {
    while (!pending.empty()) {
        const std::size_t newline = pending.find('\n');
        if (newline == std::string::npos && !atEnd) {
            return std::nullopt;
        }
        const std::size_t length = newline == std::string::npos ? pending.size() : newline;
        std::string line = pending.substr(0, length);
        pending.erase(0, newline == std::string::npos ? length : length + 1);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (!isSkipped(line)) {
            return line;
        }
    }
    return std::nullopt;
}

int messageBoxAnswerOf(std::string_view line) {
    if (line == "yes") {
        return IDYES;
    }
    if (line == "no") {
        return IDNO;
    }
    if (line == "ok") {
        return IDOK;
    }
    if (line == "cancel") {
        return IDCANCEL;
    }
    return 0;
}

std::optional<PathPasswordAnswer> pathPasswordAnswerOf(std::string_view line, std::string_view verb) {
    if (verb.empty() || line.size() <= verb.size() || line.substr(0, verb.size()) != verb ||
        line[verb.size()] != ' ') {
        return std::nullopt;
    }
    const std::string_view rest = line.substr(verb.size() + 1);
    const std::size_t tab = rest.find('\t');
    if (tab == std::string_view::npos || tab == 0) {
        return std::nullopt;
    }
    return PathPasswordAnswer{fromUtf8(rest.substr(0, tab)), fromUtf8(rest.substr(tab + 1))};
}

ScriptAnswers::ScriptAnswers(std::string utf8Path) : m_szPath(std::move(utf8Path)) {}

ScriptAnswers::~ScriptAnswers() {
    if (m_pStream != nullptr) {
        std::fclose(m_pStream);
        m_pStream = nullptr;
    }
}

bool ScriptAnswers::_readMore() {
    if (!m_bOpenTried) {
        m_bOpenTried = true;
        if (!m_szPath.empty()) {
            m_pStream = openStream(fromUtf8(m_szPath), StreamMode::kRead);
            if (m_pStream == nullptr) {
                std::fprintf(stderr, "VELQ_UI_SCRIPT: cannot open %s: %s\n", m_szPath.c_str(),
                             std::strerror(errno));
            }
        }
    }
    if (m_pStream == nullptr) {
        return false;
    }
    // Up to one line at a time: the stream's read hands over what a pipe holds without waiting for more,
    // and a file that grows after its end was seen is read on (the end mark is cleared first).
    std::clearerr(m_pStream);
    char chunk[4096];
    if (std::fgets(chunk, sizeof chunk, m_pStream) == nullptr) {
#ifdef _WIN32
        // Wine's C runtime also marks the end on the descriptor, where clearerr does not reach and only a
        // seek clears it; a seek to where the stream stands moves nothing.
        std::fseek(m_pStream, 0, SEEK_CUR);
#endif
        return false;
    }
    m_szPending.append(chunk);
    return true;
}

std::optional<std::string> ScriptAnswers::next() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (;;) {
        if (auto line = takeAnswerLine(m_szPending, false)) {
            ++m_nTaken;
            return line;
        }
        if (!_readMore()) {
            break;
        }
    }
    // The end of what the file holds now: a last line without '\n' is an answer too.
    auto line = takeAnswerLine(m_szPending, true);
    if (line) {
        ++m_nTaken;
    }
    return line;
}

unsigned ScriptAnswers::taken() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_nTaken;
}

}  // namespace plat::ui
