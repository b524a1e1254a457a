// The desktop's lock and suspend for the desktop UI's wait window; see gtk_session_watch.h.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

// The layer's headers come before GLib's, whose TRUE and FALSE are macros.
#include "plat/messages.h"
#include "plat/windows.h"
#include "ui/gtk_session_watch.h"

namespace plat::ui {

namespace {

constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kLogindManager = "org.freedesktop.login1.Manager";
constexpr const char* kLogindSession = "org.freedesktop.login1.Session";
constexpr WPARAM kPowerSuspend = 4;  // PBT_APMSUSPEND
constexpr WPARAM kPowerResume = 7;   // PBT_APMRESUMEAUTOMATIC
constexpr WPARAM kSessionLock = 7;   // WTS_SESSION_LOCK
constexpr int kLookupTimeoutMs = 5000;

}  // namespace

SessionWatch::~SessionWatch() {
    stop();
}

void SessionWatch::start(HWND window) {
    stop();
    m_hWindow = window;
    m_pBus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (m_pBus == nullptr) {
        return;
    }
    m_nSleep =
        g_dbus_connection_signal_subscribe(m_pBus, kLogind, kLogindManager, "PrepareForSleep", kLogindPath,
                                           nullptr, G_DBUS_SIGNAL_FLAGS_NONE, _onSignal, this, nullptr);
    // Every session's Lock is heard; _onSignal keeps only this process's, once its path is known.
    m_nLock = g_dbus_connection_signal_subscribe(m_pBus, kLogind, kLogindSession, "Lock", nullptr, nullptr,
                                                 G_DBUS_SIGNAL_FLAGS_NONE, _onSignal, this, nullptr);
    // The session of this process: XDG_SESSION_ID where the login set it, else logind's answer by pid.
    const char* id = std::getenv("XDG_SESSION_ID");
    const bool named = id != nullptr && *id != '\0';
    m_pLookup = g_cancellable_new();
    g_dbus_connection_call(
        m_pBus, kLogind, kLogindPath, kLogindManager, named ? "GetSession" : "GetSessionByPID",
        named ? g_variant_new("(s)", id) : g_variant_new("(u)", static_cast<guint32>(::getpid())),
        G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, kLookupTimeoutMs, m_pLookup, _onSession, this);
}

void SessionWatch::stop() {
    if (m_pLookup != nullptr) {
        // A lookup still under way ends cancelled; its callback then touches nothing of ours.
        g_cancellable_cancel(m_pLookup);
        g_object_unref(m_pLookup);
        m_pLookup = nullptr;
    }
    if (m_pBus != nullptr) {
        for (guint* subscription : {&m_nSleep, &m_nLock}) {
            if (*subscription != 0) {
                g_dbus_connection_signal_unsubscribe(m_pBus, *subscription);
                *subscription = 0;
            }
        }
        g_object_unref(m_pBus);
        m_pBus = nullptr;
    }
    m_sessionPath.clear();
    m_hWindow = nullptr;
}

void SessionWatch::_onSession(GObject* source, GAsyncResult* result, gpointer self) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
    if (reply == nullptr) {
        // Cancelled (the watch stopped: `self` may be gone) or no logind: no lock to hear.
        g_error_free(error);
        return;
    }
    const gchar* path = nullptr;
    g_variant_get(reply, "(&o)", &path);
    auto* watch = static_cast<SessionWatch*>(self);
    watch->m_sessionPath = path;
    g_variant_unref(reply);
}

void SessionWatch::_onSignal(GDBusConnection*, const gchar*, const gchar* path, const gchar*,
                             const gchar* signal, GVariant* parameters, gpointer self) {
    auto* watch = static_cast<SessionWatch*>(self);
    if (watch->m_hWindow == nullptr) {
        return;
    }
    if (std::strcmp(signal, "PrepareForSleep") == 0 &&
        g_variant_is_of_type(parameters, G_VARIANT_TYPE("(b)"))) {
        gboolean start = FALSE;
        g_variant_get(parameters, "(b)", &start);
        PostMessageW(watch->m_hWindow, WM_POWERBROADCAST, start != FALSE ? kPowerSuspend : kPowerResume, 0);
    } else if (std::strcmp(signal, "Lock") == 0 && !watch->m_sessionPath.empty() &&
               watch->m_sessionPath == path) {
        PostMessageW(watch->m_hWindow, WM_WTSSESSION_CHANGE, kSessionLock, 0);
    }
}

}  // namespace plat::ui
