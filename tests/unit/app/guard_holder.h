// Another process of this test program that holds the guard of a request (VELQAssistant::isExistInstance)
// until it is released or killed, so that the tests see what a second start of the program sees. On POSIX
// it is a forked child; on Windows the test program started again (CreateProcessW) with a filter that
// runs only the holder's part, because a named mutex lives as long as the handles of a live process.
#pragma once

#include <string>

namespace app_test {

class GuardHolder {
public:
    // Starts the holder and waits until it has made the guard of `name`.
    explicit GuardHolder(const std::u16string& name);
    // Lets the holder end, closing its guard, and waits for it.
    ~GuardHolder();
    GuardHolder(const GuardHolder&) = delete;
    GuardHolder& operator=(const GuardHolder&) = delete;

    bool started() const { return m_bStarted; }
    // Whether the holder found the guard there already when it made it.
    bool sawOther() const { return m_bSawOther; }
    // Ends the holder at once, without its closing anything itself.
    void kill();

private:
    void release();

#ifdef _WIN32
    void* m_hProcess = nullptr;
    void* m_hHold = nullptr;  // the write end of the pipe the holder waits on
#else
    int m_pid = -1;
    int m_holdFd = -1;
#endif
    bool m_bStarted = false;
    bool m_bSawOther = false;
};

}  // namespace app_test
