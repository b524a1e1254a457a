// The fingerprint wait window in the UI backends (plat::ui::WaitUi).
//
// Every backend's wait window relays the simulated sensor's window statements (plat/sensor_sim.h) to the
// shown window while it stands. The scripted UI records each change of the window:
//   {"ui":"wait","op":"show"}  {"ui":"wait","op":"image","id":N}  {"ui":"wait","op":"hide"}
//   {"ui":"wait","op":"close"}
// The terminal UI writes one short line of the string table for each picture (1100 finger on the
// sensor, 1101 recognised, 1102 refused) and lets the person close the window with Ctrl-C.
#pragma once

#include <cstdint>
#include <mutex>

#include "plat/ui.h"
#include "ui/transcript.h"

namespace plat::ui {

// Text ids of the terminal's lines, one for each picture.
inline constexpr UINT kWaitTextFinger = 1100;
inline constexpr UINT kWaitTextMatched = 1101;
inline constexpr UINT kWaitTextRefused = 1102;
// The text id that stands for `pictureId` at a terminal; 0 for a picture without one.
UINT waitTextForPicture(UINT pictureId);

// The simulated sensor's window statements posted to one window while it is shown.
class WaitEventRelay {
public:
    WaitEventRelay() = default;
    ~WaitEventRelay();
    WaitEventRelay(const WaitEventRelay&) = delete;
    WaitEventRelay& operator=(const WaitEventRelay&) = delete;

    // Posts the statements to `window` from now on (a second window replaces the first).
    void start(HWND window);
    // Nothing is posted any more once this returns.
    void stop();

private:
    static void _deliver(void* context, UINT message, WPARAM wParam);

    std::mutex m_mutex;
    std::uint64_t m_nSubscription = 0;
    HWND m_hWindow = nullptr;
};

class SilentWait : public WaitUi {
public:
    void shown(HWND window) override { m_relay.start(window); }
    void image(HWND, UINT) override {}
    void hidden(HWND) override {}
    void closed(HWND) override { m_relay.stop(); }

private:
    WaitEventRelay m_relay;
};

class ScriptWait : public WaitUi {
public:
    explicit ScriptWait(Transcript& transcript);
    void shown(HWND window) override;
    void image(HWND window, UINT pictureId) override;
    void hidden(HWND window) override;
    void closed(HWND window) override;

private:
    void _op(const char* op);

    Transcript& m_transcript;
    WaitEventRelay m_relay;
};

// At a terminal: the picture's line on `outFd` (not owned), Ctrl-C posts WM_CLOSE to the shown window.
class TtyWait : public WaitUi {
public:
    explicit TtyWait(int outFd);
    ~TtyWait() override;
    TtyWait(const TtyWait&) = delete;
    TtyWait& operator=(const TtyWait&) = delete;

    void shown(HWND window) override;
    void image(HWND window, UINT pictureId) override;
    void hidden(HWND window) override;
    void closed(HWND window) override;

private:
    void _startInterruptWatch(HWND window);
    void _stopInterruptWatch();

    int m_nOutFd;
    std::mutex m_mutex;
    UINT m_uLastText = 0;  // a picture shown again writes no new line
    bool m_bShown = false;
    WaitEventRelay m_relay;
};

}  // namespace plat::ui
