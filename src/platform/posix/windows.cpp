#include "plat/windows.h"

#include <unistd.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "plat/errors.h"
#include "plat/strings.h"
#include "thread_queue.h"

namespace plat {

namespace {

using detail::ThreadQueue;

std::u16string foldAsciiCase(LPCWSTR text) {
    std::u16string folded(text, wcslen16(text));
    for (char16_t& unit : folded) {
        if (unit >= u'A' && unit <= u'Z') {
            unit = static_cast<char16_t>(unit - u'A' + u'a');
        }
    }
    return folded;
}

struct WindowData {
    std::u16string classKey;  // the class name with ASCII case folded
    std::u16string text;
    WNDPROC proc;
    LONG_PTR userData = 0;
    std::shared_ptr<ThreadQueue> queue;  // the owner thread's
    HWND parent;
    std::uint64_t serial;  // creation order, for FindWindowW
    bool destroying = false;
};

// Every live window and every registered class of the process. Immortal, like the queues: threads may
// still end, and forget their windows, while the process exits.
class WindowTable {
public:
    static WindowTable& instance() {
        static auto* table = new WindowTable;
        return *table;
    }

    std::mutex& mutex() { return m_mutex; }

    // With the lock held: the window, or null with ERROR_INVALID_WINDOW_HANDLE.
    WindowData* find(HWND hwnd) {
        const auto it = m_windows.find(hwnd);
        if (it == m_windows.end()) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return nullptr;
        }
        return &it->second;
    }

    // With the lock held.
    HWND add(WindowData data) {
        data.serial = ++m_nSerial;
        // Handles are numbers that are never reused and never dereferenced.
        const auto hwnd = reinterpret_cast<HWND>(static_cast<std::uintptr_t>(0x10000 + data.serial * 16));
        m_windows.emplace(hwnd, std::move(data));
        return hwnd;
    }

    std::unordered_map<HWND, WindowData>& windows() { return m_windows; }
    std::unordered_map<std::u16string, WNDPROC>& classes() { return m_classes; }
    ATOM nextAtom() { return m_nextAtom++; }

private:
    std::mutex m_mutex;
    std::unordered_map<HWND, WindowData> m_windows;
    std::unordered_map<std::u16string, WNDPROC> m_classes;
    std::uint64_t m_nSerial = 0;
    ATOM m_nextAtom = 0xC000;
};

// Takes a window out of the table (its handle is dead from now on) and releases its waiting senders.
void removeWindow(HWND hwnd) {
    std::shared_ptr<ThreadQueue> queue;
    {
        WindowTable& table = WindowTable::instance();
        std::lock_guard<std::mutex> lock(table.mutex());
        const auto it = table.windows().find(hwnd);
        if (it == table.windows().end()) {
            return;
        }
        queue = it->second.queue;
        table.windows().erase(it);
    }
    queue->dropSentTo(hwnd);
}

// The windows of this thread whose parent is `hwnd`.
std::vector<HWND> childrenOf(HWND hwnd, DWORD threadId) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    std::vector<HWND> children;
    for (const auto& [child, data] : table.windows()) {
        if (data.parent == hwnd && data.queue->threadId() == threadId) {
            children.push_back(child);
        }
    }
    return children;
}

}  // namespace

namespace detail {

LRESULT callWindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    WNDPROC proc = nullptr;
    {
        WindowTable& table = WindowTable::instance();
        std::lock_guard<std::mutex> lock(table.mutex());
        const WindowData* window = table.find(hwnd);
        if (window == nullptr) {
            return 0;
        }
        proc = window->proc;
    }
    return proc(hwnd, message, wParam, lParam);
}

void forgetWindowsOfThread(DWORD threadId) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    std::erase_if(table.windows(),
                  [threadId](const auto& entry) { return entry.second.queue->threadId() == threadId; });
}

}  // namespace detail

