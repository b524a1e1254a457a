// The terminal UI's part in the choice of a backend: whether a person sits at a terminal, and the
// terminal backend itself. Built on POSIX only (termios, /dev/tty); elsewhere there is no terminal UI.
#pragma once

#include <memory>

#include "plat/ui.h"

namespace plat::ui {

// Whether standard input and standard error are terminals. Both false where the terminal UI is not built.
void terminalsAttached(bool& stdinIsTerminal, bool& stderrIsTerminal);

// The terminal UI on the process's terminal; null where the terminal UI is not built.
std::unique_ptr<Backend> makeTerminalBackend();

}  // namespace plat::ui
