#include "ui/tty_backend.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "plat/errors.h"
#include "plat/strings.h"
#include "ui/messagebox_rules.h"

namespace plat::ui {

namespace {
bool isControl(char16_t unit) {
    return (unit < 0x20 && unit != u'\n' && unit != u'\t') || (unit >= 0x7F && unit <= 0x9F);
}

std::string printable(std::u16string_view text) {
    std::u16string safe(text);
    for (char16_t& unit : safe) {
        if (isControl(unit)) {
            unit = 0xFFFD;
        }
    }
    return toUtf8(safe);
}

const char* buttonsPrompt(UINT flags) {
    switch (flags & MB_TYPEMASK) {
        case MB_OKCANCEL:
            return "[O]K / [C]ancel (Enter: OK)? ";
        case MB_YESNOCANCEL:
            return "[Y]es / [N]o / [C]ancel (Enter: Yes)? ";
        case MB_YESNO:
            return "[Y]es / [N]o (Enter: Yes)? ";
        default:
            return "[O]K (Enter)? ";
    }
}

const char* buttonName(int answer) {
    switch (answer) {
        case IDYES:
            return "Yes";
        case IDNO:
            return "No";
        case IDCANCEL:
            return "Cancel";
        default:
            return "OK";
    }
}

std::string trimmedLower(const std::string& line) {
    const std::size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos) {
        return {};
    }
    const std::size_t last = line.find_last_not_of(" \t\r");
    std::string word = line.substr(first, last - first + 1);
    for (char& c : word) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return word;
}

// The button a typed line presses, or 0 when it presses none of this box's buttons.
int answerOfTyped(const std::string& line, UINT flags) {
    const std::string word = trimmedLower(line);
    int answer = 0;
    if (word.empty()) {
        answer = firstButton(flags);
    } else if (word == "y" || word == "yes") {
        answer = IDYES;
    } else if (word == "n" || word == "no") {
        answer = IDNO;
    } else if (word == "o" || word == "ok") {
        answer = IDOK;
    } else if (word == "c" || word == "cancel") {
        answer = IDCANCEL;
    }
    return answerFits(flags, answer) ? answer : 0;
}

std::string question(std::u16string_view text, std::u16string_view caption, UINT flags) {
    std::string out = "\n";
    const std::string icon = iconWord(flags);
    out += icon;
    if (!icon.empty() && !caption.empty()) {
        out += ' ';
    }
    out += printable(caption);
    out += '\n';
    out += printable(text);
    out += '\n';
    return out;
}
}  // namespace

TtyMessageBox::TtyMessageBox(int inFd, int outFd) : m_nInFd(inFd), m_nOutFd(outFd) {}

void TtyMessageBox::_write(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(m_nOutFd, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return;  // nowhere to show it; the answer rules still hold
        }
        done += static_cast<std::size_t>(count);
    }
}

TtyMessageBox::ReadResult TtyMessageBox::_readLine(std::string& line) {
    line.clear();
    if (m_nInFd < 0) {
        return ReadResult::kEnd;
    }
    for (;;) {
        char c = 0;
        const ssize_t count = ::read(m_nInFd, &c, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return ReadResult::kEnd;
        }
        if (c == '\n') {
            return ReadResult::kLine;
        }
        line.push_back(c);
    }
}

int TtyMessageBox::show(HWND /*owner: a terminal has no windows to own a box*/, std::u16string_view text,
                        std::u16string_view caption, UINT flags) {
    if (!isSupportedButtonSet(flags)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_nInFd >= 0) {
        ::tcflush(m_nInFd, TCIFLUSH);
    }
    _write(question(text, caption, flags));
    std::string line;
    for (;;) {
        _write(buttonsPrompt(flags));
        if (_readLine(line) == ReadResult::kEnd) {
            const int answer = noConfirmationAnswer(flags);
            _write(std::string("\n(no answer: ") + buttonName(answer) + ")\n");
            return answer;
        }
        if (const int answer = answerOfTyped(line, flags); answer != 0) {
            return answer;
        }
    }
}

void TtyCursor::show(DWORD /*cursorId*/) {}

TtyBackend::TtyBackend(const std::string& terminalPath, int fallbackFd) {
    m_nTerminalFd = ::open(terminalPath.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (m_nTerminalFd >= 0) {
        m_pMessageBox = std::make_unique<TtyMessageBox>(m_nTerminalFd, m_nTerminalFd);
    } else {
        m_pMessageBox = std::make_unique<TtyMessageBox>(-1, fallbackFd);
    }
    m_pTransfer =
        std::make_unique<TtyTransfer>(m_nTerminalFd, m_nTerminalFd >= 0 ? m_nTerminalFd : fallbackFd);
    m_pKinds = std::make_unique<TtyKinds>(fallbackFd, m_nTerminalFd);
}

TtyBackend::~TtyBackend() {
    m_pMessageBox.reset();
    m_pTransfer.reset();
    m_pKinds.reset();
    if (m_nTerminalFd >= 0) {
        ::close(m_nTerminalFd);
        m_nTerminalFd = -1;
    }
}

}  // namespace plat::ui
