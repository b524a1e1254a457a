#include "bio/FPWaitDialog.h"

#include "diag/DbgLog.h"
#include "plat/errors.h"
#include "plat/handle.h"
#include "plat/messages.h"
#include "plat/sync.h"
#include "plat/threads.h"
#include "plat/ui.h"

namespace {

constexpr char16_t kWindowClass[] = u"FPMonitor";
// The picture control's class: a plain child that the backend stands behind.
constexpr char16_t kPictureClass[] = u"FPMonitorPicture";

constexpr plat::DWORD kWindowExStyle = 0x00000008;  // WS_EX_TOPMOST
constexpr plat::DWORD kWindowStyle = 0x00CC0000;    // WS_CAPTION | WS_SYSMENU | WS_THICKFRAME, hidden
constexpr plat::DWORD kPictureStyle =
    0x5000030E;                        // WS_CHILD | WS_VISIBLE | SS_BITMAP | SS_NOTIFY | SS_CENTERIMAGE
constexpr plat::UINT kClassStyle = 3;  // CS_HREDRAW | CS_VREDRAW

// Session codes that close the window: console disconnect, logon, logoff, lock, unlock.
bool closesOnSession(plat::WPARAM code) {
    return code == 2 || (code >= 5 && code <= 8);
}

// Power codes that close the window: suspend, standby, critical resume, automatic resume. A resume from
// suspend (7) does not: the suspend before it has already closed the window.
bool closesOnPower(plat::WPARAM code) {
    return code == 4 || code == 5 || code == 6 || code == 18;
}

plat::ui::WaitUi& waitUi() {
    return plat::ui::currentBackend().wait();
}

}  // namespace

CFPWaitDialog::CFPWaitDialog()
    : m_hWnd(nullptr),
      m_hStatic(nullptr),
      m_hParent(nullptr),
      m_hThread(nullptr),
      m_hReady(plat::CreateEventW(nullptr, plat::TRUE, plat::FALSE, nullptr)),
      m_imageId(0),
      m_width(203),
      m_height(268),
      m_closeContext(nullptr),
      m_closeCallback(nullptr),
      m_iconId(0),
      m_bShown(false),
      m_bDestroyed(false) {}

CFPWaitDialog::~CFPWaitDialog() {
    {
        std::lock_guard<std::recursive_mutex> lock(m_guard);
        m_closeCallback = nullptr;
        m_closeContext = nullptr;
        m_image.release();
    }
    if (m_hThread != nullptr) {
        plat::DWORD exitCode = 0;
        if (plat::GetExitCodeThread(m_hThread, &exitCode) && exitCode == plat::STILL_ACTIVE &&
            m_hWnd.load() != nullptr) {
            plat::SendMessageW(m_hWnd.load(), plat::WM_CLOSE, 0, 0);
        }
        VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::~CFPWaitDialog)",
                 u"~CFPWaitDialog WaitForSingleObject Start");
        plat::WaitForSingleObject(m_hThread, plat::INFINITE);
        VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::~CFPWaitDialog)",
                 u"~CFPWaitDialog WaitForSingleObject Stop");
        plat::CloseHandle(m_hThread);
        m_hThread = nullptr;
    }
    if (m_hReady != nullptr) {
        plat::CloseHandle(m_hReady);
        m_hReady = nullptr;
    }
}

void CFPWaitDialog::setCloseCallback(FPWaitCloseProc callback, void* context) {
    std::lock_guard<std::recursive_mutex> lock(m_guard);
    m_closeCallback = callback;
    m_closeContext = context;
}

bool CFPWaitDialog::isThreadRunning() const {
    plat::DWORD exitCode = 0;
    return m_hThread != nullptr && plat::GetExitCodeThread(m_hThread, &exitCode) &&
           exitCode == plat::STILL_ACTIVE;
}

