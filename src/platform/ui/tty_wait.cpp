// The terminal's wait window (TtyWait): its texts on the terminal, Ctrl-C as the close box. POSIX only,
// like the rest of the terminal UI (signals, pipes and poll).
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "plat/messages.h"
#include "plat/resources.h"
#include "plat/strings.h"
#include "plat/windows.h"
#include "ui/wait_kinds.h"

namespace plat::ui {

namespace {

// Ctrl-C during a wait: the handler only writes to a pipe, the watch thread posts WM_CLOSE.
std::atomic<int> g_nInterruptFd{-1};
struct sigaction g_previousAction {};

extern "C" void onWaitInterrupt(int) {
    const int savedErrno = errno;
    const int fd = g_nInterruptFd.load();
    if (fd >= 0) {
        const char byte = 'i';
        [[maybe_unused]] const ssize_t written = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

struct InterruptWatch {
    int interruptPipe[2] = {-1, -1};
    int stopPipe[2] = {-1, -1};
    std::thread watcher;
};
InterruptWatch* g_pWatch = nullptr;  // guarded by TtyWait::m_mutex (one wait window at a time)

void closePipe(int (&fds)[2]) {
    for (int& fd : fds) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
}

void watchInterrupts(int interruptFd, int stopFd, HWND window) {
    pollfd fds[2] = {{interruptFd, POLLIN, 0}, {stopFd, POLLIN, 0}};
    for (;;) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if ((fds[1].revents & (POLLIN | POLLHUP)) != 0) {
            return;
        }
        if ((fds[0].revents & POLLIN) != 0) {
            char byte = 0;
            if (::read(interruptFd, &byte, 1) == 1) {
                PostMessageW(window, WM_CLOSE, 0, 0);
            }
        }
    }
}

}  // namespace

TtyWait::TtyWait(int outFd) : m_nOutFd(outFd) {}

TtyWait::~TtyWait() {
    std::lock_guard<std::mutex> lock(m_mutex);
    _stopInterruptWatch();
}

void TtyWait::_startInterruptWatch(HWND window) {
    auto* watch = new InterruptWatch();
    if (::pipe2(watch->interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0 ||
        ::pipe2(watch->stopPipe, O_CLOEXEC) != 0) {
        closePipe(watch->interruptPipe);
        closePipe(watch->stopPipe);
        delete watch;
        return;
    }
    watch->watcher = std::thread(watchInterrupts, watch->interruptPipe[0], watch->stopPipe[0], window);
    g_nInterruptFd.store(watch->interruptPipe[1]);
    struct sigaction action {};
    action.sa_handler = onWaitInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &g_previousAction);
    g_pWatch = watch;
}

void TtyWait::_stopInterruptWatch() {
    if (g_pWatch == nullptr) {
        return;
    }
    ::sigaction(SIGINT, &g_previousAction, nullptr);
    g_nInterruptFd.store(-1);
    const char byte = 's';
    [[maybe_unused]] const ssize_t written = ::write(g_pWatch->stopPipe[1], &byte, 1);
    g_pWatch->watcher.join();
    closePipe(g_pWatch->interruptPipe);
    closePipe(g_pWatch->stopPipe);
    delete g_pWatch;
    g_pWatch = nullptr;
}

void TtyWait::shown(HWND window) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bShown = true;
        m_uLastText = 0;
        _stopInterruptWatch();
        _startInterruptWatch(window);
    }
    m_relay.start(window);
}

void TtyWait::image(HWND, UINT pictureId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const UINT textId = waitTextForPicture(pictureId);
    if (!m_bShown || textId == 0 || textId == m_uLastText) {
        return;
    }
    m_uLastText = textId;
    LPCWSTR text = nullptr;
    const int length = LoadStringW(nullptr, textId, reinterpret_cast<LPWSTR>(&text), 0);
    if (length <= 0 || text == nullptr) {
        return;
    }
    std::string line = toUtf8(std::u16string_view(text, static_cast<std::size_t>(length)));
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < 0x20) {
            c = ' ';  // a translation must not be able to drive the terminal
        }
    }
    line += "\n";
    [[maybe_unused]] const ssize_t written = ::write(m_nOutFd, line.data(), line.size());
}

void TtyWait::hidden(HWND) {}

void TtyWait::closed(HWND) {
    m_relay.stop();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bShown = false;
    _stopInterruptWatch();
}

}  // namespace plat::ui
