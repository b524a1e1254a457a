// Systems without the terminal UI (Windows): no terminal is ever chosen, so the scripted UI is the
// fallback.
#include "ui/terminal_choice.h"

namespace plat::ui {

void terminalsAttached(bool& stdinIsTerminal, bool& stderrIsTerminal) {
    stdinIsTerminal = false;
    stderrIsTerminal = false;
}

std::unique_ptr<Backend> makeTerminalBackend() {
    return nullptr;
}

}  // namespace plat::ui
