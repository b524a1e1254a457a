#include "plat/windows.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "plat/errors.h"
#include "plat/sync.h"
#include "plat/threads.h"

namespace plat {
namespace {

constexpr UINT kQuery = WM_APP + 1;      // answered with 1234 and the answering thread's id recorded
constexpr UINT kCallOther = WM_APP + 2;  // sends kQuery to the window in wParam and returns its result + 1

// What a test window records; reached through GWLP_USERDATA, set from WM_NCCREATE's create parameter.
struct WindowLog {
    std::vector<UINT> messages;  // only touched on the owner thread
    std::atomic<DWORD> queryThread{0};
    std::atomic<int> queries{0};
    bool failCreate = false;  // WM_CREATE gives -1
};

LRESULT testProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
    }
    auto* log = reinterpret_cast<WindowLog*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (log == nullptr) {
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    log->messages.push_back(message);
    switch (message) {
        case WM_CREATE:
            return log->failCreate ? -1 : 0;
        case kQuery:
            log->queryThread = GetCurrentThreadId();
            log->queries.fetch_add(1);
            return 1234;
        case kCallOther:
            return SendMessageW(reinterpret_cast<HWND>(wParam), kQuery, 0, 0) + 1;
        default:
            return DefWindowProcW(hwnd, message, wParam, lParam);
    }
}

// Registers a class of its own for each test: classes are process-wide and a name can be taken once.
std::u16string registerTestClass() {
    static std::atomic<int> counter{0};
    std::string name = "VelqTestClass" + std::to_string(counter.fetch_add(1));
    std::u16string className(name.begin(), name.end());
    WNDCLASSW wc{};
    wc.lpfnWndProc = &testProc;
    wc.lpszClassName = className.c_str();
    EXPECT_NE(RegisterClassW(&wc), 0);
    return className;
}

HWND createTestWindow(const std::u16string& className, WindowLog* log, LPCWSTR title = u"",
                      HWND parent = nullptr) {
    return CreateWindowExW(0, className.c_str(), title, 0, 0, 0, 10, 10, parent, nullptr, nullptr, log);
}

// A thread that owns one window. It creates it, announces it, then by its mode pumps messages, or only
// waits for `go` and then ends (or destroys the window first) without ever taking a message. A pumping
// thread ends on WM_QUIT.
struct WindowThread {
    enum class Mode { Pump, EndWithoutPumping, DestroyWithoutPumping };
    std::u16string className;
    Mode mode = Mode::Pump;
    WindowLog log;
    std::atomic<HWND> hwnd{nullptr};
    HWND peer = nullptr;  // for kCallOther to send to
    HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE thread = nullptr;
    unsigned threadId = 0;

    WindowThread(std::u16string cls, Mode threadMode) : className(std::move(cls)), mode(threadMode) {
        thread = beginThread(&run, this, &threadId);
        WaitForSingleObject(ready, INFINITE);
    }
    ~WindowThread() {
        SetEvent(go);
        PostThreadMessageW(threadId, WM_QUIT, 0, 0);
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
        CloseHandle(ready);
        CloseHandle(go);
    }

