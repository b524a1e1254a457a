// Helpers of the native UI's tests: windows are found and driven by messages from the test, as a person
// would press their buttons.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "plat/types.h"
#include "win32/wide.h"

namespace plat::test {

// Skips a case where the system cannot make windows (a Wine prefix without a display or the null driver).
inline bool windowsCanBeMade() {
    const ::HWND probe =
        ::CreateWindowExW(0, L"Static", L"", 0, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
    if (probe == nullptr) {
        return false;
    }
    ::DestroyWindow(probe);
    return true;
}

#define SKIP_WITHOUT_WINDOWS()                                                    \
    if (!::plat::test::windowsCanBeMade()) {                                      \
        GTEST_SKIP() << "the system cannot make windows here (no window driver)"; \
    }

// Handles what was sent or posted to the calling thread's windows.
inline void pumpMessages() {
    ::MSG msg{};
    while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
        ::TranslateMessage(&msg);
        ::DispatchMessageW(&msg);
    }
}

// Waits for `condition` while the calling thread's windows get their messages. The bound only keeps a
// broken case from hanging the run (a slow machine still gets there well inside it); it measures nothing.
template <typename Condition>
bool eventually(Condition condition) {
    for (int round = 0; round < 3000; ++round) {
        if (condition()) {
            return true;
        }
        pumpMessages();
        ::Sleep(10);
    }
    return condition();
}

// Keeps the first visible dialog (class "#32770") in `result`. A function of the API's calling
// convention (stdcall on 32-bit Windows), which a lambda is not.
inline ::BOOL CALLBACK keepDialog(::HWND window, ::LPARAM result) {
    wchar_t className[16] = {};
    ::GetClassNameW(window, className, 16);
    if (std::wstring(className) == L"#32770" && ::IsWindowVisible(window)) {
        *reinterpret_cast<::HWND*>(result) = window;
        return FALSE;
    }
    return TRUE;
}

// The first visible dialog of thread `threadId`; null when it has none.
inline ::HWND dialogOfThread(::DWORD threadId) {
    ::HWND found = nullptr;
    ::EnumThreadWindows(threadId, &keepDialog, reinterpret_cast<::LPARAM>(&found));
    return found;
}

// The text of a window or control.
inline std::wstring textOf(::HWND window) {
    wchar_t text[512] = {};
    ::GetWindowTextW(window, text, 512);
    return text;
}

// Runs `ask` on a thread of its own (a dialog blocks the thread that shows it) and keeps its answer.
class Asker {
public:
    template <typename Ask>
    explicit Asker(Ask ask)
        : m_thread([this, ask] {
              m_threadId = ::GetCurrentThreadId();
              m_answer = ask();
              m_bDone = true;
          }) {}
    // A dialog that a failed case left standing is answered, so that the thread ends.
    ~Asker() {
        for (const int button : {IDCANCEL, IDNO, IDOK}) {
            if (!m_bDone && m_threadId != 0) {
                ::PostMessageW(dialogOfThread(m_threadId), WM_COMMAND, static_cast<::WPARAM>(button), 0);
                eventually([&] { return m_bDone.load(); });
            }
        }
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;

    // The asker's dialog once it stands; null when none came.
    ::HWND dialog() {
        ::HWND found = nullptr;
        eventually([&] { return m_threadId != 0 && (found = dialogOfThread(m_threadId)) != nullptr; });
        return found;
    }
    // The answer, once the dialog has gone; -100 when it never went.
    int answer() {
        const bool done = eventually([&] { return m_bDone.load(); });
        return done ? m_answer.load() : -100;
    }

private:
    std::atomic<::DWORD> m_threadId{0};
    std::atomic<int> m_answer{0};
    std::atomic<bool> m_bDone{false};
    std::thread m_thread;
};

}  // namespace plat::test