void CFPWaitDialog::startThread(plat::UINT iconId, plat::HWND parent) {
    if (m_hThread != nullptr) {
        if (isThreadRunning()) {
            return;
        }
        plat::CloseHandle(m_hThread);
        m_hThread = nullptr;
    }
    // A thread's windows end with it, so no window can be left standing here without its thread.
    m_hParent = parent;
    {
        std::lock_guard<std::recursive_mutex> lock(m_guard);
        if (m_image.load(kPictureFinger, CFPResourceImage::kKindPng)) {
            m_imageId = kPictureFinger;
        }
        m_bShown = false;
        m_bDestroyed = false;
    }
    m_hWnd.store(nullptr);
    m_hStatic.store(nullptr);
    m_iconId = iconId;
    if (m_hReady == nullptr) {
        return;  // without the hand-shake nobody could tell when the window stands
    }
    plat::ResetEvent(m_hReady);
    m_hThread = plat::beginThread(&CFPWaitDialog::ThreadProc, this);
    if (m_hThread == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (CFPWaitDialog::startThread)", u"Error Code: 0x%x",
                 static_cast<unsigned>(plat::GetLastError()));
        return;
    }
    // The hand-shake: the window thread says when its window stands (or could not be made); a thread that
    // ended before it could say so ends the wait as well.
    const plat::HANDLE waitFor[2] = {m_hReady, m_hThread};
    plat::WaitForMultipleObjects(2, waitFor, plat::FALSE, plat::INFINITE);
}

void CFPWaitDialog::ShowWaitUI(bool modal) {
    startThread(m_iconId, m_hParent);
    if (m_hThread == nullptr) {
        startThread(m_iconId, m_hParent);
    }
    if (m_hThread == nullptr) {
        // No window thread at all: nobody could end this wait, so it ends here as the person's close would.
        VELQ_LOG(DBG_LEVEL_ERR, u" (CFPWaitDialog::ShowWaitUI)", u"The wait window cannot be shown");
        _runCloseCallback();
        return;
    }
    {
        std::lock_guard<std::recursive_mutex> lock(m_guard);
        const plat::HWND window = m_hWnd.load();
        if (window != nullptr && !m_bDestroyed) {
            m_bShown = true;
            waitUi().shown(window);
            if (m_image.isLoaded()) {
                waitUi().image(window, m_imageId);
            }
        }
    }
    if (modal) {
        VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::ShowWaitUI)", u"~ShowWaitUI WaitForSingleObject Start!");
        plat::WaitForSingleObject(m_hThread, plat::INFINITE);
        VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::ShowWaitUI)", u"~ShowWaitUI WaitForSingleObject Stop!");
    }
}

void CFPWaitDialog::setImage(plat::UINT id) {
    std::lock_guard<std::recursive_mutex> lock(m_guard);
    if (m_hStatic.load() == nullptr) {
        return;
    }
    m_image.release();
    if (!m_image.load(id, CFPResourceImage::kKindPng)) {
        return;  // the backend keeps showing the old picture
    }
    m_imageId = id;
    if (m_bShown && !m_bDestroyed) {
        waitUi().image(m_hWnd.load(), id);
    }
}

void CFPWaitDialog::hide() {
    std::lock_guard<std::recursive_mutex> lock(m_guard);
    if (m_bShown && !m_bDestroyed) {
        waitUi().hidden(m_hWnd.load());
    }
}

void CFPWaitDialog::closeAndWait() {
    const plat::HWND window = m_hWnd.load();
    if (window != nullptr) {
        plat::SendMessageW(window, plat::WM_CLOSE, 0, 0);
    }
    if (m_hThread != nullptr) {
        plat::WaitForSingleObject(m_hThread, plat::INFINITE);
        plat::CloseHandle(m_hThread);
    }
    m_hThread = nullptr;
}

unsigned CFPWaitDialog::ThreadProc(void* self) {
    if (self == nullptr) {
        return 0;
    }
    return static_cast<CFPWaitDialog*>(self)->_run();
}

unsigned CFPWaitDialog::_run() {
    VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::ThreadProc)", u"===CFPWaitDialog will Show!!!===");
    registerWindowClass();
    createWindows();
    plat::SetEvent(m_hReady);
    if (plat::IsWindow(m_hWnd.load())) {
        plat::MSG msg{};
        while (plat::GetMessageW(&msg, nullptr, 0, 0) > 0) {
            plat::TranslateMessage(&msg);
            plat::DispatchMessageW(&msg);
        }
    }
    {
        std::lock_guard<std::recursive_mutex> lock(m_guard);
        m_image.release();
    }
    _runCloseCallback();
    if (m_hWnd.load() != nullptr) {
        m_hStatic.store(nullptr);
        m_hWnd.store(nullptr);
        m_hParent = nullptr;
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::ThreadProc)", u"===CFPWaitDialog is exit!!!===");
    return 0;
}

