#include <unistd.h>

#include "ui/terminal_choice.h"
#include "ui/tty_backend.h"

namespace plat::ui {

void terminalsAttached(bool& stdinIsTerminal, bool& stderrIsTerminal) {
    stdinIsTerminal = ::isatty(STDIN_FILENO) == 1;
    stderrIsTerminal = ::isatty(STDERR_FILENO) == 1;
}

std::unique_ptr<Backend> makeTerminalBackend() {
    return std::make_unique<TtyBackend>("/dev/tty");
}

}  // namespace plat::ui
