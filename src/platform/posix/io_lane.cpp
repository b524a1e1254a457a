// One thread for the blocks of every mapped file of the process; see io_lane.h.
#include "io_lane.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace plat::detail {

// Runs the lanes' jobs in the order they were queued.
class IoThread {
public:
    IoThread() : m_thread([this] { _run(); }) {}
    ~IoThread() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bStopping = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
    IoThread(const IoThread&) = delete;
    IoThread& operator=(const IoThread&) = delete;

    // The thread of the lanes that exist, or a new one when there are none.
    static std::shared_ptr<IoThread> shared() {
        static std::mutex s_mutex;
        static std::weak_ptr<IoThread> s_current;
        const std::lock_guard<std::mutex> lock(s_mutex);
        std::shared_ptr<IoThread> thread = s_current.lock();
        if (thread == nullptr) {
            thread = std::make_shared<IoThread>();
            s_current = thread;
        }
        return thread;
    }

    void start(IoLane& lane, const IoLane::Block& block) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            lane.m_block = block;
            lane.m_bPending = true;
            m_queue.push_back(&lane);
        }
        m_changed.notify_all();
    }

    int wait(IoLane& lane, IoLane::Block& done) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&lane] { return !lane.m_bPending; });
        done = std::exchange(lane.m_block, IoLane::Block{});
        return std::exchange(lane.m_nResult, 0);
    }

private:
    void _run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (true) {
            m_changed.wait(lock, [this] { return !m_queue.empty() || m_bStopping; });
            if (m_queue.empty()) {
                return;  // stopping: no lane is left to queue anything
            }
            IoLane* lane = m_queue.front();
            m_queue.pop_front();
            const IoLane::Block block = lane->m_block;
            lock.unlock();
            const int result = lane->m_job(lane->m_fd, block);
            lock.lock();
            lane->m_nResult = result;
            lane->m_bPending = false;
            m_changed.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;  // a job queued, a job done, or the end
    std::deque<IoLane*> m_queue;
    bool m_bStopping = false;
    std::thread m_thread;  // last: started once everything it reads exists
};

IoLane::IoLane(int fd, Job job) : m_fd(fd), m_job(job), m_pThread(IoThread::shared()) {}

IoLane::~IoLane() {
    Block unused;
    m_pThread->wait(*this, unused);
}

void IoLane::start(const Block& block) {
    m_pThread->start(*this, block);
}

int IoLane::wait(Block& done) {
    return m_pThread->wait(*this, done);
}

}  // namespace plat::detail
