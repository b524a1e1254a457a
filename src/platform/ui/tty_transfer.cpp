#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "plat/strings.h"
#include "ui/transfer_kinds.h"

namespace plat::ui {

namespace {

// File names must not drive the terminal: control characters are shown as U+FFFD.
std::string printable(std::u16string_view text) {
    std::u16string safe(text);
    for (char16_t& unit : safe) {
        if (unit < 0x20 || (unit >= 0x7F && unit <= 0x9F)) {
            unit = 0xFFFD;
        }
    }
    return toUtf8(safe);
}

std::string limitsText(const KeyFileRequest& request) {
    if (request.nMaxPassword == 0) {
        return "The password must have at least " + std::to_string(request.nMinPassword) + " characters.\n";
    }
    return "The password must have " + std::to_string(request.nMinPassword) + " to " +
           std::to_string(request.nMaxPassword) + " characters.\n";
}

void wipe(std::string& secret) {
    volatile char* byte = secret.data();
    for (std::size_t i = 0; i < secret.size(); ++i) {
        byte[i] = 0;
    }
    secret.clear();
}

// Turns the terminal's echo off for the life of the object (nothing for a descriptor that is no terminal).
class EchoOff {
public:
    explicit EchoOff(int fd) : m_nFd(fd) {
        if (::tcgetattr(fd, &m_saved) == 0) {
            termios quiet = m_saved;
            quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            m_bChanged = ::tcsetattr(fd, TCSANOW, &quiet) == 0;
        }
    }
    ~EchoOff() {
        if (m_bChanged) {
            ::tcsetattr(m_nFd, TCSANOW, &m_saved);
        }
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    int m_nFd;
    termios m_saved{};
    bool m_bChanged = false;
};

}  // namespace

TtyTransfer::TtyTransfer(int inFd, int outFd) : m_nInFd(inFd), m_nOutFd(outFd) {}

void TtyTransfer::_write(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(m_nOutFd, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        done += static_cast<std::size_t>(written);
    }
}

std::optional<std::string> TtyTransfer::_readLine(const std::string& prompt, bool bEcho) {
    // Echo goes off before the prompt shows, so that nothing typed after it is ever echoed.
    std::optional<EchoOff> quiet;
    if (!bEcho) {
        quiet.emplace(m_nInFd);
    }
    _write(prompt);
    std::string line;
    char byte = 0;
    for (;;) {
        const ssize_t got = ::read(m_nInFd, &byte, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            wipe(line);
            return std::nullopt;
        }
        if (byte == '\n') {
            break;
        }
        line.push_back(byte);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    if (!bEcho) {
        _write("\n");  // the Enter that was not echoed
    }
    return line;
}

std::optional<std::u16string> TtyTransfer::_askPath(const KeyFileRequest& request) {
    for (;;) {
        std::string prompt = request.typeName.empty() ? "File" : printable(request.typeName);
        if (!request.startPath.empty()) {
            prompt += " [" + printable(request.startPath) + "]";
        }
        const std::optional<std::string> line = _readLine(prompt + ": ", true);
        if (!line) {
            return std::nullopt;
        }
        std::u16string path = line->empty() ? request.startPath : fromUtf8(*line);
        if (!path.empty()) {
            return request.bExport ? withDefaultExtension(path, request.defaultExtension) : path;
        }
        _write("Please name a file (Ctrl-D cancels).\n");
    }
}

std::optional<std::u16string> TtyTransfer::_askPassword(const KeyFileRequest& request) {
    for (;;) {
        std::optional<std::string> first = _readLine("Password: ", request.bShowPassword);
        if (!first) {
            return std::nullopt;
        }
        std::u16string password = fromUtf8(*first);
        if (!passwordFits(request, password)) {
            wipe(*first);
            std::fill(password.begin(), password.end(), u'\0');
            _write(limitsText(request));
            continue;
        }
        if (!request.bExport) {
            wipe(*first);
            return password;
        }
        std::optional<std::string> second = _readLine("Password again: ", request.bShowPassword);
        const bool bSame = second && *second == *first;
        wipe(*first);
        if (second) {
            wipe(*second);
        }
        if (!second) {
            std::fill(password.begin(), password.end(), u'\0');
            return std::nullopt;
        }
        if (bSame) {
            return password;
        }
        std::fill(password.begin(), password.end(), u'\0');
        _write("The two passwords differ. Please type them again.\n");
    }
}

int TtyTransfer::ask(HWND, const KeyFileRequest& request, KeyFileAnswer& answer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_nInFd < 0) {
        return IDCANCEL;  // nobody to ask: the answer of a person who confirms nothing
    }
    ::tcflush(m_nInFd, TCIFLUSH);  // keys pressed before the question never answer it
    _write(request.bExport ? "\n[Back up the new key] Enter: the offered file, Ctrl-D: cancel\n"
                           : "\n[Recover the key from a backup] Ctrl-D: cancel\n");
    std::optional<std::u16string> path = _askPath(request);
    if (!path) {
        _write("\nCancelled.\n");
        return IDCANCEL;
    }
    std::optional<std::u16string> password = _askPassword(request);
    if (!password) {
        _write("\nCancelled.\n");
        return IDCANCEL;
    }
    answer.path = *path;
    answer.password = *password;
    std::fill(password->begin(), password->end(), u'\0');
    return IDOK;
}

void TtyTransfer::show(std::u16string_view query, const std::vector<std::u16string>& results) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string text = "\nSearch: " + printable(query) + "\n";
    for (const std::u16string& path : results) {
        text += "  " + printable(path) + "\n";
    }
    text += std::to_string(results.size()) + (results.size() == 1 ? " file found.\n" : " files found.\n");
    _write(text);
}

}  // namespace plat::ui
