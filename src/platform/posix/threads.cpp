#include "plat/threads.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "plat/errors.h"
#include "plat/sync.h"
#include "thread_queue.h"

namespace plat {

namespace {

using detail::ThreadQueue;

// The queues of all live threads by id. Immortal, because detached threads may still end (and unregister)
// while the process runs its exit handlers.
class QueueTable {
public:
    static QueueTable& instance() {
        static auto* table = new QueueTable;
        return *table;
    }

    // A new id (never reused) with its queue, registered at once so that posts to it succeed.
    std::shared_ptr<ThreadQueue> createQueue() {
        auto queue = std::make_shared<ThreadQueue>(m_nextId.fetch_add(1, std::memory_order_relaxed));
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queues.emplace(queue->threadId(), queue);
        return queue;
    }

    std::shared_ptr<ThreadQueue> find(DWORD threadId) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_queues.find(threadId);
        return it == m_queues.end() ? nullptr : it->second;
    }

    void remove(DWORD threadId) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queues.erase(threadId);
    }

private:
    std::mutex m_mutex;
    std::unordered_map<DWORD, std::shared_ptr<ThreadQueue>> m_queues;
    std::atomic<DWORD> m_nextId{1};
};

// Everything a thread ends with: its windows go, its queue refuses posts and releases waiting senders,
// its id is forgotten.
void endQueue(const std::shared_ptr<ThreadQueue>& queue) {
    detail::forgetWindowsOfThread(queue->threadId());
    queue->end();
    QueueTable::instance().remove(queue->threadId());
}

// The calling thread's queue. Threads of _beginthreadex are given theirs at start; others make theirs on
// first use and end it from the thread-local destructor when they exit.
class ThreadContext {
public:
    ThreadContext() = default;
    ThreadContext(const ThreadContext&) = delete;
    ThreadContext& operator=(const ThreadContext&) = delete;
    ~ThreadContext() { end(); }

    const std::shared_ptr<ThreadQueue>& queue() {
        if (m_queue == nullptr) {
            m_queue = QueueTable::instance().createQueue();
        }
        return m_queue;
    }
    void adopt(std::shared_ptr<ThreadQueue> queue) { m_queue = std::move(queue); }
    void end() {
        if (m_queue != nullptr && !m_bEnded) {
            m_bEnded = true;
            endQueue(m_queue);
        }
    }

private:
    std::shared_ptr<ThreadQueue> m_queue;
    bool m_bEnded = false;
};

thread_local ThreadContext t_context;

// The thread object behind a thread handle; waitable, signalled once the thread has ended.
class ThreadObject : public Waitable {
public:
    ThreadObject(unsigned (*proc)(void*), void* arg)
        : m_proc(proc), m_pArg(arg), m_queue(QueueTable::instance().createQueue()) {}

    DWORD id() const { return m_queue->threadId(); }

    DWORD exitCode() const {
        std::lock_guard<std::mutex> lock(waitLock());
        return m_bEnded ? m_dwExitCode : STILL_ACTIVE;
    }

    bool isSignalledFor(DWORD /*threadId*/) const override { return m_bEnded; }
    DWORD acquire(DWORD /*threadId*/) override { return WAIT_OBJECT_0; }

    // Runs on the new thread; ends with releasing the thread's own reference.
    static void* run(void* self) {
        auto* thread = static_cast<ThreadObject*>(self);
        t_context.adopt(thread->m_queue);
        const unsigned code = thread->m_proc(thread->m_pArg);
        t_context.end();
        thread->markEnded(code);
        thread->release();
        return nullptr;
    }

    // A thread that never started: its queue goes again.
    void abandon() { endQueue(m_queue); }

private:
    void markEnded(unsigned code) {
        {
            std::lock_guard<std::mutex> lock(waitLock());
            m_dwExitCode = code;
            m_bEnded = true;
        }
        notifyWaiters();
    }

    unsigned (*const m_proc)(void*);
    void* const m_pArg;
    const std::shared_ptr<ThreadQueue> m_queue;
    DWORD m_dwExitCode = STILL_ACTIVE;  // guarded by waitLock()
    bool m_bEnded = false;              // guarded by waitLock()
};

int startDetached(ThreadObject* thread, unsigned stackSize) {
    pthread_attr_t attributes;
    int err = pthread_attr_init(&attributes);
    if (err != 0) {
        return err;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0) {
        const long page = sysconf(_SC_PAGESIZE);
        const std::size_t pageSize = page > 0 ? static_cast<std::size_t>(page) : 4096;
        std::size_t size = std::max<std::size_t>(stackSize, PTHREAD_STACK_MIN);
        size = (size + pageSize - 1) / pageSize * pageSize;
        err = pthread_attr_setstacksize(&attributes, size);
    }
    if (err == 0) {
        pthread_t ignored;
        err = pthread_create(&ignored, &attributes, &ThreadObject::run, thread);
    }
    pthread_attr_destroy(&attributes);
    return err;
}

// The main thread can receive posts from process start, before it has asked for its id.
const bool g_bMainQueueReady = (t_context.queue(), true);

}  // namespace

namespace detail {

std::shared_ptr<ThreadQueue> currentQueue() {
    return t_context.queue();
}

std::shared_ptr<ThreadQueue> findQueue(DWORD threadId) {
    return QueueTable::instance().find(threadId);
}

}  // namespace detail

std::uintptr_t _beginthreadex(void* /*security*/, unsigned stackSize, unsigned (*startAddress)(void*),
                              void* arglist, unsigned initFlag, unsigned* threadId) {
    if (startAddress == nullptr || initFlag != 0) {
        errno = EINVAL;
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    auto* thread = new ThreadObject(startAddress, arglist);
    const DWORD id = thread->id();
    thread->addRef();  // the running thread's own reference
    const int err = startDetached(thread, stackSize);
    if (err != 0) {
        thread->abandon();
        thread->release();
        thread->release();
        errno = err;
        setLastErrorFromErrno(err);
        return 0;
    }
    if (threadId != nullptr) {
        *threadId = id;
    }
    return reinterpret_cast<std::uintptr_t>(static_cast<KernelObject*>(thread));
}

HANDLE beginThread(unsigned (*startAddress)(void*), void* arglist, unsigned* threadId) {
    return reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, startAddress, arglist, 0, threadId));
}

BOOL GetExitCodeThread(HANDLE hThread, DWORD* lpExitCode) {
    const ThreadObject* thread = handleAs<ThreadObject>(hThread);
    if (thread == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (lpExitCode == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *lpExitCode = thread->exitCode();
    return TRUE;
}

DWORD GetCurrentThreadId() {
    return t_context.queue()->threadId();
}

void Sleep(DWORD dwMilliseconds) {
    if (dwMilliseconds == 0) {
        sched_yield();
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(dwMilliseconds));
}

}  // namespace plat
