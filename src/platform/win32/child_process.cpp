// Programs started with CreateProcessW and waited for on their process handle.
#include "plat/child_process.h"
#include "wide.h"

#include <string>

namespace plat {

using win32::units;
using win32::wide;

namespace {

// One argument as the C runtime splits a command line: in quotes, with the backslashes before a quote
// (and before the closing quote) doubled and the quote escaped.
std::u16string quoted(const std::u16string& argument) {
    std::u16string text = u"\"";
    std::size_t backslashes = 0;
    for (const char16_t unit : argument) {
        if (unit == u'\\') {
            ++backslashes;
            continue;
        }
        text.append(unit == u'"' ? 2 * backslashes + 1 : backslashes, u'\\');
        backslashes = 0;
        text += unit;
    }
    text.append(2 * backslashes, u'\\');
    return text + u"\"";
}

}  // namespace

struct ChildProcess::State {
    ::HANDLE process = nullptr;
};

ChildProcess::ChildProcess() : m_pState(new State()) {}

ChildProcess::~ChildProcess() {
    if (m_pState->process != nullptr) {
        ::CloseHandle(m_pState->process);
    }
    delete m_pState;
}

bool ChildProcess::start(const std::u16string& program, const std::u16string& argument,
                         std::string& failure) {
    std::u16string commandLine = quoted(program) + u" " + quoted(argument);
    ::STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    ::PROCESS_INFORMATION started{};
    if (!::CreateProcessW(wide(program.c_str()), wide(commandLine.data()), nullptr, nullptr, FALSE, 0,
                          nullptr, nullptr, &startup, &started)) {
        failure = "error " + std::to_string(::GetLastError());
        return false;
    }
    ::CloseHandle(started.hThread);
    m_pState->process = started.hProcess;
    return true;
}

bool ChildProcess::ended(DWORD milliseconds, int& status) {
    if (m_pState->process == nullptr ||
        ::WaitForSingleObject(m_pState->process, milliseconds) != WAIT_OBJECT_0) {
        return false;
    }
    ::DWORD code = 0;
    if (!::GetExitCodeProcess(m_pState->process, &code)) {
        return false;
    }
    status = static_cast<int>(code);
    return true;
}

int ChildProcess::endingSignal() const {
    return 0;
}

std::u16string programFolder() {
    wchar_t path[MAX_PATH + 1] = {};
    const ::DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH + 1);
    if (length == 0 || length > MAX_PATH) {
        return {};
    }
    const std::u16string full(units(path), length);
    const std::size_t separator = full.find_last_of(u"\\/");
    return separator == std::u16string::npos ? std::u16string() : full.substr(0, separator);
}

std::u16string programFileName(const std::u16string& stem) {
    return stem + u".exe";
}

bool isVolumeRoot(const std::u16string& path) {
    if (::GetFileAttributesW(wide(path.c_str())) == INVALID_FILE_ATTRIBUTES) {
        return false;
    }
    wchar_t volume[MAX_PATH + 1] = {};
    if (!::GetVolumePathNameW(wide(path.c_str()), volume, MAX_PATH + 1)) {
        return false;
    }
    std::u16string root = units(volume);
    std::u16string given = path;
    for (std::u16string* text : {&root, &given}) {
        while (!text->empty() && (text->back() == u'\\' || text->back() == u'/')) {
            text->pop_back();
        }
    }
    return root.size() == given.size() &&
           ::CompareStringOrdinal(wide(root.c_str()), static_cast<int>(root.size()), wide(given.c_str()),
                                  static_cast<int>(given.size()), TRUE) == CSTR_EQUAL;
}

DWORD currentProcessId() {
    return static_cast<DWORD>(::GetCurrentProcessId());
}

}  // namespace plat
