// A UI backend for the gate's tests: it records what the wait window and the message boxes show, and it
// relays the simulated sensor's window statements to the shown window as the real backends do.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "plat/resources.h"
#include "plat/strings.h"
#include "plat/ui.h"
#include "ui/wait_kinds.h"

namespace velq_test {

class RecordingUi : public plat::ui::Backend, plat::ui::WaitUi, plat::ui::MessageBoxUi, plat::ui::CursorUi {
public:
    std::string_view name() const override { return "recording"; }
    plat::ui::MessageBoxUi& messageBox() override { return *this; }
    plat::ui::CursorUi& cursor() override { return *this; }
    plat::ui::WaitUi& wait() override { return *this; }

    void shown(plat::HWND window) override {
        _add("show");
        m_relay.start(window);
    }
    void image(plat::HWND, plat::UINT pictureId) override { _add("image " + std::to_string(pictureId)); }
    void hidden(plat::HWND) override { _add("hide"); }
    void closed(plat::HWND) override {
        m_relay.stop();
        _add("close");
    }
    int show(plat::HWND, std::u16string_view text, std::u16string_view, plat::UINT flags) override {
        _add("box " + plat::toUtf8(text) + " flags " + std::to_string(flags));
        return plat::IDOK;
    }
    void show(plat::DWORD) override {}

    std::vector<std::string> events() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    // Waits until `event` has been recorded (the tests' hang guard ends a wait that never comes).
    void waitFor(const std::string& event) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] {
            for (const std::string& e : m_events) {
                if (e == event) {
                    return true;
                }
            }
            return false;
        });
    }

private:
    void _add(std::string event) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_events;
    plat::ui::WaitEventRelay m_relay;
};

// The recorded line of message box `textId` with `flags`, in the thread's language.
inline std::string boxEvent(plat::UINT textId, plat::UINT flags) {
    const plat::WCHAR* text = nullptr;
    const int length = plat::LoadStringW(nullptr, textId, reinterpret_cast<plat::LPWSTR>(&text), 0);
    return "box " + plat::toUtf8(std::u16string_view(text, static_cast<std::size_t>(length))) + " flags " +
           std::to_string(flags);
}

// Installs a RecordingUi for the life of this object.
class ScopedRecordingUi {
public:
    ScopedRecordingUi() {
        auto ui = std::make_unique<RecordingUi>();
        m_ui = ui.get();
        m_previous = plat::ui::installBackend(std::move(ui));
    }
    ~ScopedRecordingUi() {
        // The previous backend goes back; ours stays alive (a thread could still hold it) until the end.
        std::unique_ptr<plat::ui::Backend> ours = plat::ui::installBackend(std::move(m_previous));
        retired().push_back(std::move(ours));
    }
    ScopedRecordingUi(const ScopedRecordingUi&) = delete;
    ScopedRecordingUi& operator=(const ScopedRecordingUi&) = delete;
    RecordingUi& ui() { return *m_ui; }

private:
    static std::vector<std::unique_ptr<plat::ui::Backend>>& retired() {
        static std::vector<std::unique_ptr<plat::ui::Backend>> list;
        return list;
    }
    RecordingUi* m_ui = nullptr;
    std::unique_ptr<plat::ui::Backend> m_previous;
};

}  // namespace velq_test
