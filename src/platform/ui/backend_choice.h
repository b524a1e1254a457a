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

}  // namespace plat::ui
