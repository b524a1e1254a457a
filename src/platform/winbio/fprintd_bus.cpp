#include "winbio/fprintd_bus.h"

namespace plat::winbio::fprintd {

CallResult callMethod(GDBusConnection* bus, const char* service, const char* path, const char* interface,
                      const char* method, GVariant* parameters) {
    CallResult result;
    if (bus == nullptr) {
        if (parameters != nullptr) {
            g_variant_unref(g_variant_ref_sink(parameters));
        }
        result.errorName = "org.freedesktop.DBus.Error.NoServer";
        result.errorMessage = "no system bus";
        return result;
    }
    GError* error = nullptr;
    result.reply =
        g_dbus_connection_call_sync(bus, service, path, interface, method, parameters, nullptr,
                                    G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallTimeoutMs, nullptr, &error);
    if (result.reply == nullptr) {
        gchar* remote = error != nullptr ? g_dbus_error_get_remote_error(error) : nullptr;
        if (remote != nullptr) {
            result.errorName = remote;
            g_free(remote);
        } else if (error != nullptr && error->domain == G_IO_ERROR && error->code == G_IO_ERROR_TIMED_OUT) {
            result.errorName = "org.freedesktop.DBus.Error.Timeout";
        } else {
            result.errorName = "org.freedesktop.DBus.Error.Failed";
        }
        if (error != nullptr) {
            result.errorMessage = error->message;
            g_error_free(error);
        }
    }
    return result;
}

bool hasType(GVariant* value, const char* typeString) {
    return value != nullptr && g_variant_is_of_type(value, reinterpret_cast<const GVariantType*>(typeString));
}

}  // namespace plat::winbio::fprintd
