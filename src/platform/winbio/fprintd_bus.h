// A thin owner of GDBus objects for the fprintd backend: bounded synchronous calls and the D-Bus error
// name of a failure, so that the backend itself reads as the mapping of docs/FPRINTD.md.
#pragma once

#include <gio/gio.h>

#include <string>

namespace plat::winbio::fprintd {

inline constexpr const char* kService = "net.reactivated.Fprint";
inline constexpr const char* kManagerPath = "/net/reactivated/Fprint/Manager";
inline constexpr const char* kManagerInterface = "net.reactivated.Fprint.Manager";
inline constexpr const char* kDeviceInterface = "net.reactivated.Fprint.Device";
inline constexpr const char* kLogindService = "org.freedesktop.login1";
inline constexpr const char* kLogindPath = "/org/freedesktop/login1";
inline constexpr const char* kLogindManager = "org.freedesktop.login1.Manager";
inline constexpr const char* kLogindSession = "org.freedesktop.login1.Session";

// Every call to the daemon ends within this time (verification waits for a finger through signals, never
// through a call, so no call needs longer).
inline constexpr int kCallTimeoutMs = 5000;

// A GVariant reference that is released when it goes out of scope.
class Variant {
public:
    explicit Variant(GVariant* value = nullptr) : m_value(value) {}
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    ~Variant() {
        if (m_value != nullptr) {
            g_variant_unref(m_value);
        }
    }
    GVariant* get() const { return m_value; }
    explicit operator bool() const { return m_value != nullptr; }

private:
    GVariant* m_value;
};

// The outcome of one call: the reply (null on failure) and, on failure, the D-Bus error name (the
// remote error's name, "org.freedesktop.DBus.Error.Timeout"-like names of the bus, or
// "org.freedesktop.DBus.Error.Failed" for a local failure) and its message.
struct CallResult {
    GVariant* reply = nullptr;
    std::string errorName;
    std::string errorMessage;
};

// Calls `method` on `path` of `service` with `parameters` (floating references are taken), waiting at
// most kCallTimeoutMs. A null connection fails as "org.freedesktop.DBus.Error.NoServer".
CallResult callMethod(GDBusConnection* bus, const char* service, const char* path, const char* interface,
                      const char* method, GVariant* parameters);

// True when `value` has the type written as `typeString` (e.g. "(ao)").
bool hasType(GVariant* value, const char* typeString);

}  // namespace plat::winbio::fprintd