ATOM RegisterClassW(const WNDCLASSW* lpWndClass) {
    if (lpWndClass == nullptr || lpWndClass->lpfnWndProc == nullptr ||
        wcslen16(lpWndClass->lpszClassName) == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    if (!table.classes().emplace(foldAsciiCase(lpWndClass->lpszClassName), lpWndClass->lpfnWndProc).second) {
        SetLastError(ERROR_CLASS_ALREADY_EXISTS);
        return 0;
    }
    return table.nextAtom();
}

HWND CreateWindowExW(DWORD dwExStyle, LPCWSTR lpClassName, LPCWSTR lpWindowName, DWORD dwStyle, int x, int y,
                     int nWidth, int nHeight, HWND hWndParent, HMENU hMenu, HINSTANCE hInstance,
                     void* lpParam) {
    HWND hwnd = nullptr;
    {
        WindowTable& table = WindowTable::instance();
        const std::shared_ptr<ThreadQueue> queue = detail::currentQueue();
        std::lock_guard<std::mutex> lock(table.mutex());
        const auto cls =
            lpClassName == nullptr ? table.classes().end() : table.classes().find(foldAsciiCase(lpClassName));
        if (cls == table.classes().end()) {
            SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
            return nullptr;
        }
        if (hWndParent != nullptr && table.find(hWndParent) == nullptr) {
            return nullptr;
        }
        hwnd = table.add(WindowData{cls->first, std::u16string(lpWindowName, wcslen16(lpWindowName)),
                                    cls->second, 0, queue, hWndParent, 0, false});
    }
    CREATESTRUCTW create{
        lpParam,      hInstance,   hMenu,    hWndParent, nHeight, nWidth, y, x, static_cast<LONG>(dwStyle),
        lpWindowName, lpClassName, dwExStyle};
    const auto createParam = reinterpret_cast<LPARAM>(&create);
    if (detail::callWindowProcedure(hwnd, WM_NCCREATE, 0, createParam) == FALSE) {
        removeWindow(hwnd);
        return nullptr;
    }
    if (detail::callWindowProcedure(hwnd, WM_CREATE, 0, createParam) == -1) {
        DestroyWindow(hwnd);
        return nullptr;
    }
    return hwnd;
}

BOOL DestroyWindow(HWND hWnd) {
    const DWORD self = detail::currentQueue()->threadId();
    {
        WindowTable& table = WindowTable::instance();
        std::lock_guard<std::mutex> lock(table.mutex());
        WindowData* window = table.find(hWnd);
        if (window == nullptr) {
            return FALSE;
        }
        if (window->queue->threadId() != self) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
        if (window->destroying) {
            return TRUE;  // already on its way, e.g. DestroyWindow again from WM_DESTROY
        }
        window->destroying = true;
    }
    detail::callWindowProcedure(hWnd, WM_DESTROY, 0, 0);
    for (HWND child : childrenOf(hWnd, self)) {
        DestroyWindow(child);
    }
    detail::callWindowProcedure(hWnd, WM_NCDESTROY, 0, 0);
    removeWindow(hWnd);
    return TRUE;
}

BOOL IsWindow(HWND hWnd) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    return table.windows().count(hWnd) != 0 ? TRUE : FALSE;
}

HWND FindWindowW(LPCWSTR lpClassName, LPCWSTR lpWindowName) {
    const std::u16string classKey = lpClassName == nullptr ? std::u16string() : foldAsciiCase(lpClassName);
    const std::u16string_view title(lpWindowName == nullptr ? u"" : lpWindowName);
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    HWND found = nullptr;
    std::uint64_t newest = 0;
    for (const auto& [hwnd, data] : table.windows()) {
        const bool matches = data.parent == nullptr && !data.destroying &&
                             (lpClassName == nullptr || data.classKey == classKey) &&
                             (lpWindowName == nullptr || data.text == title);
        if (matches && data.serial > newest) {
            found = hwnd;
            newest = data.serial;
        }
    }
    SetLastError(ERROR_SUCCESS);
    return found;
}

DWORD GetWindowThreadProcessId(HWND hWnd, DWORD* lpdwProcessId) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    const WindowData* window = table.find(hWnd);
    if (window == nullptr) {
        return 0;
    }
    if (lpdwProcessId != nullptr) {
        *lpdwProcessId = static_cast<DWORD>(getpid());
    }
    return window->queue->threadId();
}

