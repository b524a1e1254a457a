// Private to the platform layer: the message queue of one thread, shared by threads.cpp (which makes and
// ends queues), messages.cpp (posts and message loops) and windows.cpp (SendMessageW).
//
// Lock order: the window table's lock before a queue's lock; a queue's lock is never held while another
// queue's lock is taken or a window procedure runs.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "plat/messages.h"
#include "plat/types.h"

namespace plat::detail {

class ThreadQueue;

// A message sent from one thread to a window of another; the sender waits until `done`.
struct SentMessage {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    std::shared_ptr<ThreadQueue> sender;
    LRESULT result = 0;  // guarded by the sender's queue lock
    bool done = false;   // guarded by the sender's queue lock
};

struct MessageFilter {
    HWND hwnd;
    UINT min;
    UINT max;
    bool takes(const MSG& msg) const;
};

class ThreadQueue {
public:
    explicit ThreadQueue(DWORD threadId);

    DWORD threadId() const { return m_dwThreadId; }

    // Any thread. False once the thread has ended.
    bool post(const MSG& msg);
    bool queueSent(const std::shared_ptr<SentMessage>& sent);
    // Any thread: senders still waiting for `hwnd` get 0 (the window is gone).
    void dropSentTo(HWND hwnd);
    // Refuses further posts and gives every waiting sender 0. Called once, as the thread ends.
    void end();

    // The owning thread only.
    void setQuit(int exitCode);
    // Runs the messages sent to this thread's windows, then looks for a posted message that `filter`
    // takes; waits for one when `wait` is set.
    bool takeMessage(MSG& msg, const MessageFilter& filter, bool remove, bool wait);
    // Waits until `sent` (queued on another thread) is done, running sends to this thread meanwhile.
    LRESULT awaitReply(const SentMessage& sent);

    // Marks `sent` done with `result` and wakes its sender.
    static void complete(SentMessage& sent, LRESULT result);

private:
    void runSentMessages(std::unique_lock<std::mutex>& lock);
    bool findPosted(MSG& msg, const MessageFilter& filter, bool remove);

    const DWORD m_dwThreadId;
    std::mutex m_mutex;
    std::condition_variable m_cvChanged;
    std::deque<MSG> m_vPosted;
    std::deque<std::shared_ptr<SentMessage>> m_vSent;
    bool m_bAlive = true;
    bool m_bQuit = false;
    int m_nQuitCode = 0;
};

// threads.cpp: the calling thread's queue (made with its id if it has none yet), and the queue of a
// live thread by id (null if none).
std::shared_ptr<ThreadQueue> currentQueue();
std::shared_ptr<ThreadQueue> findQueue(DWORD threadId);

// windows.cpp: runs the window's procedure on the calling thread (0 if the window is gone); forgets the
// windows of a thread that ends.
LRESULT callWindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
void forgetWindowsOfThread(DWORD threadId);

// messages.cpp: milliseconds of the monotonic clock, for MSG::time.
DWORD messageTime();

}  // namespace plat::detail