void CFPWaitDialog::_runCloseCallback() {
    FPWaitCloseProc callback = nullptr;
    void* context = nullptr;
    {
        std::lock_guard<std::recursive_mutex> lock(m_guard);
        callback = m_closeCallback;
        context = m_closeContext;
    }
    // No lock held: the handler may block in the biometric cancel, which waits for a callback that may be
    // changing the picture.
    if (callback != nullptr) {
        callback(context);
    }
}

void CFPWaitDialog::registerWindowClass() {
    // Registered once per process; later calls find the classes there, which is fine.
    plat::WNDCLASSW windowClass{};
    windowClass.style = kClassStyle;
    windowClass.lpfnWndProc = &CFPWaitDialog::WndProc;
    windowClass.lpszClassName = kWindowClass;
    plat::RegisterClassW(&windowClass);
    plat::WNDCLASSW pictureClass{};
    pictureClass.lpfnWndProc = &plat::DefWindowProcW;
    pictureClass.lpszClassName = kPictureClass;
    plat::RegisterClassW(&pictureClass);
}

bool CFPWaitDialog::createWindows() {
    const plat::HWND window = plat::CreateWindowExW(kWindowExStyle, kWindowClass, u"", kWindowStyle, 0, 0,
                                                    m_width, m_height, m_hParent, nullptr, nullptr, this);
    m_hWnd.store(window);
    if (window == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (CFPWaitDialog::createWindows)", u"Error Code: 0x%x",
                 static_cast<unsigned>(plat::GetLastError()));
        return false;
    }
    // The picture fills the window; the backend centres the 142 by 142 picture in it.
    m_hStatic.store(plat::CreateWindowExW(0, kPictureClass, u"Static", kPictureStyle, 0, 0, m_width, m_height,
                                          window, nullptr, nullptr, nullptr));
    return true;
}

plat::LRESULT CFPWaitDialog::WndProc(plat::HWND hWnd, plat::UINT message, plat::WPARAM wParam,
                                     plat::LPARAM lParam) {
    if (message == plat::WM_NCCREATE) {
        const auto* create = reinterpret_cast<const plat::CREATESTRUCTW*>(lParam);
        plat::SetWindowLongPtrW(hWnd, plat::GWLP_USERDATA,
                                reinterpret_cast<plat::LONG_PTR>(create->lpCreateParams));
    }
    auto* self = reinterpret_cast<CFPWaitDialog*>(plat::GetWindowLongPtrW(hWnd, plat::GWLP_USERDATA));
    if (self != nullptr) {
        self->_onMessage(hWnd, message, wParam, lParam);
    }
    return plat::DefWindowProcW(hWnd, message, wParam, lParam);
}

plat::LRESULT CFPWaitDialog::_onMessage(plat::HWND hWnd, plat::UINT message, plat::WPARAM wParam,
                                        plat::LPARAM) {
    switch (message) {
        case plat::WM_CREATE:
            // The session and power notices come through the backend from the moment it shows the window.
            VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::WndProc)", u"WTSRegisterSessionNotification");
            break;
        case plat::WM_DESTROY:
            VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::WndProc)",
                     u"WTSUnRegisterSessionNotification in WM_DESTROY");
            _onDestroy();
            plat::PostQuitMessage(0);
            break;
        case plat::WM_CLOSE:
            plat::DestroyWindow(hWnd);
            break;
        case plat::WM_POWERBROADCAST:
            VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::WndProc)", u"WM_POWERBROADCAST 0x%x",
                     static_cast<unsigned>(wParam));
            if (closesOnPower(wParam)) {
                plat::DestroyWindow(hWnd);
            }
            break;
        case plat::WM_WTSSESSION_CHANGE:
            VELQ_LOG(DBG_LEVEL_TRC, u" (CFPWaitDialog::WndProc)", u"WM_WTSSESSION_CHANG 0x%x",
                     static_cast<unsigned>(wParam));
            if (closesOnSession(wParam)) {
                plat::DestroyWindow(hWnd);
            }
            break;
        default:
            break;
    }
    return 0;
}

void CFPWaitDialog::_onDestroy() {
    std::lock_guard<std::recursive_mutex> lock(m_guard);
    m_bDestroyed = true;
    if (m_bShown) {
        m_bShown = false;
        waitUi().closed(m_hWnd.load());
    }
}
