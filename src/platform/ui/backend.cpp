#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "plat/system.h"
#include "plat/ui.h"
#include "ui/backend_choice.h"
#include "ui/gtk_backend.h"
#include "ui/script_backend.h"
#include "ui/terminal_choice.h"
#ifdef _WIN32
#include "ui/win32_backend.h"
#endif

namespace plat::ui {

namespace {
std::mutex g_backendMutex;
// Never destroyed once chosen: threads may still ask questions while the process ends, after static
// destructors have run. Reachable until exit, so leak checkers do not report it.
Backend* g_pBackend = nullptr;

std::unique_ptr<Backend> makeBackend() {
    const std::optional<std::string> requested = environmentValue("VELQ_UI");
#ifdef _WIN32
    // The native Windows UI: VELQ_UI=win32, and the Windows program's default; the other names as below.
    if (!requested || requested->empty() || *requested == "win32") {
        return makeWin32Backend();
    }
#endif
    std::string warning;
    bool stdinIsTerminal = false;
    bool stderrIsTerminal = false;
    terminalsAttached(stdinIsTerminal, stderrIsTerminal);
    std::string_view name = chooseBackendName(
        requested ? requested->c_str() : nullptr, stdinIsTerminal, stderrIsTerminal,
        displayNamed(std::getenv("DISPLAY"), std::getenv("WAYLAND_DISPLAY")), gtkBuiltIn(), warning);
    if (!warning.empty()) {
        std::fprintf(stderr, "%s\n", warning.c_str());
    }
    if (name == "gtk") {
        std::string failure;
        if (std::unique_ptr<Backend> desktop = makeGtkBackend(failure)) {
            return desktop;
        }
        // As without a display: the terminal rule decides.
        name = chooseBackendName(nullptr, stdinIsTerminal, stderrIsTerminal, false, false, warning);
        std::fprintf(stderr, "VELQ_UI: %s; using %s.\n", failure.c_str(), std::string(name).c_str());
    }
    if (name == "tty") {
        if (std::unique_ptr<Backend> terminal = makeTerminalBackend()) {
            return terminal;
        }
        std::fputs("VELQ_UI: the terminal UI is not built in; using script.\n", stderr);
    }
    return ScriptBackend::fromEnvironment();
}
}  // namespace

std::string_view chooseBackendName(const char* requested, bool stdinIsTerminal, bool stderrIsTerminal,
                                   std::string& warning) {
    return chooseBackendName(requested, stdinIsTerminal, stderrIsTerminal, false, false, warning);
}

bool displayNamed(const char* x11Display, const char* waylandDisplay) {
    return (x11Display != nullptr && *x11Display != '\0') ||
           (waylandDisplay != nullptr && *waylandDisplay != '\0');
}

std::string_view chooseBackendName(const char* requested, bool stdinIsTerminal, bool stderrIsTerminal,
                                   bool displayAvailable, bool gtkBuilt, std::string& warning) {
    warning.clear();
    const std::string_view fallback = stdinIsTerminal && stderrIsTerminal ? "tty" : "script";
    if (requested == nullptr || *requested == '\0') {
        return gtkBuilt && displayAvailable ? std::string_view("gtk") : fallback;
    }
    const std::string_view asked(requested);
    if (asked == "script" || asked == "tty") {
        return asked == "script" ? std::string_view("script") : std::string_view("tty");
    }
    if (asked == "gtk" && gtkBuilt) {
        return "gtk";
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

void endBackend() {
    endGtkLoop();
}

std::unique_ptr<Backend> installBackend(std::unique_ptr<Backend> backend) {
    std::lock_guard<std::mutex> lock(g_backendMutex);
    std::unique_ptr<Backend> previous(g_pBackend);
    g_pBackend = backend.release();
    return previous;
}

}  // namespace plat::ui
