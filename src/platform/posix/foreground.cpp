#include "plat/foreground.h"

namespace plat {

HWND GetForegroundWindow() {
    return nullptr;
}

GpStatus GdiplusStartup(ULONG_PTR* token, const GdiplusStartupInput* /*input*/,
                        GdiplusStartupOutput* /*output*/) {
    if (token == nullptr) {
        return InvalidParameter;
    }
    *token = 0;
    return Ok;
}

void GdiplusShutdown(ULONG_PTR /*token*/) {}

}  // namespace plat
