// The desktop's lock and suspend, heard for the wait window of the desktop UI: logind's PrepareForSleep on
// the system bus and the Lock signal of this process's login session reach the window as the session and
// power codes that Windows' notifications give (WM_WTSSESSION_CHANGE with WTS_SESSION_LOCK 7,
// WM_POWERBROADCAST with PBT_APMSUSPEND 4 and PBT_APMRESUMEAUTOMATIC 7), so that the window closes on them
// as it does on Windows. Without a system bus or logind nothing is heard and the wait goes on.
#pragma once

#include <string>

// The layer's headers come before GLib's, whose TRUE and FALSE are macros.
#include "plat/types.h"

#include <gio/gio.h>

namespace plat::ui {

class SessionWatch {
public:
    SessionWatch() = default;
    ~SessionWatch();
    SessionWatch(const SessionWatch&) = delete;
    SessionWatch& operator=(const SessionWatch&) = delete;

    // Posts the codes to `window` from now on. On the GTK thread, whose main context dispatches the
    // bus's signals; the bus is reached synchronously (a missing bus fails at once), the login session is
    // looked up without blocking.
    void start(HWND window);
    // Nothing is posted any more once this returns. On the GTK thread.
    void stop();

private:
    static void _onSignal(GDBusConnection* bus, const gchar* sender, const gchar* path, const gchar* iface,
                          const gchar* signal, GVariant* parameters, gpointer self);
    static void _onSession(GObject* source, GAsyncResult* result, gpointer self);

    GDBusConnection* m_pBus = nullptr;
    GCancellable* m_pLookup = nullptr;
    guint m_nSleep = 0;
    guint m_nLock = 0;
    std::string m_sessionPath;  // this process's login session, once logind has told it
    HWND m_hWindow = nullptr;
};

}  // namespace plat::ui
