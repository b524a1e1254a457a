// The desktop UI's one GTK main loop, on a UI thread of its own. Every GTK call of the desktop windows
// runs on that thread: the core's threads hand their work over with post() and, where they expect an
// answer, wait for it with a Reply that the UI thread fills.
//
// GTK 3, not GTK 4: the wait window must stay on top of other windows and be placed in the middle of the
// screen with a fixed size; GTK 4 dropped gtk_window_set_keep_above and window positioning, while GTK 3's
// X11 windows take those hints the way the window manager expects them.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace plat::ui {

class GtkLoop {
public:
    // The process's loop, started on the first call: its thread opens the display and then runs the loop
    // until end() (GTK cannot be set up a second time on another thread, so an ended loop stays ended). Null
    // when the display cannot be opened; `failure` then says why, in one line.
    static GtkLoop* instance(std::string& failure);

    // Runs `work` on the UI thread, after the work posted before it; returns at once.
    void post(std::function<void()> work);

    // Quits the loop after the work posted before and waits until the UI thread has ended.
    void end();

private:
    GtkLoop() = default;
};

// One answer from the UI thread to a waiting thread.
template <typename T>
class Reply {
public:
    void set(T value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_value = std::move(value);
        m_ready.notify_all();
    }
    T wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_ready.wait(lock, [this] { return m_value.has_value(); });
        return std::move(*m_value);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_ready;
    std::optional<T> m_value;
};

}  // namespace plat::ui