    static unsigned run(void* arg) {
        auto* self = static_cast<WindowThread*>(arg);
        self->hwnd = createTestWindow(self->className, &self->log);
        SetEvent(self->ready);
        if (self->mode != Mode::Pump) {
            WaitForSingleObject(self->go, INFINITE);
            if (self->mode == Mode::DestroyWithoutPumping) {
                DestroyWindow(self->hwnd);
            }
            return 0;
        }
        MSG msg{};
        while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
        return 0;
    }
};

struct SendRequest {
    HWND target;
    UINT message;
    WPARAM wParam;
    LRESULT result = -1;
};

unsigned sendRequest(void* arg) {
    auto* request = static_cast<SendRequest*>(arg);
    request->result = SendMessageW(request->target, request->message, request->wParam, 0);
    return 0;
}

TEST(WindowCreation, ProcedureSeesNcCreateThenCreateWithTheCreateParameter) {
    const std::u16string cls = registerTestClass();
    WindowLog log;
    HWND hwnd = createTestWindow(cls, &log, u"first");
    ASSERT_NE(hwnd, nullptr);
    EXPECT_EQ(IsWindow(hwnd), TRUE);
    ASSERT_GE(log.messages.size(), 2u);
    EXPECT_EQ(log.messages[0], WM_NCCREATE);
    EXPECT_EQ(log.messages[1], WM_CREATE);
    EXPECT_EQ(GetWindowLongPtrW(hwnd, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&log));
    DWORD pid = 0;
    EXPECT_EQ(GetWindowThreadProcessId(hwnd, &pid), GetCurrentThreadId());
    EXPECT_NE(pid, 0u);
    DestroyWindow(hwnd);
}

TEST(WindowCreation, CreateGivingMinusOneDestroysTheWindowAgain) {
    const std::u16string cls = registerTestClass();
    WindowLog log;
    log.failCreate = true;
    EXPECT_EQ(createTestWindow(cls, &log), nullptr);
    EXPECT_EQ(log.messages.back(), WM_NCDESTROY);
    EXPECT_EQ(FindWindowW(cls.c_str(), nullptr), nullptr);
}

TEST(WindowCreation, ClassesAreRegisteredOnceAndMustExist) {
    const std::u16string cls = registerTestClass();
    std::u16string otherCase = cls;
    otherCase[0] = u'v';
    WNDCLASSW wc{};
    wc.lpfnWndProc = &DefWindowProcW;
    wc.lpszClassName = otherCase.c_str();
    SetLastError(0);
    EXPECT_EQ(RegisterClassW(&wc), 0);
    EXPECT_EQ(GetLastError(), ERROR_CLASS_ALREADY_EXISTS);
    SetLastError(0);
    EXPECT_EQ(CreateWindowExW(0, u"NoSuchVelqClass", u"", 0, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), ERROR_CANNOT_FIND_WND_CLASS);
}

TEST(WindowDestruction, SendsDestroyDestroysChildrenAndKillsTheHandleForGood) {
    const std::u16string cls = registerTestClass();
    WindowLog parentLog;
    WindowLog childLog;
    HWND parent = createTestWindow(cls, &parentLog);
    HWND child = createTestWindow(cls, &childLog, u"", parent);
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(DestroyWindow(parent), TRUE);
    EXPECT_EQ(IsWindow(parent), FALSE);
    EXPECT_EQ(IsWindow(child), FALSE);
    EXPECT_EQ(parentLog.messages.end()[-2], WM_DESTROY);
    EXPECT_EQ(parentLog.messages.back(), WM_NCDESTROY);
    EXPECT_EQ(childLog.messages.end()[-2], WM_DESTROY);
    SetLastError(0);
    EXPECT_EQ(DestroyWindow(parent), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(SendMessageW(parent, kQuery, 0, 0), 0);
    EXPECT_EQ(parentLog.queries.load(), 0);
    EXPECT_EQ(IsWindow(nullptr), FALSE);
}

TEST(WindowDestruction, OnlyTheOwnerThreadMayDestroyAndCloseDoesByDefault) {
    const std::u16string cls = registerTestClass();
    WindowThread owner(cls, WindowThread::Mode::Pump);
    SetLastError(0);
    EXPECT_EQ(DestroyWindow(owner.hwnd), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SendMessageW(owner.hwnd, WM_CLOSE, 0, 0), 0);
    EXPECT_EQ(IsWindow(owner.hwnd), FALSE);
}

TEST(WindowData, FindWindowMatchesClassAndTitleOfLiveTopLevelWindows) {
    const std::u16string cls = registerTestClass();
    WindowLog log;
    HWND first = createTestWindow(cls, &log, u"alpha");
    HWND second = createTestWindow(cls, &log, u"beta");
    HWND child = createTestWindow(cls, &log, u"gamma", first);
    EXPECT_EQ(FindWindowW(cls.c_str(), u"alpha"), first);
    EXPECT_EQ(FindWindowW(cls.c_str(), nullptr), second);  // the most recent
    EXPECT_EQ(FindWindowW(nullptr, u"beta"), second);
    EXPECT_EQ(FindWindowW(cls.c_str(), u"gamma"), nullptr);  // a child is not top-level
    EXPECT_EQ(FindWindowW(cls.c_str(), u"ALPHA"), nullptr);
    DestroyWindow(second);
    EXPECT_EQ(FindWindowW(cls.c_str(), nullptr), first);
    EXPECT_NE(child, nullptr);
    DestroyWindow(first);
    EXPECT_EQ(FindWindowW(cls.c_str(), nullptr), nullptr);
}

TEST(WindowData, TextIsCutToTheBufferAndLongPtrChecksItsIndex) {
    const std::u16string cls = registerTestClass();
    WindowLog log;
    HWND hwnd = createTestWindow(cls, &log, u"title");
    EXPECT_EQ(SetWindowTextW(hwnd, u"Message"), TRUE);
    WCHAR buffer[4] = {u'x', u'x', u'x', u'x'};
    EXPECT_EQ(GetWindowTextW(hwnd, buffer, 4), 3);
    EXPECT_EQ(std::u16string(buffer), u"Mes");
    EXPECT_EQ(GetWindowTextLengthW(hwnd), 7);
    SetLastError(0);
    EXPECT_EQ(GetWindowLongPtrW(hwnd, -12345), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_INDEX);
    EXPECT_EQ(SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0), reinterpret_cast<LONG_PTR>(&log));
    SetLastError(77);
    EXPECT_EQ(SetWindowLongPtrW(hwnd, GWLP_USERDATA, 5), 0);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);  // a previous 0 is told apart from a failure
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&log));
    DestroyWindow(hwnd);
    EXPECT_EQ(GetWindowTextW(hwnd, buffer, 4), 0);
}