BOOL SetWindowTextW(HWND hWnd, LPCWSTR lpString) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    WindowData* window = table.find(hWnd);
    if (window == nullptr) {
        return FALSE;
    }
    window->text.assign(lpString == nullptr ? u"" : lpString);
    return TRUE;
}

int GetWindowTextW(HWND hWnd, LPWSTR lpString, int nMaxCount) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    const WindowData* window = table.find(hWnd);
    if (window == nullptr) {
        return 0;
    }
    if (lpString == nullptr || nMaxCount <= 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return static_cast<int>(copyTruncated(window->text, lpString, static_cast<std::size_t>(nMaxCount)));
}

int GetWindowTextLengthW(HWND hWnd) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    const WindowData* window = table.find(hWnd);
    return window == nullptr ? 0 : static_cast<int>(window->text.size());
}

LONG_PTR SetWindowLongPtrW(HWND hWnd, int nIndex, LONG_PTR dwNewLong) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    WindowData* window = table.find(hWnd);
    if (window == nullptr) {
        return 0;
    }
    switch (nIndex) {
        case GWLP_USERDATA:
            SetLastError(ERROR_SUCCESS);
            return std::exchange(window->userData, dwNewLong);
        case GWLP_WNDPROC:
            if (dwNewLong == 0) {
                SetLastError(ERROR_INVALID_PARAMETER);
                return 0;
            }
            SetLastError(ERROR_SUCCESS);
            return reinterpret_cast<LONG_PTR>(
                std::exchange(window->proc, reinterpret_cast<WNDPROC>(dwNewLong)));
        default:
            SetLastError(ERROR_INVALID_INDEX);
            return 0;
    }
}

LONG_PTR GetWindowLongPtrW(HWND hWnd, int nIndex) {
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    const WindowData* window = table.find(hWnd);
    if (window == nullptr) {
        return 0;
    }
    switch (nIndex) {
        case GWLP_USERDATA:
            SetLastError(ERROR_SUCCESS);
            return window->userData;
        case GWLP_WNDPROC:
            SetLastError(ERROR_SUCCESS);
            return reinterpret_cast<LONG_PTR>(window->proc);
        default:
            SetLastError(ERROR_INVALID_INDEX);
            return 0;
    }
}

LRESULT DefWindowProcW(HWND hWnd, UINT Msg, WPARAM /*wParam*/, LPARAM /*lParam*/) {
    switch (Msg) {
        case WM_NCCREATE:
            return TRUE;
        case WM_CLOSE:
            DestroyWindow(hWnd);
            return 0;
        default:
            return 0;
    }
}

LRESULT SendMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam) {
    const std::shared_ptr<ThreadQueue> self = detail::currentQueue();
    std::shared_ptr<detail::SentMessage> sent;
    {
        WindowTable& table = WindowTable::instance();
        std::lock_guard<std::mutex> lock(table.mutex());
        const WindowData* window = table.find(hWnd);
        if (window == nullptr) {
            return 0;
        }
        if (window->queue != self) {
            sent =
                std::make_shared<detail::SentMessage>(detail::SentMessage{hWnd, Msg, wParam, lParam, self});
            // Queued under the table's lock, so that a destruction cannot slip in between the test above
            // and the queueing and leave the message unanswered.
            if (!window->queue->queueSent(sent)) {
                return 0;
            }
        }
    }
    if (sent == nullptr) {
        return detail::callWindowProcedure(hWnd, Msg, wParam, lParam);
    }
    return self->awaitReply(*sent);
}

BOOL PostMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam) {
    const MSG msg{hWnd, Msg, wParam, lParam, detail::messageTime(), POINT{0, 0}};
    if (hWnd == nullptr) {
        return detail::currentQueue()->post(msg) ? TRUE : FALSE;
    }
    WindowTable& table = WindowTable::instance();
    std::lock_guard<std::mutex> lock(table.mutex());
    const WindowData* window = table.find(hWnd);
    if (window == nullptr) {
        return FALSE;
    }
    if (!window->queue->post(msg)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    return TRUE;
}

}  // namespace plat
