// The person at the other side of a pseudo-terminal, in the terminal UI's tests: reads what the terminal
// shows and types keys.
#pragma once

#include <poll.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

namespace velq_test {

class PersonAtTerminal {
public:
    PersonAtTerminal() = default;
    ~PersonAtTerminal() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    PersonAtTerminal(const PersonAtTerminal&) = delete;
    PersonAtTerminal& operator=(const PersonAtTerminal&) = delete;

    // Takes the person's side of the pseudo-terminal; the destructor closes it.
    void attach(int fd) { m_fd = fd; }

    // What the terminal showed up to and with `marker`, reading until it appears. The long limit only
    // keeps a broken dialog from hanging the test run; it asserts nothing about speed.
    std::string readUntil(const std::string& marker) {
        while (m_szShown.find(marker) == std::string::npos) {
            pollfd pfd{m_fd, POLLIN, 0};
            if (::poll(&pfd, 1, 60000) <= 0) {
                ADD_FAILURE() << "the terminal never showed \"" << marker << "\"; it showed: " << m_szShown;
                break;
            }
            char chunk[512];
            const ssize_t count = ::read(m_fd, chunk, sizeof chunk);
            if (count <= 0) {
                break;
            }
            m_szShown.append(chunk, static_cast<std::size_t>(count));
        }
        const std::size_t end = m_szShown.find(marker);
        const std::size_t stop = end == std::string::npos ? m_szShown.size() : end + marker.size();
        std::string shown = m_szShown.substr(0, stop);
        m_szShown.erase(0, stop);
        m_szAll += shown;
        return shown;
    }

    void type(const std::string& keys) {
        ASSERT_EQ(::write(m_fd, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Everything read so far.
    const std::string& everythingShown() const { return m_szAll; }

private:
    int m_fd = -1;
    std::string m_szShown;  // read but not yet given out
    std::string m_szAll;
};

}  // namespace velq_test