TEST(WindowMessages, PostedWindowMessagesAreFilteredAndDispatchedToTheProcedure) {
    const std::u16string cls = registerTestClass();
    WindowLog log;
    HWND hwnd = createTestWindow(cls, &log);
    MSG msg{};
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE) != FALSE) {
    }
    ASSERT_EQ(PostMessageW(hwnd, kQuery, 0, 0), TRUE);
    PostThreadMessageW(GetCurrentThreadId(), WM_USER, 0, 0);
    const auto threadOnly = reinterpret_cast<HWND>(static_cast<std::intptr_t>(-1));
    ASSERT_EQ(PeekMessageW(&msg, threadOnly, 0, 0, PM_REMOVE), TRUE);
    EXPECT_EQ(msg.message, WM_USER);
    ASSERT_EQ(GetMessageW(&msg, hwnd, 0, 0), TRUE);
    EXPECT_EQ(msg.hwnd, hwnd);
    EXPECT_EQ(log.queries.load(), 0);
    EXPECT_EQ(DispatchMessageW(&msg), 1234);
    EXPECT_EQ(log.queries.load(), 1);
    DestroyWindow(hwnd);
    SetLastError(0);
    EXPECT_EQ(PostMessageW(hwnd, kQuery, 0, 0), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(SendMessage, OnTheOwnerThreadCallsTheProcedureDirectly) {
    const std::u16string cls = registerTestClass();
    WindowLog log;
    HWND hwnd = createTestWindow(cls, &log);
    EXPECT_EQ(SendMessageW(hwnd, kQuery, 0, 0), 1234);
    EXPECT_EQ(log.queryThread.load(), GetCurrentThreadId());
    DestroyWindow(hwnd);
}

TEST(SendMessage, FromAnotherThreadRunsOnTheOwnerThreadAndGivesTheResult) {
    const std::u16string cls = registerTestClass();
    WindowThread owner(cls, WindowThread::Mode::Pump);
    EXPECT_EQ(SendMessageW(owner.hwnd, kQuery, 0, 0), 1234);
    EXPECT_EQ(owner.log.queryThread.load(), GetWindowThreadProcessId(owner.hwnd, nullptr));
    EXPECT_NE(owner.log.queryThread.load(), GetCurrentThreadId());
}

TEST(SendMessage, SenderGetsZeroWhenTheOwnerThreadEndsWithoutTakingIt) {
    const std::u16string cls = registerTestClass();
    WindowThread owner(cls, WindowThread::Mode::EndWithoutPumping);
    SendRequest request{owner.hwnd, kQuery, 0};
    HANDLE sender = beginThread(&sendRequest, &request);
    EXPECT_EQ(WaitForSingleObject(sender, 20), WAIT_TIMEOUT);  // blocked: nobody takes the message
    SetEvent(owner.go);
    ASSERT_EQ(WaitForSingleObject(sender, INFINITE), WAIT_OBJECT_0);
    CloseHandle(sender);
    EXPECT_EQ(request.result, 0);
    EXPECT_EQ(owner.log.queries.load(), 0);
    WaitForSingleObject(owner.thread, INFINITE);
    EXPECT_EQ(IsWindow(owner.hwnd), FALSE);  // a thread's windows end with it
}

TEST(SendMessage, SenderGetsZeroWhenTheWindowIsDestroyedBeforeTakingIt) {
    const std::u16string cls = registerTestClass();
    WindowThread owner(cls, WindowThread::Mode::DestroyWithoutPumping);
    SendRequest request{owner.hwnd, kQuery, 0};
    HANDLE sender = beginThread(&sendRequest, &request);
    EXPECT_EQ(WaitForSingleObject(sender, 20), WAIT_TIMEOUT);
    SetEvent(owner.go);
    ASSERT_EQ(WaitForSingleObject(sender, INFINITE), WAIT_OBJECT_0);
    CloseHandle(sender);
    EXPECT_EQ(request.result, 0);
    EXPECT_EQ(owner.log.queries.load(), 0);
}

TEST(SendMessage, TwoThreadsSendingToEachOtherBothGetTheirAnswers) {
    const std::u16string cls = registerTestClass();
    WindowThread first(cls, WindowThread::Mode::Pump);
    WindowThread second(cls, WindowThread::Mode::Pump);
    // Each owner thread, inside its procedure, sends to the other's window while the other does the same.
    SendRequest toFirst{first.hwnd, kCallOther, reinterpret_cast<WPARAM>(second.hwnd.load())};
    SendRequest toSecond{second.hwnd, kCallOther, reinterpret_cast<WPARAM>(first.hwnd.load())};
    HANDLE senders[] = {beginThread(&sendRequest, &toFirst), beginThread(&sendRequest, &toSecond)};
    ASSERT_EQ(WaitForMultipleObjects(2, senders, TRUE, INFINITE), WAIT_OBJECT_0);
    CloseHandle(senders[0]);
    CloseHandle(senders[1]);
    EXPECT_EQ(toFirst.result, 1235);
    EXPECT_EQ(toSecond.result, 1235);
    EXPECT_EQ(first.log.queries.load(), 1);
    EXPECT_EQ(second.log.queries.load(), 1);
}

TEST(SendMessage, AWaitingSenderAnswersSendsToItsOwnWindows) {
    const std::u16string cls = registerTestClass();
    WindowLog log;
    HWND mine = createTestWindow(cls, &log);
    WindowThread other(cls, WindowThread::Mode::Pump);
    // The other thread's procedure sends back to this thread's window while this thread waits.
    EXPECT_EQ(SendMessageW(other.hwnd, kCallOther, reinterpret_cast<WPARAM>(mine), 0), 1235);
    EXPECT_EQ(log.queryThread.load(), GetCurrentThreadId());
    DestroyWindow(mine);
}

}  // namespace
}  // namespace plat
