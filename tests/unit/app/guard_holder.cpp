#include "guard_holder.h"

#include <gtest/gtest.h>

#include "app/VELQAssistant.h"

#ifdef _WIN32
#include <cstdint>
#include <string>
#include <vector>
// After the plat headers: <windows.h> turns their names into macros.
#include <windows.h>
#else
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace app_test {

namespace {

// The holder's part, the same on both systems: takes the guard, tells whether it was there already,
// and keeps it until `waitForRelease` returns.
template <typename Tell, typename Wait>
void holdGuard(const std::u16string& name, Tell tellVerdict, Wait waitForRelease) {
    VELQAssistant assistant;
    tellVerdict(assistant.isExistInstance(name) ? 't' : 'f');
    waitForRelease();
}

}  // namespace

#ifdef _WIN32

namespace {

// The holder's orders travel in the environment of the program started again: the guard's name and the
// inherited ends of the two pipes.
constexpr const wchar_t* kNameVariable = L"VELQ_TEST_GUARD_NAME";
constexpr const wchar_t* kPipesVariable = L"VELQ_TEST_GUARD_PIPES";
constexpr const wchar_t* kHolderFilter = L"--gtest_filter=GuardHolderProcess.DISABLED_HoldsTheGuard";

std::wstring environmentValue(const wchar_t* name) {
    std::vector<wchar_t> value(32768);
    const DWORD length = ::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    return length > 0 && length < value.size() ? std::wstring(value.data(), length) : std::wstring();
}

std::wstring ownPath() {
    std::vector<wchar_t> path(32768);
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return std::wstring(path.data(), length);
}

std::wstring handleText(HANDLE handle) {
    return std::to_wstring(reinterpret_cast<std::uintptr_t>(handle));
}

HANDLE handleOfText(const std::wstring& text) {
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(std::stoull(text)));
}

}  // namespace

GuardHolder::GuardHolder(const std::u16string& name) {
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE readyRead = nullptr, readyWrite = nullptr, holdRead = nullptr, holdWrite = nullptr;
    if (!::CreatePipe(&readyRead, &readyWrite, &inherited, 0)) {
        return;
    }
    if (!::CreatePipe(&holdRead, &holdWrite, &inherited, 0)) {
        ::CloseHandle(readyRead);
        ::CloseHandle(readyWrite);
        return;
    }
    // The holder inherits only its own ends: the parent's ends must close when the parent closes them.
    ::SetHandleInformation(readyRead, HANDLE_FLAG_INHERIT, 0);
    ::SetHandleInformation(holdWrite, HANDLE_FLAG_INHERIT, 0);
    ::SetEnvironmentVariableW(kNameVariable, std::wstring(name.begin(), name.end()).c_str());
    ::SetEnvironmentVariableW(kPipesVariable, (handleText(readyWrite) + L" " + handleText(holdRead)).c_str());
    // Its test report would mix with this program's: it goes nowhere.
    HANDLE nowhere = ::CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                   OPEN_EXISTING, 0, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nowhere;
    startup.hStdOutput = nowhere;
    startup.hStdError = nowhere;
    std::wstring commandLine =
        L"\"" + ownPath() + L"\" " + kHolderFilter + L" --gtest_also_run_disabled_tests";
    PROCESS_INFORMATION process{};
    const BOOL created = ::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                          nullptr, &startup, &process);
    ::SetEnvironmentVariableW(kNameVariable, nullptr);
    ::SetEnvironmentVariableW(kPipesVariable, nullptr);
    ::CloseHandle(nowhere);
    ::CloseHandle(readyWrite);
    ::CloseHandle(holdRead);
    m_hHold = holdWrite;
    if (created) {
        ::CloseHandle(process.hThread);
        m_hProcess = process.hProcess;
        char verdict = 0;
        DWORD got = 0;
        m_bStarted = ::ReadFile(readyRead, &verdict, 1, &got, nullptr) && got == 1;
        m_bSawOther = verdict == 't';
    }
    ::CloseHandle(readyRead);
}

void GuardHolder::release() {
    if (m_hHold != nullptr) {
        ::CloseHandle(m_hHold);
        m_hHold = nullptr;
    }
    if (m_hProcess != nullptr) {
        ::WaitForSingleObject(m_hProcess, INFINITE);
        ::CloseHandle(m_hProcess);
        m_hProcess = nullptr;
    }
}

void GuardHolder::kill() {
    if (m_hProcess != nullptr) {
        ::TerminateProcess(m_hProcess, 1);
    }
    release();
}

// The holder's part when the test program is started again by GuardHolder; disabled, so that it runs only
// when asked for by name (it does nothing without GuardHolder's orders).
TEST(GuardHolderProcess, DISABLED_HoldsTheGuard) {
    const std::wstring name = environmentValue(kNameVariable);
    const std::wstring pipes = environmentValue(kPipesVariable);
    ASSERT_FALSE(name.empty());
    const std::size_t space = pipes.find(L' ');
    ASSERT_NE(space, std::wstring::npos) << "started without GuardHolder's pipes";
    HANDLE ready = handleOfText(pipes.substr(0, space));
    HANDLE hold = handleOfText(pipes.substr(space + 1));
    holdGuard(
        std::u16string(name.begin(), name.end()),
        [&](char verdict) {
            DWORD written = 0;
            ::WriteFile(ready, &verdict, 1, &written, nullptr);
        },
        [&] {
            char ignored = 0;
            DWORD got = 0;
            ::ReadFile(hold, &ignored, 1, &got, nullptr);  // ends when GuardHolder closes its end
        });
}

#else

GuardHolder::GuardHolder(const std::u16string& name) {
    int ready[2];
    int hold[2];
    if (::pipe(ready) != 0 || ::pipe(hold) != 0) {
        return;
    }
    m_pid = ::fork();
    if (m_pid == 0) {
        ::close(ready[0]);
        ::close(hold[1]);
        holdGuard(
            name, [&](char verdict) { (void)!::write(ready[1], &verdict, 1); },
            [&] {
                char ignored = 0;
                (void)!::read(hold[0], &ignored, 1);
            });
        ::_exit(0);
    }
    ::close(ready[1]);
    ::close(hold[0]);
    m_holdFd = hold[1];
    char verdict = 0;
    m_bStarted = m_pid > 0 && ::read(ready[0], &verdict, 1) == 1;
    m_bSawOther = verdict == 't';
    ::close(ready[0]);
}

void GuardHolder::release() {
    if (m_holdFd >= 0) {
        ::close(m_holdFd);
        m_holdFd = -1;
    }
    if (m_pid > 0) {
        ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
}

void GuardHolder::kill() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
    }
    release();
}

#endif

GuardHolder::~GuardHolder() {
    release();
}

}  // namespace app_test
