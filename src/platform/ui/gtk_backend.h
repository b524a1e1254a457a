// The desktop UI (VELQ_UI=gtk): every interaction as a real window on the person's desktop, drawn by
// GTK 3 on a UI thread of its own (ui/gtk_loop.h). This header has no GTK in it, so that the backend's
// choice builds whether or not GTK is built in (VELQ_WITH_GTK).
#pragma once

#include <memory>
#include <string>

#include "plat/ui.h"

namespace plat::ui {

// True when this program was built with the desktop UI.
bool gtkBuiltIn();

// The desktop UI, or null when it cannot be had: not built in, or the display cannot be opened
// (`failure` then says why, in one line for stderr).
std::unique_ptr<Backend> makeGtkBackend(std::string& failure);

// Ends the desktop UI's loop if it runs, after the work posted to it: the UI thread ends, so that the
// process's exit handlers (the text-shaping libraries' among them) never run while a window is drawn.
// Harmless when the loop never started or has ended. No window may be asked for afterwards.
void endGtkLoop();

}  // namespace plat::ui
