#include "ui/script_answers.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

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
    if (m_nFd >= 0) {
        ::close(m_nFd);
        m_nFd = -1;
    }
}

bool ScriptAnswers::_readMore() {
    if (!m_bOpenTried) {
        m_bOpenTried = true;
        if (!m_szPath.empty()) {
            m_nFd = ::open(m_szPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
            if (m_nFd < 0) {
                std::fprintf(stderr, "VELQ_UI_SCRIPT: cannot open %s: %s\n", m_szPath.c_str(),
                             std::strerror(errno));
            }
        }
    }
    if (m_nFd < 0) {
        return false;
    }
    char chunk[4096];
    ssize_t count = 0;
    do {
        count = ::read(m_nFd, chunk, sizeof chunk);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        return false;
    }
    m_szPending.append(chunk, static_cast<std::size_t>(count));
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
