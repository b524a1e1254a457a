// The backends' progress dialog object: see backend_progress.h.
#include "ui/backend_progress.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <string>

#include "plat/strings.h"
#include "plat/ui.h"
#include "plat/windows.h"

namespace plat {

bool estimateSecondsLeft(ULONGLONG elapsedMs, DWORD completed, DWORD total, DWORD& seconds) {
    constexpr ULONGLONG kFirstEstimateMs = 2000;
    if (total == 0 || completed == 0 || elapsedMs < kFirstEstimateMs ||
        static_cast<ULONGLONG>(completed) * 100 < total) {
        return false;
    }
    const DWORD done = completed < total ? completed : total;
    const ULONGLONG leftMs = elapsedMs * (total - done) / done;
    seconds = static_cast<DWORD>((leftMs + 999) / 1000);
    return true;
}

namespace ui {

namespace {

constexpr char16_t kWindowClass[] = u"VELQProgressDialog";

LRESULT progressWindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

void registerWindowClass() {
    static const bool registered = [] {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = progressWindowProc;
        windowClass.lpszClassName = kWindowClass;
        return RegisterClassW(&windowClass) != 0;
    }();
    (void)registered;
}

// The form of generateGuidText's output: a title that is only the window's search name for a moment,
// which the backends need not show.
bool isGuidText(std::u16string_view text) {
    if (text.size() != 38 || text.front() != u'{' || text.back() != u'}') {
        return false;
    }
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
        const char16_t c = text[i];
        const bool hex = (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'F');
        if (dash ? c != u'-' : !hex) {
            return false;
        }
    }
    return true;
}

class ProgressObject final : public IProgressDialog {
public:
    ProgressObject() { currentBackend().progress().opened(); }

    ULONG Release() override {
        const ULONG left = m_nRefs.fetch_sub(1) - 1;
        if (left == 0) {
            _reportClosed();
            delete this;
        }
        return left;
    }

    HRESULT StartProgressDialog(HWND, void*, DWORD dwFlags, const void*) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_bRunning) {
            return E_UNEXPECTED;
        }
        registerWindowClass();
        m_hWnd = CreateWindowExW(0, kWindowClass, m_szTitle.c_str(), 0, 0, 0, 0, 0, nullptr, nullptr, nullptr,
                                 nullptr);
        m_bRunning = true;
        m_dwFlags = dwFlags;
        m_bTiming = false;
        _ui().started();
        return S_OK;
    }

    HRESULT StopProgressDialog() override {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_bRunning) {
                m_bRunning = false;
                _ui().stopped();
                // From another thread the window cannot be destroyed here; it goes with its thread.
                DestroyWindow(m_hWnd);
                m_hWnd = nullptr;
            }
        }
        _reportClosed();
        return S_OK;
    }

    HRESULT SetTitle(LPCWSTR pwzTitle) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_szTitle.assign(pwzTitle != nullptr ? pwzTitle : u"");
        if (m_hWnd != nullptr) {
            SetWindowTextW(m_hWnd, m_szTitle.c_str());
        }
        if (!isGuidText(m_szTitle)) {
            _ui().title(m_szTitle);
        }
        return S_OK;
    }

    HRESULT SetAnimation(HINSTANCE, UINT) override { return S_OK; }

    BOOL HasUserCancelled() override { return _ui().cancelRequested() ? TRUE : FALSE; }

    HRESULT SetProgress(DWORD dwCompleted, DWORD dwTotal) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        _ui().progress(dwCompleted, dwTotal);
        if (m_bRunning && (m_dwFlags & PROGDLG_AUTOTIME) != 0) {
            _estimate(dwCompleted, dwTotal);
        }
        return S_OK;
    }

    HRESULT SetProgress64(ULONGLONG ullCompleted, ULONGLONG ullTotal) override {
        // Scaled to 32 bits the way the shell does it: both divided until the total fits.
        while (ullTotal > 0xFFFFFFFFULL) {
            ullTotal >>= 1;
            ullCompleted >>= 1;
        }
        return SetProgress(static_cast<DWORD>(ullCompleted), static_cast<DWORD>(ullTotal));
    }

    HRESULT SetLine(DWORD dwLineNum, LPCWSTR pwzString, BOOL fCompactPath, const void*) override {
        if (dwLineNum < 1 || dwLineNum > 3) {
            return E_INVALIDARG;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        _ui().line(dwLineNum, pwzString != nullptr ? pwzString : u"", fCompactPath != FALSE);
        return S_OK;
    }

    HRESULT SetCancelMsg(LPCWSTR pwzCancelMsg, const void*) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        _ui().cancelMessage(pwzCancelMsg != nullptr ? pwzCancelMsg : u"");
        return S_OK;
    }

private:
    ~ProgressObject() override = default;

    static ProgressUi& _ui() { return currentBackend().progress(); }

    // With the lock held.
    void _estimate(DWORD completed, DWORD total) {
        const auto now = std::chrono::steady_clock::now();
        if (!m_bTiming) {
            m_bTiming = true;
            m_timeStarted = now;
            return;
        }
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_timeStarted);
        DWORD seconds = 0;
        if (estimateSecondsLeft(static_cast<ULONGLONG>(elapsed.count()), completed, total, seconds) &&
            seconds != m_dwShownSeconds) {
            m_dwShownSeconds = seconds;
            _ui().timeLeft(seconds);
        }
    }

    // The backend learns once that this dialog is over: at its stop, or at its release without one.
    void _reportClosed() {
        if (!m_bClosedReported.exchange(true)) {
            _ui().closed();
        }
    }

    std::atomic<ULONG> m_nRefs{1};
    std::atomic<bool> m_bClosedReported{false};
    std::mutex m_mutex;
    std::u16string m_szTitle;
    HWND m_hWnd = nullptr;
    bool m_bRunning = false;
    DWORD m_dwFlags = 0;
    bool m_bTiming = false;
    std::chrono::steady_clock::time_point m_timeStarted;
    DWORD m_dwShownSeconds = 0xFFFFFFFF;
};

}  // namespace

IProgressDialog* newBackendProgressDialog() {
    return new (std::nothrow) ProgressObject;
}

}  // namespace ui
}  // namespace plat
