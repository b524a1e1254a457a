#include "ui/wait_kinds.h"

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "plat/messages.h"
#include "plat/resources.h"
#include "plat/sensor_sim.h"
#include "plat/strings.h"
#include "plat/windows.h"

namespace plat::ui {

UINT waitTextForPicture(UINT pictureId) {
    switch (pictureId) {
        case 509:
            return kWaitTextFinger;
        case 504:
            return kWaitTextMatched;
        case 505:
            return kWaitTextRefused;
        default:
            return 0;
    }
}

WaitUi& silentWait() {
    // Never destroyed: a window thread may still close its window while the process exits.
    static SilentWait* const wait = new SilentWait();
    return *wait;
}

// --- WaitEventRelay ---

WaitEventRelay::~WaitEventRelay() {
    stop();
}

void WaitEventRelay::start(HWND window) {
    stop();
    std::uint64_t id = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hWindow = window;
    }
    id = sensor::subscribeWindowEvents(&WaitEventRelay::_deliver, this);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_nSubscription = id;
}

void WaitEventRelay::stop() {
    std::uint64_t id = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        id = m_nSubscription;
        m_nSubscription = 0;
        m_hWindow = nullptr;
    }
    // Outside the lock: unsubscribing waits for a delivery in progress, which takes the lock.
    sensor::unsubscribeWindowEvents(id);
}

void WaitEventRelay::_deliver(void* context, UINT message, WPARAM wParam) {
    auto* self = static_cast<WaitEventRelay*>(context);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    if (self->m_hWindow != nullptr) {
        PostMessageW(self->m_hWindow, message, wParam, 0);
    }
}

// --- ScriptWait ---

ScriptWait::ScriptWait(Transcript& transcript) : m_transcript(transcript) {}

void ScriptWait::_op(const char* op) {
    m_transcript.write(JsonLine().addUtf8("ui", "wait").addUtf8("op", op));
}

void ScriptWait::shown(HWND window) {
    _op("show");
    m_relay.start(window);
}

void ScriptWait::image(HWND, UINT pictureId) {
    m_transcript.write(
        JsonLine().addUtf8("ui", "wait").addUtf8("op", "image").add("id", static_cast<long long>(pictureId)));
}

void ScriptWait::hidden(HWND) {
    _op("hide");
}

void ScriptWait::closed(HWND) {
    m_relay.stop();
    _op("close");
}

}  // namespace plat::ui
