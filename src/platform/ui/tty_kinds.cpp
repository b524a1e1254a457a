#include "ui/tty_kinds.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "plat/dialogs.h"
#include "plat/strings.h"
#include "plat/windows.h"

extern char** environ;

namespace plat::ui {

namespace {

volatile sig_atomic_t g_bInterrupted = 0;
struct sigaction g_previousInterrupt {};

void onInterrupt(int) {
    g_bInterrupted = 1;
}

std::string printable(std::u16string_view text) {
    std::u16string safe(text);
    for (char16_t& unit : safe) {
        if (unit < 0x20 || (unit >= 0x7F && unit <= 0x9F)) {
            unit = 0xFFFD;
        }
    }
    return toUtf8(safe);
}

std::size_t terminalColumns(int fd) {
    winsize size{};
    if (::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 10) {
        return size.ws_col;
    }
    return 80;
}

std::string base64(std::string_view bytes) {
    static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t left = bytes.size() - i;
        const unsigned chunk = static_cast<unsigned char>(bytes[i]) << 16 |
                               (left > 1 ? static_cast<unsigned char>(bytes[i + 1]) << 8 : 0U) |
                               (left > 2 ? static_cast<unsigned char>(bytes[i + 2]) : 0U);
        out += kDigits[chunk >> 18 & 63];
        out += kDigits[chunk >> 12 & 63];
        out += left > 1 ? kDigits[chunk >> 6 & 63] : '=';
        out += left > 2 ? kDigits[chunk & 63] : '=';
    }
    return out;
}

// Hands `text` to a clipboard tool on its standard input; false when the tool cannot be started.
bool pipeToTool(const char* const argv[], const std::string& text) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned =
        ::posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[0]);
    if (spawned != 0) {
        ::close(pipeFds[1]);
        return false;
    }
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(pipeFds[1], text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    ::close(pipeFds[1]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return true;
}

}  // namespace

std::u16string compactText(std::u16string_view text, std::size_t width) {
    constexpr std::u16string_view kEllipsis = u"...";
    if (text.size() <= width) {
        return std::u16string(text);
    }
    if (width <= kEllipsis.size()) {
        return std::u16string(kEllipsis.substr(0, width));
    }
    const std::size_t kept = width - kEllipsis.size();
    const std::size_t head = kept / 2;
    const std::size_t tail = kept - head;
    return std::u16string(text.substr(0, head)) + std::u16string(kEllipsis) +
           std::u16string(text.substr(text.size() - tail));
}

std::string barLine(DWORD completed, DWORD total, int secondsLeft, std::size_t barWidth) {
    const DWORD done = completed < total ? completed : total;
    const unsigned percent =
        total == 0 ? 0 : static_cast<unsigned>(static_cast<ULONGLONG>(done) * 100 / total);
    const std::size_t filled =
        total == 0 ? 0 : static_cast<std::size_t>(static_cast<ULONGLONG>(done) * barWidth / total);
    std::string out = "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] ";
    char number[48];
    std::snprintf(number, sizeof(number), "%3u %%", percent);
    out += number;
    if (secondsLeft >= 0) {
        std::snprintf(number, sizeof(number), "  %d:%02d left", secondsLeft / 60, secondsLeft % 60);
        out += number;
    }
    return out;
}

std::string clipboardEscape(std::u16string_view text) {
    return "\x1b]52;c;" + base64(toUtf8(text)) + "\x07";
}

TtyKinds::TtyKinds(int outFd, int terminalFd)
    : m_nOutFd(outFd),
      m_nTerminalFd(terminalFd),
      m_bInPlace(::isatty(outFd) == 1),
      m_listTurn([this](HWND dialog) { _personTurn(dialog); }) {}

TtyKinds::~TtyKinds() = default;

void TtyKinds::_write(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(m_nOutFd, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return;  // nowhere to show it
        }
        done += static_cast<std::size_t>(count);
    }
}

void TtyKinds::opened() {
    m_listTurn.progressOpened();
}

void TtyKinds::closed() {
    m_listTurn.progressClosed();
}

void TtyKinds::started() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bRunning = true;
    g_bInterrupted = 0;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &g_previousInterrupt);
    _redraw();
}

void TtyKinds::stopped() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ::sigaction(SIGINT, &g_previousInterrupt, nullptr);
    m_bRunning = false;
    if (!m_szDrawn.empty()) {
        _write("\n");
    }
    m_szDrawn.clear();
    m_nDrawnLines = 0;
}

void TtyKinds::title(std::u16string_view text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_szTitle = text;
    _redraw();
}

void TtyKinds::line(DWORD number, std::u16string_view text, bool compactPath) {
    if (number < 1 || number > 3) {
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_szLines[number - 1] = text;
    m_bCompact[number - 1] = compactPath;
    _redraw();
}

void TtyKinds::cancelMessage(std::u16string_view text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_szCancelMsg = text;
    _redraw();
}

void TtyKinds::progress(DWORD completed, DWORD total) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_dwCompleted = completed;
    m_dwTotal = total;
    _redraw();
}

