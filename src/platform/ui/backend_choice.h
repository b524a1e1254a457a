// How the process's UI backend is chosen from VELQ_UI.
#pragma once

#include <string>
#include <string_view>

namespace plat::ui {

// The backend for `requested` (the value of VELQ_UI, null when unset): "script" or "tty" as asked; unset
// or empty: "tty" when stdin and stderr are terminals, else "script". A name we do not have ("gtk" until
// the desktop backend is built in, or a misspelling) gives that same default and a one-line `warning` for
// stderr (left empty otherwise).
std::string_view chooseBackendName(const char* requested, bool stdinIsTerminal, bool stderrIsTerminal,
                                   std::string& warning);

// The same with the desktop: "gtk" as asked when `gtkBuilt`; unset or empty: "gtk" when `gtkBuilt` and
// `displayAvailable` (DISPLAY or WAYLAND_DISPLAY set), else the terminal rule above. "gtk" in a build
// without it gives the terminal rule's answer and the warning. The call above is this one for a build
// without the desktop UI.
std::string_view chooseBackendName(const char* requested, bool stdinIsTerminal, bool stderrIsTerminal,
                                   bool displayAvailable, bool gtkBuilt, std::string& warning);

// True when DISPLAY or WAYLAND_DISPLAY names a display (set and not empty).
bool displayNamed(const char* x11Display, const char* waylandDisplay);

}  // namespace plat::ui
