#include "ui/gtk_loop.h"

#include "ui/gtk_backend.h"

#include <cstdlib>
#include <thread>

#include "plat/language.h"

// Last: GLib defines TRUE and FALSE as macros, which must not reach the declarations of plat/types.h.
#include <gtk/gtk.h>

namespace plat::ui {

namespace {

std::mutex g_startMutex;
GtkLoop* g_pLoop = nullptr;  // never destroyed: threads may hold it while the process exits
bool g_bTried = false;
std::string g_szFailure;
Reply<bool> g_uiThreadEnded;  // set by the UI thread once its loop has returned
bool g_bEnded = false;        // under g_startMutex

gboolean runPosted(gpointer data) {
    auto* work = static_cast<std::function<void()>*>(data);
    (*work)();
    delete work;
    return G_SOURCE_REMOVE;
}

// The UI thread loads its texts in the person's language, as every thread of the program that shows
// windows does.
void useUserLanguage() {
    WCHAR name[LOCALE_NAME_MAX_LENGTH + 1] = {};
    if (LCIDToLocaleName(GetUserDefaultUILanguage(), name, LOCALE_NAME_MAX_LENGTH, 0) > 0) {
        SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, name, nullptr);
    }
}

void runUiThread(Reply<bool>* opened) {
    useUserLanguage();
    if (gtk_init_check(nullptr, nullptr) == FALSE) {
        opened->set(false);
        return;
    }
    opened->set(true);
    gtk_main();
    g_uiThreadEnded.set(true);
}

}  // namespace

GtkLoop* GtkLoop::instance(std::string& failure) {
    std::lock_guard<std::mutex> lock(g_startMutex);
    if (!g_bTried) {
        g_bTried = true;
        Reply<bool> opened;
        std::thread(runUiThread, &opened).detach();
        if (opened.wait()) {
            g_pLoop = new GtkLoop();
        } else {
            const char* display = std::getenv("DISPLAY");
            const char* wayland = std::getenv("WAYLAND_DISPLAY");
            const char* named = wayland != nullptr && *wayland != '\0' ? wayland : display;
            g_szFailure = named != nullptr && *named != '\0' ? std::string("cannot open the display ") + named
                                                             : std::string("no display is set");
        }
    }
    failure = g_szFailure;
    return g_pLoop;
}

void GtkLoop::end() {
    {
        std::lock_guard<std::mutex> lock(g_startMutex);
        if (g_bEnded) {
            return;
        }
        g_bEnded = true;
    }
    post([] { gtk_main_quit(); });
    g_uiThreadEnded.wait();
}

void endGtkLoop() {
    GtkLoop* loop = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_startMutex);
        loop = g_pLoop;
    }
    if (loop != nullptr) {
        loop->end();
    }
}

void GtkLoop::post(std::function<void()> work) {
    // An idle source of the default context, always: it runs inside the UI thread's gtk_main() in the
    // order of posting, after the person's input and the drawing that is due, so that a stream of progress
    // never starves them. (g_main_context_invoke would run the work on the calling thread whenever that
    // thread can acquire the context, as it can before gtk_main() has started.)
    GSource* source = g_idle_source_new();
    g_source_set_callback(source, runPosted, new std::function<void()>(std::move(work)), nullptr);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}

}  // namespace plat::ui
