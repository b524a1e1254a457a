#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "plat/ui.h"
#include "ui/backend_choice.h"
#include "ui/script_backend.h"
#include "ui/tty_backend.h"

namespace plat::ui {

namespace {
std::mutex g_backendMutex;
// Never destroyed once chosen: threads may still ask questions while the process ends, after static
// destructors have run. Reachable until exit, so leak checkers do not report it.
Backend* g_pBackend = nullptr;

std::unique_ptr<Backend> makeBackend() {
    std::string warning;
    const std::string_view name = chooseBackendName(std::getenv("VELQ_UI"), ::isatty(STDIN_FILENO) == 1,
                                                    ::isatty(STDERR_FILENO) == 1, warning);
    if (!warning.empty()) {
        std::fprintf(stderr, "%s\n", warning.c_str());
    }
    if (name == "tty") {
        return std::make_unique<TtyBackend>("/dev/tty");
    }
    return ScriptBackend::fromEnvironment();
}
}  // namespace

std::string_view chooseBackendName(const char* requested, bool stdinIsTerminal, bool stderrIsTerminal,
                                   std::string& warning) {
    warning.clear();
    const std::string_view fallback = stdinIsTerminal && stderrIsTerminal ? "tty" : "script";
    if (requested == nullptr || *requested == '\0') {
        return fallback;
    }
    const std::string_view asked(requested);
    if (asked == "script" || asked == "tty") {
        return asked == "script" ? std::string_view("script") : std::string_view("tty");
    }
    warning = "VELQ_UI=" + std::string(asked) + " is not available in this build; using " +
              std::string(fallback) + ".";
    return fallback;
}

Backend& currentBackend() {
    std::lock_guard<std::mutex> lock(g_backendMutex);
    if (g_pBackend == nullptr) {
        g_pBackend = makeBackend().release();
    }
    return *g_pBackend;
}

std::unique_ptr<Backend> installBackend(std::unique_ptr<Backend> backend) {
    std::lock_guard<std::mutex> lock(g_backendMutex);
    std::unique_ptr<Backend> previous(g_pBackend);
    g_pBackend = backend.release();
    return previous;
}

}  // namespace plat::ui
