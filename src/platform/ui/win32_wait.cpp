// The core's wait window (src/bio, a window of the core's class on a thread of its own) made the native
// one. The backend gives the window a procedure in front of the core's: it takes this backend's private
// messages, keeps the window's size fixed when the frame is dragged, and hands everything else on. The
// calls from the core only post to the window, so none of them waits for the window's thread (which may
// itself be waiting for the core's lock while the window goes).
#include <cstdint>
#include <cstring>

#include "ui/win32_kinds.h"
#include "win32/wide.h"
// After wide.h: these headers need <windows.h> first.
#include <objbase.h>
#include <shlwapi.h>
#include <wtsapi32.h>
// GDI+'s flat calls decode the PNG pictures, as the program's own picture loader does.
#include <gdiplus.h>

namespace plat::ui {

namespace {

constexpr wchar_t kStateProperty[] = L"VELQ.WaitWindow";
constexpr int kPictureControlId = 0x351;

// What the backend keeps for one wait window: a property of the window, made at its first showing and
// gone with the window.
struct WaitWindowState {
    ::WNDPROC previous = nullptr;  // the layer's procedure, which calls the core's
    const PictureSource* pictures = nullptr;
    ::HWND picture = nullptr;    // the picture control; null until the first showing
    ::HBITMAP bitmap = nullptr;  // the picture the control shows
    bool bRegistered = false;    // for the session's notices
};

WaitWindowState* stateOf(::HWND window) {
    return static_cast<WaitWindowState*>(::GetPropW(window, kStateProperty));
}

void startPictureDecoder() {
    static const bool started = [] {
        ::ULONG_PTR token = 0;
        const Gdiplus::GdiplusStartupInput input;
        // Never shut down: the decoder serves every wait window until the process ends.
        return Gdiplus::GdiplusStartup(&token, &input, nullptr) == Gdiplus::Ok;
    }();
    (void)started;
}

// A 32-bit bitmap of the PNG `bytes` with its alpha channel (background: transparent black); null when
// they do not decode.
::HBITMAP decodePicture(std::span<const std::uint8_t> bytes) {
    startPictureDecoder();
    // The stream holds a copy of the bytes, so the decoder never depends on the caller's block.
    ::IStream* stream = ::SHCreateMemStream(bytes.data(), static_cast<::UINT>(bytes.size()));
    if (stream == nullptr) {
        return nullptr;
    }
    Gdiplus::GpBitmap* decoded = nullptr;
    ::HBITMAP bitmap = nullptr;
    if (Gdiplus::DllExports::GdipCreateBitmapFromStream(stream, &decoded) == Gdiplus::Ok) {
        if (Gdiplus::DllExports::GdipCreateHBITMAPFromBitmap(decoded, &bitmap, 0) != Gdiplus::Ok) {
            bitmap = nullptr;
        }
        Gdiplus::DllExports::GdipDisposeImage(decoded);
    }
    stream->Release();
    return bitmap;
}

// Puts `bitmap` into the control and deletes what it showed before. A control of the common controls'
// version 6 keeps a copy of a 32-bit bitmap and gives that copy back when replaced; an older one keeps
// the caller's handle. Both are deleted here, each once.
void replacePicture(WaitWindowState& state, ::HBITMAP bitmap) {
    const auto shownBefore = reinterpret_cast<::HBITMAP>(
        ::SendMessageW(state.picture, STM_SETIMAGE, IMAGE_BITMAP, reinterpret_cast<::LPARAM>(bitmap)));
    if (shownBefore != nullptr && shownBefore != state.bitmap) {
        ::DeleteObject(shownBefore);
    }
    if (state.bitmap != nullptr) {
        ::DeleteObject(state.bitmap);
    }
    state.bitmap = bitmap;
}

::BOOL CALLBACK hideChild(::HWND child, ::LPARAM) {
    ::ShowWindow(child, SW_HIDE);
    return TRUE;
}

// Centred on the owner when there is one, else on the whole desktop (not its work area).
void centre(::HWND window) {
    ::RECT own{};
    ::GetWindowRect(window, &own);
    const ::HWND owner = ::GetWindow(window, GW_OWNER);
    ::RECT around{};
    ::GetWindowRect(owner != nullptr && ::IsWindow(owner) ? owner : ::GetDesktopWindow(), &around);
    const int x = (around.left + around.right) / 2 - (own.right - own.left) / 2;
    const int y = (around.top + around.bottom) / 2 - (own.bottom - own.top) / 2;
    // The system's HWND_TOPMOST would name the layer's HWND inside namespace plat.
    const auto topmost = reinterpret_cast<::HWND>(static_cast<std::intptr_t>(-1));
    ::SetWindowPos(window, topmost, x, y, 0, 0, SWP_NOSIZE | SWP_SHOWWINDOW);
}

// The first showing makes the picture control (in front of the core's own picture child, which shows
// nothing) and registers for the session's notices; every showing puts the window on top.
void showWindow(::HWND window, WaitWindowState& state) {
    if (state.picture == nullptr) {
        ::EnumChildWindows(window, &hideChild, 0);
        ::RECT client{};
        ::GetClientRect(window, &client);
        state.picture = ::CreateWindowExW(0, L"Static", L"",
                                          WS_CHILD | WS_VISIBLE | SS_BITMAP | SS_NOTIFY | SS_CENTERIMAGE, 0,
                                          0, client.right, client.bottom, window,
                                          reinterpret_cast<::HMENU>(kPictureControlId), nullptr, nullptr);
    }
    if (!state.bRegistered) {
        state.bRegistered = ::WTSRegisterSessionNotification(window, NOTIFY_FOR_THIS_SESSION) != FALSE;
    }
    centre(window);
    ::SetForegroundWindow(window);
    ::UpdateWindow(window);
}

void showPicture(WaitWindowState& state, UINT pictureId) {
    if (state.picture == nullptr || state.pictures == nullptr || !*state.pictures) {
        return;
    }
    // A picture that does not load leaves the one shown.
    if (::HBITMAP bitmap = decodePicture((*state.pictures)(pictureId))) {
        replacePicture(state, bitmap);
    }
}

void forget(::HWND window, WaitWindowState& state) {
    if (state.bRegistered) {
        ::WTSUnRegisterSessionNotification(window);
        state.bRegistered = false;
    }
    if (state.picture != nullptr) {
        replacePicture(state, nullptr);
    }
}

::LRESULT CALLBACK waitProcedure(::HWND window, ::UINT message, ::WPARAM wParam, ::LPARAM lParam) {
    WaitWindowState* state = stateOf(window);
    if (state == nullptr) {
        return ::DefWindowProcW(window, message, wParam, lParam);
    }
    const ::WNDPROC previous = state->previous;
    switch (message) {
        case Win32Wait::kShow:
            showWindow(window, *state);
            return 0;
        case Win32Wait::kImage:
            showPicture(*state, static_cast<UINT>(wParam));
            return 0;
        case Win32Wait::kHide:
            ::ShowWindow(window, SW_HIDE);
            return 0;
        case WM_WINDOWPOSCHANGING:
            // The frame looks resizable; the size never changes.
            reinterpret_cast<::WINDOWPOS*>(lParam)->flags |= SWP_NOSIZE;
            break;
        case WM_DESTROY:
            forget(window, *state);  // while the picture control still stands
            break;
        case WM_NCDESTROY:
            ::SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<::LONG_PTR>(previous));
            ::RemovePropW(window, kStateProperty);
            delete state;
            break;
        default:
            break;
    }
    return ::CallWindowProcW(previous, window, message, wParam, lParam);
}

// Puts the backend's procedure in front of the window's, once per window; false for a window that is gone.
bool adopt(::HWND window, const PictureSource& pictures) {
    if (stateOf(window) != nullptr) {
        return true;
    }
    auto* state = new WaitWindowState;
    state->pictures = &pictures;
    // Read before the swap, so that the window's thread never sees the state without it.
    state->previous = reinterpret_cast<::WNDPROC>(::GetWindowLongPtrW(window, GWLP_WNDPROC));
    if (state->previous == nullptr || !::SetPropW(window, kStateProperty, state)) {
        delete state;
        return false;
    }
    ::SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<::LONG_PTR>(&waitProcedure));
    return true;
}

}  // namespace

Win32Wait::Win32Wait(PictureSource pictures) : m_pictures(std::move(pictures)) {}

void Win32Wait::shown(HWND window) {
    if (adopt(win32::native(window), m_pictures)) {
        ::PostMessageW(win32::native(window), kShow, 0, 0);
    }
    m_relay.start(window);
}

void Win32Wait::image(HWND window, UINT pictureId) {
    ::PostMessageW(win32::native(window), kImage, pictureId, 0);
}

void Win32Wait::hidden(HWND window) {
    ::PostMessageW(win32::native(window), kHide, 0, 0);
}

// The window's own procedure (WM_DESTROY, WM_NCDESTROY above) lets go of what it holds.
void Win32Wait::closed(HWND) {
    m_relay.stop();
}

}  // namespace plat::ui
