#include "plat/messages.h"

#include <chrono>
#include <utility>
#include <vector>

#include "plat/errors.h"
#include "plat/windows.h"
#include "thread_queue.h"

namespace plat {

namespace detail {

namespace {
const HWND kThreadMessagesOnly = reinterpret_cast<HWND>(static_cast<std::intptr_t>(-1));

bool inRange(UINT message, UINT min, UINT max) {
    return (min == 0 && max == 0) || (message >= min && message <= max);
}
}  // namespace

DWORD messageTime() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

bool MessageFilter::takes(const MSG& msg) const {
    if (hwnd == kThreadMessagesOnly) {
        if (msg.hwnd != nullptr) {
            return false;
        }
    } else if (hwnd != nullptr && msg.hwnd != hwnd) {
        return false;
    }
    return inRange(msg.message, min, max);
}

ThreadQueue::ThreadQueue(DWORD threadId) : m_dwThreadId(threadId) {}

bool ThreadQueue::post(const MSG& msg) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_bAlive) {
            return false;
        }
        m_vPosted.push_back(msg);
    }
    m_cvChanged.notify_all();
    return true;
}

bool ThreadQueue::queueSent(const std::shared_ptr<SentMessage>& sent) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_bAlive) {
            return false;
        }
        m_vSent.push_back(sent);
    }
    m_cvChanged.notify_all();
    return true;
}

void ThreadQueue::dropSentTo(HWND hwnd) {
    std::vector<std::shared_ptr<SentMessage>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_vSent.begin(); it != m_vSent.end();) {
            if ((*it)->hwnd == hwnd) {
                dropped.push_back(std::move(*it));
                it = m_vSent.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const auto& sent : dropped) {
        complete(*sent, 0);
    }
}

void ThreadQueue::end() {
    std::deque<std::shared_ptr<SentMessage>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bAlive = false;
        m_vPosted.clear();
        dropped.swap(m_vSent);
    }
    for (const auto& sent : dropped) {
        complete(*sent, 0);
    }
}

void ThreadQueue::setQuit(int exitCode) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bQuit = true;
        m_nQuitCode = exitCode;
    }
    m_cvChanged.notify_all();
}

void ThreadQueue::complete(SentMessage& sent, LRESULT result) {
    {
        std::lock_guard<std::mutex> lock(sent.sender->m_mutex);
        sent.result = result;
        sent.done = true;
    }
    sent.sender->m_cvChanged.notify_all();
}

void ThreadQueue::runSentMessages(std::unique_lock<std::mutex>& lock) {
    while (!m_vSent.empty()) {
        const std::shared_ptr<SentMessage> sent = std::move(m_vSent.front());
        m_vSent.pop_front();
        lock.unlock();
        complete(*sent, callWindowProcedure(sent->hwnd, sent->message, sent->wParam, sent->lParam));
        lock.lock();
    }
}

bool ThreadQueue::findPosted(MSG& msg, const MessageFilter& filter, bool remove) {
    for (auto it = m_vPosted.begin(); it != m_vPosted.end(); ++it) {
        if (filter.takes(*it)) {
            msg = *it;
            if (remove) {
                m_vPosted.erase(it);
            }
            return true;
        }
    }
    if (m_bQuit && inRange(WM_QUIT, filter.min, filter.max)) {
        msg = MSG{nullptr, WM_QUIT, static_cast<WPARAM>(m_nQuitCode), 0, messageTime(), POINT{0, 0}};
        if (remove) {
            m_bQuit = false;
        }
        return true;
    }
    return false;
}

bool ThreadQueue::takeMessage(MSG& msg, const MessageFilter& filter, bool remove, bool wait) {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        runSentMessages(lock);
        if (findPosted(msg, filter, remove)) {
            return true;
        }
        if (!wait) {
            return false;
        }
        m_cvChanged.wait(lock);
    }
}

LRESULT ThreadQueue::awaitReply(const SentMessage& sent) {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        // Sends to this thread are run before looking at `done`, so that two threads sending to each
        // other both make progress.
        runSentMessages(lock);
        if (sent.done) {
            return sent.result;
        }
        m_cvChanged.wait(lock);
    }
}

}  // namespace detail

namespace {

// -1 and the last error when the arguments of GetMessageW/PeekMessageW cannot be used.
BOOL checkMessageArguments(LPMSG lpMsg, HWND hWnd) {
    if (lpMsg == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return -1;
    }
    if (hWnd != nullptr && hWnd != detail::kThreadMessagesOnly && IsWindow(hWnd) == FALSE) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return -1;
    }
    return TRUE;
}

}  // namespace

BOOL PostThreadMessageW(DWORD idThread, UINT Msg, WPARAM wParam, LPARAM lParam) {
    const std::shared_ptr<detail::ThreadQueue> queue = detail::findQueue(idThread);
    if (queue == nullptr ||
        !queue->post(MSG{nullptr, Msg, wParam, lParam, detail::messageTime(), POINT{0, 0}})) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return FALSE;
    }
    return TRUE;
}

void PostQuitMessage(int nExitCode) {
    detail::currentQueue()->setQuit(nExitCode);
}

BOOL GetMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax) {
    if (checkMessageArguments(lpMsg, hWnd) != TRUE) {
        return -1;
    }
    detail::currentQueue()->takeMessage(*lpMsg, {hWnd, wMsgFilterMin, wMsgFilterMax}, true, true);
    return lpMsg->message == WM_QUIT ? FALSE : TRUE;
}

BOOL PeekMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax, UINT wRemoveMsg) {
    if (checkMessageArguments(lpMsg, hWnd) != TRUE) {
        return FALSE;
    }
    const bool remove = (wRemoveMsg & PM_REMOVE) != 0;
    const bool found =
        detail::currentQueue()->takeMessage(*lpMsg, {hWnd, wMsgFilterMin, wMsgFilterMax}, remove, false);
    return found ? TRUE : FALSE;
}

LRESULT DispatchMessageW(const MSG* lpMsg) {
    if (lpMsg == nullptr || lpMsg->hwnd == nullptr) {
        return 0;
    }
    const DWORD owner = GetWindowThreadProcessId(lpMsg->hwnd, nullptr);
    if (owner == 0) {
        return 0;
    }
    if (owner != detail::currentQueue()->threadId()) {
        SetLastError(ERROR_WINDOW_OF_OTHER_THREAD);
        return 0;
    }
    return detail::callWindowProcedure(lpMsg->hwnd, lpMsg->message, lpMsg->wParam, lpMsg->lParam);
}

BOOL TranslateMessage(const MSG* /*lpMsg: no keyboard input to translate*/) {
    return FALSE;
}

}  // namespace plat
