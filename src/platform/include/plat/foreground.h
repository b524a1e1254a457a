// The foreground window and the GDI+ start-up, as the program's entry and its message boxes use them.
//
// On POSIX there is no window system of the core's own: message boxes are owned by no window, and
// pictures are drawn by the UI backends, so these calls keep the core's steps in place and do nothing.
#pragma once

#include <cstdint>

#include "plat/types.h"

namespace plat {

// The window of this process that has the keyboard focus. On POSIX the core has no window of its own that
// could be in front, so this is always null; callers pass it on as the owner of a box, which then has none.
HWND GetForegroundWindow();

using ULONG_PTR = std::uintptr_t;

// GDI+ status values the core may look at.
enum GpStatus : int { Ok = 0, GenericError = 1, InvalidParameter = 2 };

struct GdiplusStartupInput {
    std::uint32_t GdiplusVersion = 1;
    void* DebugEventCallback = nullptr;
    BOOL SuppressBackgroundThread = FALSE;
    BOOL SuppressExternalCodecs = FALSE;
};
struct GdiplusStartupOutput;

// Starts GDI+. On POSIX nothing is started: the token becomes 0 and the result is Ok. A null token gives
// InvalidParameter, as on Windows.
GpStatus GdiplusStartup(ULONG_PTR* token, const GdiplusStartupInput* input, GdiplusStartupOutput* output);

// Ends what GdiplusStartup started; on POSIX nothing, whatever the token.
void GdiplusShutdown(ULONG_PTR token);

}  // namespace plat
