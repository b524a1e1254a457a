// Programs started with posix_spawn and waited for with waitpid; our own program found through /proc.
#include "plat/child_process.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "plat/strings.h"

extern char** environ;

namespace plat {

struct ChildProcess::State {
    pid_t pid = 0;
    bool ended = false;
    int status = 0;
};

ChildProcess::ChildProcess() : m_pState(new State()) {}

ChildProcess::~ChildProcess() {
    delete m_pState;
}

bool ChildProcess::start(const std::u16string& program, const std::u16string& argument,
                         std::string& failure) {
    const std::string path = toUtf8(program);
    const std::string text = toUtf8(argument);
    char* argv[] = {const_cast<char*>(path.c_str()), const_cast<char*>(text.c_str()), nullptr};
    const int error = path.find('/') != std::string::npos
                          ? ::posix_spawn(&m_pState->pid, path.c_str(), nullptr, nullptr, argv, environ)
                          : ::posix_spawnp(&m_pState->pid, path.c_str(), nullptr, nullptr, argv, environ);
    if (error != 0) {
        m_pState->pid = 0;
        failure = std::strerror(error);
        return false;
    }
    return true;
}

bool ChildProcess::ended(DWORD milliseconds, int& status) {
    if (m_pState->pid == 0) {
        return false;
    }
    // Polls in steps: waitpid has no time limit of its own.
    for (DWORD waited = 0; !m_pState->ended;) {
        const bool forever = milliseconds == INFINITE;
        const pid_t got = ::waitpid(m_pState->pid, &m_pState->status, forever ? 0 : WNOHANG);
        if (got == m_pState->pid) {
            m_pState->ended = true;
        } else if (got < 0 && errno != EINTR) {
            return false;
        } else if (!forever) {
            if (waited >= milliseconds) {
                return false;
            }
            ::usleep(10000);
            waited += 10;
        }
    }
    const int raw = m_pState->status;
    if (WIFSIGNALED(raw)) {
        status = 128 + WTERMSIG(raw);
    } else {
        status = WEXITSTATUS(raw);
    }
    return true;
}

int ChildProcess::endingSignal() const {
    return m_pState->ended && WIFSIGNALED(m_pState->status) ? WTERMSIG(m_pState->status) : 0;
}

std::u16string programFolder() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::u16string() : fromUtf8(self.parent_path().string());
}

std::u16string programFileName(const std::u16string& stem) {
    return stem;
}

bool isVolumeRoot(const std::u16string& path) {
    const std::string utf8 = toUtf8(path);
    struct stat self {};
    struct stat parent {};
    if (::stat(utf8.c_str(), &self) != 0) {
        return false;
    }
    const std::string parentPath = std::filesystem::path(utf8).parent_path().string();
    if (utf8 == "/" || ::stat(parentPath.c_str(), &parent) != 0) {
        return true;
    }
    return self.st_dev != parent.st_dev;
}

DWORD currentProcessId() {
    return static_cast<DWORD>(::getpid());
}

}  // namespace plat
