// CFPWaitDialog: the small window that stands in front of everything while the program waits for a
// finger. It shows one picture and nothing else, on a window thread of its own; its going away is itself
// the signal that the wait is over.
//
// The window is a platform window of class "FPMonitor" (plat/windows.h) with a picture control; the
// process's UI backend shows it (plat::ui::WaitUi), so this class neither positions nor draws anything and
// delivers what the person does to it as messages: WM_CLOSE, WM_WTSSESSION_CHANGE (codes 2 and 5 to 8 close
// the window) and WM_POWERBROADCAST (codes 4, 5, 6 and 18 close it). Whoever closes the window, the close
// handler runs once, on the window thread, after the window's message loop has ended.
//
// Threads: startThread, ShowWaitUI and closeAndWait come from the owner's thread; setImage and hide from
// any thread (the biometric callbacks). One lock guards the picture and the backend calls, so that a
// picture change and the window's end never meet.
#pragma once

#include <atomic>
#include <mutex>

#include "bio/FPResourceImage.h"
#include "plat/types.h"
#include "plat/windows.h"

// The close handler: gets the registered context; its result is not read.
using FPWaitCloseProc = int (*)(void* context);

class CFPWaitDialog {
public:
    // The pictures of the wait.
    static constexpr plat::UINT kPictureMatched = 504;
    static constexpr plat::UINT kPictureRefused = 505;
    static constexpr plat::UINT kPictureFinger = 509;

    // No window and no thread yet; outer size 203 by 268.
    CFPWaitDialog();
    // Forgets the close handler (a window that goes now runs none), closes a standing window and waits
    // for the window thread.
    ~CFPWaitDialog();
    CFPWaitDialog(const CFPWaitDialog&) = delete;
    CFPWaitDialog& operator=(const CFPWaitDialog&) = delete;

    // Stores the close handler. Call before the window can go away (before ShowWaitUI).
    void setCloseCallback(FPWaitCloseProc callback, void* context);

    // Starts the window thread unless it runs, with picture 509 loaded. Returns once the thread has made
    // its window (or failed to): a firm hand-shake instead of a pause. `parent` may be null.
    void startThread(plat::UINT iconId, plat::HWND parent);

    // Starts the thread if needed, shows the window with its picture; with `modal`, also waits until the
    // window has gone. If no window thread can be started at all, nobody could end the wait: the close
    // handler then runs at once, on the calling thread, and the wait ends as cancelled.
    void ShowWaitUI(bool modal);

    // Replaces the picture with PNG resource `id`; any thread. Nothing happens without a picture control
    // or when the resource does not load (the old picture stays).
    void setImage(plat::UINT id);

    // Hides the window; it stays, and is still closed by the session and power rules.
    void hide();

    // Closes the window, if it still stands, and waits for the window thread.
    void closeAndWait();

    // The window (null when there is none); for tests and the backends.
    plat::HWND getWindow() const { return m_hWnd.load(); }
    bool isThreadRunning() const;

private:
    static unsigned ThreadProc(void* self);
    static plat::LRESULT WndProc(plat::HWND hWnd, plat::UINT message, plat::WPARAM wParam,
                                 plat::LPARAM lParam);
    plat::LRESULT _onMessage(plat::HWND hWnd, plat::UINT message, plat::WPARAM wParam, plat::LPARAM lParam);
    unsigned _run();

    static void registerWindowClass();
    bool createWindows();
    void _runCloseCallback();
    void _onDestroy();

    std::atomic<plat::HWND> m_hWnd;     // written by the window thread, cleared by it at its end
    std::atomic<plat::HWND> m_hStatic;  // the picture control
    plat::HWND m_hParent;
    plat::HANDLE m_hThread;
    plat::HANDLE m_hReady;  // set by the window thread once its window exists (or could not be made)
    CFPResourceImage m_image;
    plat::UINT m_imageId;  // the picture's resource id, for the backend when the window is shown
    int m_width;
    int m_height;
    void* m_closeContext;
    FPWaitCloseProc m_closeCallback;
    plat::UINT m_iconId;           // kept for a backend that draws a frame with an icon; none does yet
    bool m_bShown;                 // the backend shows the window: it is told when it goes
    bool m_bDestroyed;             // WM_DESTROY has run: nothing more goes to the backend for this window
    std::recursive_mutex m_guard;  // the picture, the handler, m_bShown and the backend calls
};