void TtyKinds::timeLeft(DWORD seconds) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_nSecondsLeft = static_cast<int>(seconds);
    _redraw();
}

bool TtyKinds::cancelRequested() {
    return g_bInterrupted != 0;
}

std::string TtyKinds::_texts() {
    const std::size_t width = terminalColumns(m_nOutFd) - 1;
    std::string texts = printable(compactText(m_szTitle, width)) + "\n";
    if (g_bInterrupted != 0) {
        return texts + printable(compactText(m_szCancelMsg, width)) + "\n\n\n";
    }
    for (int i = 0; i < 3; ++i) {
        const std::u16string_view text = m_szLines[i];
        texts += printable(m_bCompact[i] ? compactText(text, width) : std::u16string(text)) + "\n";
    }
    return texts;
}

void TtyKinds::_redraw() {
    if (!m_bRunning) {
        return;  // the texts come before the dialog shows; it shows them all at its start
    }
    const std::string texts = _texts();
    const std::string frame = texts + barLine(m_dwCompleted, m_dwTotal, m_nSecondsLeft, 30) + "\n";
    if (frame == m_szDrawn) {
        return;
    }
    if (m_bInPlace) {
        const std::string back = m_nDrawnLines > 0 ? "\x1b[" + std::to_string(m_nDrawnLines) + "F\x1b[J" : "";
        _write(back + frame);
    } else {
        // Plain: the texts when they change, the bar at each tenth.
        const int tenth =
            m_dwTotal == 0 ? 0 : static_cast<int>(static_cast<ULONGLONG>(m_dwCompleted) * 10 / m_dwTotal);
        if (texts != m_szPlainTexts) {
            m_szPlainTexts = texts;
            _write(texts);
        }
        if (tenth != m_nPlainTenth) {
            m_nPlainTenth = tenth;
            _write(barLine(m_dwCompleted, m_dwTotal, -1, 30) + "\n");
        }
    }
    m_szDrawn = frame;
    m_nDrawnLines = 5;
}

void TtyKinds::rowAdded(HWND, std::u16string_view text, unsigned count) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string out =
        m_bInPlace && m_nDrawnLines > 0 ? "\x1b[" + std::to_string(m_nDrawnLines) + "F\x1b[J" : "";
    out += "[Error " + std::to_string(count) + "] " + printable(text) + "\n";
    _write(out);
    // The progress comes back below the row.
    m_szDrawn.clear();
    m_nDrawnLines = 0;
    _redraw();
}

void TtyKinds::shown(HWND dialog) {
    m_listTurn.listShown(dialog);
}

void TtyKinds::closed(HWND dialog) {
    m_listTurn.listClosed(dialog);
}

bool TtyKinds::_readAnswer(std::string& line) {
    line.clear();
    if (m_nTerminalFd < 0) {
        return false;
    }
    for (;;) {
        char c = 0;
        const ssize_t count = ::read(m_nTerminalFd, &c, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        if (c == '\n') {
            return true;
        }
        if (c != '\r' && c != ' ' && c != '\t') {
            line.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c));
        }
    }
}

void TtyKinds::_personTurn(HWND dialog) {
    if (m_nTerminalFd >= 0) {
        ::tcflush(m_nTerminalFd, TCIFLUSH);
    }
    while (IsWindow(dialog)) {
        WCHAR label[128] = {};
        GetWindowTextW(GetDlgItem(dialog, IDC_ERROR_COUNT), label, 128);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            _write(printable(label) + "  [C]opy to clipboard / [O]K (Enter: OK)? ");
        }
        std::string answer;
        if (!_readAnswer(answer)) {
            std::lock_guard<std::mutex> lock(m_mutex);
            _write("\n");
            SendMessageW(dialog, WM_CLOSE, 0, 0);
            return;
        }
        if (answer == "c" || answer == "copy") {
            SendMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(IDC_ERROR_COPY), 0);
        } else if (answer.empty() || answer == "o" || answer == "ok") {
            SendMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(IDC_ERROR_OK), 0);
            return;
        }
    }
}

void TtyKinds::setText(std::u16string_view text) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nTerminalFd >= 0) {
            const std::string escape = clipboardEscape(text);
            [[maybe_unused]] const ssize_t written = ::write(m_nTerminalFd, escape.data(), escape.size());
        }
    }
    const std::string utf8 = toUtf8(text);
    if (std::getenv("WAYLAND_DISPLAY") != nullptr) {
        const char* const wlCopy[] = {"wl-copy", nullptr};
        if (pipeToTool(wlCopy, utf8)) {
            return;
        }
    }
    if (std::getenv("DISPLAY") != nullptr) {
        const char* const xclip[] = {"xclip", "-selection", "clipboard", nullptr};
        pipeToTool(xclip, utf8);
    }
}

}  // namespace plat::ui
