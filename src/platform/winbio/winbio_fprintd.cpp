// The fprintd backend (VELQ_WINBIO=fprintd): real readers on Linux, through the fprintd daemon on the
// system D-Bus. docs/FPRINTD.md holds the mapping this file follows.
//
// Threads: the calling threads make bounded synchronous calls; a private GMainContext runs on the
// backend's own thread and receives every signal (VerifyStatus, EnrollStatus, the daemon's name owner,
// logind's PrepareForSleep and the session's Lock). Every callback runs on that thread, never on a
// caller's, as the framework's callback thread would run it. The signals are subscribed once, before any
// VerifyStart, so that a result that comes before VerifyStart returns is not lost.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "plat/messages.h"
#include "plat/strings.h"
#include "winbio/backend.h"
#include "winbio/fprintd_bus.h"
#include "winbio/fprintd_identity.h"
#include "winbio/fprintd_map.h"
#include "winbio/pending.h"

namespace plat::winbio {

namespace {

using fprintd::Call;
using fprintd::callMethod;
using fprintd::CallResult;
using fprintd::Variant;

// The wParam codes the wait window knows: a suspend, a resume and a locked session.
constexpr WPARAM kPowerSuspend = 4;
constexpr WPARAM kPowerResume = 7;
constexpr WPARAM kSessionLock = 7;

struct Session {
    Pending pending;
    bool cancelRequested = false;
    bool delivering = false;
    bool closed = false;
    WINBIO_UNIT_ID claimedUnit = 0;
    // Between VerifyStart and VerifyStop, or EnrollStart and EnrollStop, on the claimed unit.
    bool verifying = false;
    bool enrollBegun = false;
    bool enrolling = false;
    // The event monitor claimed the reader itself (the session had not locked a unit): unregistering it
    // releases the reader again.
    bool monitorClaim = false;
    std::string enrollFinger;
    // A verify result that came while no sample was armed (the daemon goes on verifying after a retry
    // result): the next armed sample gets it, so that a finger laid on at once is not lost.
    std::string queuedResult;
    bool queuedDone = false;
};

struct Sample {
    HRESULT status = S_OK;
    WINBIO_REJECT_DETAIL rejectDetail = 0;
    bool identified = false;
};

class FprintdBackend final : public Backend {
public:
    FprintdBackend();
    ~FprintdBackend() override;

    HRESULT getEnabledSetting(BOOLEAN* value, WINBIO_SETTING_SOURCE_TYPE* source) override {
        if (value == nullptr || source == nullptr) {
            return E_POINTER;
        }
        // The daemon has no switch of its own: a reader it offers is a reader in use.
        *value = 1;
        *source = WINBIO_SETTING_SOURCE_DEFAULT;
        return S_OK;
    }
    HRESULT enumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** units,
                               SIZE_T* count) override;
    HRESULT openSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE pool, WINBIO_SESSION_FLAGS flags,
                        WINBIO_UNIT_ID* unitArray, SIZE_T unitCount, GUID* databaseId,
                        WINBIO_SESSION_HANDLE* session) override;
    HRESULT closeSession(WINBIO_SESSION_HANDLE handle) override;
    HRESULT lockUnit(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit) override;
    HRESULT unlockUnit(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit) override;
    HRESULT identifyWithCallback(WINBIO_SESSION_HANDLE handle, PWINBIO_IDENTIFY_CALLBACK callback,
                                 void* context) override {
        Pending pending;
        pending.kind = Pending::Kind::Identify;
        pending.identify = callback;
        pending.context = context;
        return armVerification(handle, callback != nullptr, pending);
    }
    HRESULT wait(WINBIO_SESSION_HANDLE handle) override;
    HRESULT cancel(WINBIO_SESSION_HANDLE handle) override;
    HRESULT free(void* address) override {
        if (address == nullptr) {
            return E_POINTER;
        }
        std::free(address);
        return S_OK;
    }
    HRESULT enrollBegin(WINBIO_SESSION_HANDLE handle, WINBIO_BIOMETRIC_SUBTYPE subFactor,
                        WINBIO_UNIT_ID unit) override;
    HRESULT enrollCaptureWithCallback(WINBIO_SESSION_HANDLE handle, PWINBIO_ENROLL_CAPTURE_CALLBACK callback,
                                      void* context) override;
    HRESULT enrollDiscard(WINBIO_SESSION_HANDLE handle) override;
    HRESULT enumEnrollments(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit, WINBIO_IDENTITY* identity,
                            WINBIO_BIOMETRIC_SUBTYPE** subFactors, SIZE_T* count) override;
    HRESULT registerEventMonitor(WINBIO_SESSION_HANDLE handle, WINBIO_EVENT_TYPE,
                                 PWINBIO_EVENT_CALLBACK callback, void* context) override {
        if (callback == nullptr) {
            return E_POINTER;
        }
        const HRESULT claimed = claimForMonitor(handle);
        if (claimed < 0) {
            return claimed;
        }
        Pending pending;
        pending.kind = Pending::Kind::Monitor;
        pending.event = callback;
        pending.context = context;
        return armVerification(handle, callback != nullptr, pending);
    }
    HRESULT unregisterEventMonitor(WINBIO_SESSION_HANDLE handle) override;
    std::uint64_t subscribeWindowEvents(sensor::WindowEventProc proc, void* context) override;
    void unsubscribeWindowEvents(std::uint64_t id) override;

private:
    // Needs m_mutex. Null for an unknown or closed handle.
    Session* find(WINBIO_SESSION_HANDLE handle) {
        const auto found = m_sessions.find(handle);
        return found == m_sessions.end() || found->second.closed ? nullptr : &found->second;
    }
    std::string devicePath(WINBIO_UNIT_ID unit) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return unit >= 1 && unit <= m_devices.size() ? m_devices[unit - 1] : std::string();
    }
    // A unit without a device (released, or its daemon gone) fails as NoSuchDevice without a call.
    CallResult callDevice(const std::string& path, const char* method, GVariant* parameters) {
        if (path.empty()) {
            if (parameters != nullptr) {
                g_variant_unref(g_variant_ref_sink(parameters));
            }
            CallResult result;
            result.errorName = "net.reactivated.Fprint.Error.NoSuchDevice";
            result.errorMessage = "no such reader";
            return result;
        }
        return callMethod(m_bus, fprintd::kService, path.c_str(), fprintd::kDeviceInterface, method,
                          parameters);
    }
    HRESULT failure(Call call, const char* method, const CallResult& result);
    HRESULT armVerification(WINBIO_SESSION_HANDLE handle, bool hasCallback, const Pending& pending);
    HRESULT claimForMonitor(WINBIO_SESSION_HANDLE handle);
    void stopOperation(WINBIO_UNIT_ID unit, bool verifying, bool enrolling);
    HRESULT releaseReader(WINBIO_UNIT_ID unit);
    void awaitResume();
    bool refusedByPolkit(const std::string& path);
    void requestDelivery();
    void subscribeSignals();
    void resolveLoginSession();

    // The loop thread's side.
    static void onSignal(GDBusConnection*, const gchar* sender, const gchar* path, const gchar* interface,
                         const gchar* signal, GVariant* parameters, gpointer self);
    static gboolean onDeliveryRequested(gpointer self);
    void handleVerifyStatus(const std::string& path, const char* result, bool done);
    void handleEnrollStatus(const std::string& path, const char* result);
    void handleDaemonGone();
    void deliverCancellations();
    void deliver(WINBIO_SESSION_HANDLE handle, const Sample& sample, bool keepPending);
    void notifySubscribers(UINT message, WPARAM code);
    void run();

    WINBIO_IDENTITY m_ownerIdentity{};
    GDBusConnection* m_bus = nullptr;
    GMainContext* m_context = nullptr;
    std::atomic<bool> m_stopping{false};
    std::vector<guint> m_subscriptions;
    std::string m_loginSessionPath;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_devices;
    std::map<WINBIO_SESSION_HANDLE, Session> m_sessions;
    WINBIO_SESSION_HANDLE m_nextSession = 1;
    std::map<std::uint64_t, Subscriber> m_subscribers;
    std::uint64_t m_nextSubscriber = 1;
    bool m_deliveryQueued = false;
    // Between logind's PrepareForSleep(true) and (false).
    bool m_sleeping = false;
    std::recursive_mutex m_subscriberDelivery;
    std::thread m_thread;
};

FprintdBackend::FprintdBackend() {
    identityOfOwner(m_ownerIdentity);
    GError* error = nullptr;
    gchar* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (address != nullptr) {
        // A private connection: its signals go to this backend's own context, and nothing else in the
        // process shares (or closes) it.
        m_bus = g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        g_free(address);
    }
    if (m_bus == nullptr) {
        std::fprintf(stderr, "fprintd: no system bus (%s); no fingerprint reader.\n",
                     error != nullptr ? error->message : "unknown reason");
    } else {
        g_dbus_connection_set_exit_on_close(m_bus, FALSE);
    }
    if (error != nullptr) {
        g_error_free(error);
    }
    m_context = g_main_context_new();
    subscribeSignals();
    resolveLoginSession();
    m_thread = std::thread([this] { run(); });
}

FprintdBackend::~FprintdBackend() {
    std::vector<WINBIO_SESSION_HANDLE> open;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& entry : m_sessions) {
            if (!entry.second.closed) {
                open.push_back(entry.first);
            }
        }
    }
    for (WINBIO_SESSION_HANDLE handle : open) {
        closeSession(handle);
    }
    m_stopping.store(true);
    g_main_context_wakeup(m_context);
    m_thread.join();
    for (guint id : m_subscriptions) {
        g_dbus_connection_signal_unsubscribe(m_bus, id);
    }
    // Pending unsubscriptions and idle sources are released with the context.
    while (g_main_context_iteration(m_context, FALSE) != FALSE) {
    }
    g_main_context_unref(m_context);
    if (m_bus != nullptr) {
        g_object_unref(m_bus);
    }
}

// Iterates until told to stop (not g_main_loop_run: a quit that comes before the loop runs would be lost,
// and the destructor's join would never return).
void FprintdBackend::run() {
    g_main_context_push_thread_default(m_context);
    while (!m_stopping.load()) {
        g_main_context_iteration(m_context, TRUE);
    }
    g_main_context_pop_thread_default(m_context);
}

void FprintdBackend::subscribeSignals() {
    if (m_bus == nullptr) {
        return;
    }
    // Subscriptions deliver to the thread-default context of the subscribing thread: this one's, for now.
    g_main_context_push_thread_default(m_context);
    struct Rule {
        const char* sender;
        const char* interface;
        const char* member;
        const char* path;
        const char* arg0;
    };
    const Rule rules[] = {
        {fprintd::kService, fprintd::kDeviceInterface, "VerifyStatus", nullptr, nullptr},
        {fprintd::kService, fprintd::kDeviceInterface, "EnrollStatus", nullptr, nullptr},
        {"org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", "/org/freedesktop/DBus",
         fprintd::kService},
        {fprintd::kLogindService, fprintd::kLogindManager, "PrepareForSleep", fprintd::kLogindPath, nullptr},
        {fprintd::kLogindService, fprintd::kLogindSession, "Lock", nullptr, nullptr},
    };
    for (const Rule& rule : rules) {
        m_subscriptions.push_back(g_dbus_connection_signal_subscribe(
            m_bus, rule.sender, rule.interface, rule.member, rule.path, rule.arg0, G_DBUS_SIGNAL_FLAGS_NONE,
            &onSignal, this, nullptr));
    }
    g_main_context_pop_thread_default(m_context);
}

// The process's login session, whose Lock ends a wait: XDG_SESSION_ID when set, else logind's session of
// this process. Without logind there is no lock to hear.
void FprintdBackend::resolveLoginSession() {
    const char* id = std::getenv("XDG_SESSION_ID");
    CallResult result =
        id != nullptr && *id != '\0'
            ? callMethod(m_bus, fprintd::kLogindService, fprintd::kLogindPath, fprintd::kLogindManager,
                         "GetSession", g_variant_new("(s)", id))
            : callMethod(m_bus, fprintd::kLogindService, fprintd::kLogindPath, fprintd::kLogindManager,
                         "GetSessionByPID", g_variant_new("(u)", static_cast<guint32>(::getpid())));
    Variant reply(result.reply);
    if (fprintd::hasType(reply.get(), "(o)")) {
        const gchar* path = nullptr;
        g_variant_get(reply.get(), "(&o)", &path);
        m_loginSessionPath = path;
    }
}

HRESULT FprintdBackend::failure(Call call, const char* method, const CallResult& result) {
    const HRESULT hr = fprintd::errorCode(call, result.errorName);
    if (hr == E_ACCESSDENIED) {
        std::fprintf(stderr,
                     "fprintd: %s refused by polkit (%s); the reader is only offered to an active local "
                     "session.\n",
                     method, result.errorMessage.c_str());
    } else {
        std::fprintf(stderr, "fprintd: %s failed: %s (%s)\n", method, result.errorName.c_str(),
                     result.errorMessage.c_str());
    }
    return hr;
}

HRESULT FprintdBackend::enumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** units,
                                           SIZE_T* count) {
    if (units == nullptr || count == nullptr) {
        return E_POINTER;
    }
    *units = nullptr;
    *count = 0;
    if ((factor & WINBIO_TYPE_FINGERPRINT) == 0) {
        return WINBIO_E_UNSUPPORTED_FACTOR;
    }
    const CallResult result = callMethod(m_bus, fprintd::kService, fprintd::kManagerPath,
                                         fprintd::kManagerInterface, "GetDevices", nullptr);
    Variant reply(result.reply);
    std::vector<std::string> devices;
    if (fprintd::hasType(reply.get(), "(ao)")) {
        GVariantIter* iter = nullptr;
        g_variant_get(reply.get(), "(ao)", &iter);
        const gchar* path = nullptr;
        while (g_variant_iter_next(iter, "&o", &path) != FALSE) {
            if (!refusedByPolkit(path)) {
                devices.emplace_back(path);
            }
        }
        g_variant_iter_free(iter);
    } else if (!reply) {
        // No daemon (or no bus) is a machine without a reader, not an error of the call.
        std::fprintf(stderr, "fprintd: no reader: %s\n", result.errorMessage.c_str());
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        // Units keep their numbers while sessions hold them; a new enumeration only adds.
        for (const std::string& path : devices) {
            bool known = false;
            for (const std::string& old : m_devices) {
                known = known || old == path;
            }
            if (!known) {
                m_devices.push_back(path);
            }
        }
    }
    if (devices.empty()) {
        return S_OK;
    }
    *units = static_cast<WINBIO_UNIT_SCHEMA*>(std::calloc(devices.size(), sizeof(WINBIO_UNIT_SCHEMA)));
    if (*units == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    for (std::size_t i = 0; i < devices.size(); ++i) {
        WINBIO_UNIT_SCHEMA& schema = (*units)[i];
        for (std::size_t unit = 0; unit < m_devices.size(); ++unit) {
            if (m_devices[unit] == devices[i]) {
                schema.UnitId = static_cast<WINBIO_UNIT_ID>(unit + 1);
            }
        }
        schema.PoolType = WINBIO_POOL_SYSTEM;
        schema.BiometricFactor = WINBIO_TYPE_FINGERPRINT;
        copyTruncated(fromUtf8(devices[i]), schema.DeviceInstanceId, 256);
        copyTruncated(u"fprintd fingerprint reader", schema.Description, 256);
        copyTruncated(u"fprintd", schema.Model, 256);
    }
    *count = devices.size();
    return S_OK;
}

HRESULT FprintdBackend::openSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE pool, WINBIO_SESSION_FLAGS,
                                    WINBIO_UNIT_ID*, SIZE_T, GUID*, WINBIO_SESSION_HANDLE* session) {
    if (const HRESULT hr = checkOpenSession(factor, pool, session); hr != S_OK) {
        return hr;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_devices.empty()) {
        return WINBIO_E_INVALID_UNIT;
    }
    *session = m_nextSession++;
    m_sessions.emplace(*session, Session{});
    return S_OK;
}

// Ends a verification or enrollment and releases the reader: on every way out, so that the reader is never
// left claimed. Failures are only logged: a daemon that is gone has released it already.
void FprintdBackend::stopOperation(WINBIO_UNIT_ID unit, bool verifying, bool enrolling) {
    if (unit == 0) {
        return;
    }
    const std::string path = devicePath(unit);
    if (verifying) {
        Variant(callDevice(path, "VerifyStop", nullptr).reply);
    }
    if (enrolling) {
        Variant(callDevice(path, "EnrollStop", nullptr).reply);
    }
}

// Release, retried while the daemon reports the reader busy (it is, around a suspend and resume, which the
// daemon handles on its own), so that the reader is not left claimed; bounded by kReleaseAttempts.
HRESULT FprintdBackend::releaseReader(WINBIO_UNIT_ID unit) {
    constexpr int kReleaseAttempts = 30;
    awaitResume();
    const std::string path = devicePath(unit);
    CallResult result;
    for (int attempt = 0; attempt < kReleaseAttempts; ++attempt) {
        result = callDevice(path, "Release", nullptr);
        Variant reply(result.reply);
        if (reply) {
            return S_OK;
        }
        if (result.errorName != "net.reactivated.Fprint.Error.Internal") {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return failure(Call::Other, "Release", result);
}

// While the machine prepares for sleep the daemon cannot close the reader: a Release then drops the claim
// but leaves the reader open, and after the resume nobody can claim it. So a release waits for the resume
// (bounded; never on the loop thread, which hears it). A frozen process's bound does not run out during
// the sleep itself: the steady clock stands still meanwhile.
void FprintdBackend::awaitResume() {
    constexpr auto kLongestSleepPreparation = std::chrono::seconds(10);
    if (std::this_thread::get_id() == m_thread.get_id()) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, kLongestSleepPreparation, [&] { return !m_sleeping; });
}

// polkit decides per action: a caller that may not verify (a session that is not active and local) cannot
// use the reader at all, so it is no unit, with a line that says why.
bool FprintdBackend::refusedByPolkit(const std::string& path) {
    WINBIO_IDENTITY owner = m_ownerIdentity;
    std::string user;
    if (!userNameOfIdentity(owner, user)) {
        return false;
    }
    const CallResult result = callMethod(m_bus, fprintd::kService, path.c_str(), fprintd::kDeviceInterface,
                                         "ListEnrolledFingers", g_variant_new("(s)", user.c_str()));
    Variant reply(result.reply);
    if (reply || fprintd::errorCode(Call::ListEnrolledFingers, result.errorName) != E_ACCESSDENIED) {
        return false;
    }
    failure(Call::ListEnrolledFingers, "ListEnrolledFingers", result);
    return true;
}

HRESULT FprintdBackend::closeSession(WINBIO_SESSION_HANDLE handle) {
    std::unique_lock<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session == nullptr) {
        return E_HANDLE;
    }
    session->closed = true;
    if (session->pending.kind != Pending::Kind::None) {
        session->cancelRequested = true;
        requestDelivery();
    }
    if (std::this_thread::get_id() != m_thread.get_id()) {
        m_changed.wait(lock, [&] { return !session->cancelRequested && !session->delivering; });
    }
    const WINBIO_UNIT_ID unit = session->claimedUnit;
    const bool verifying = session->verifying;
    const bool enrolling = session->enrolling;
    session->claimedUnit = 0;
    session->monitorClaim = false;
    session->verifying = false;
    session->enrolling = false;
    lock.unlock();
    if (unit != 0) {
        stopOperation(unit, verifying, enrolling);
        releaseReader(unit);
    }
    return S_OK;
}

HRESULT FprintdBackend::lockUnit(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Session* session = find(handle);
        if (session == nullptr) {
            return E_HANDLE;
        }
        if (unit < 1 || unit > m_devices.size()) {
            return WINBIO_E_INVALID_UNIT;
        }
        if (session->claimedUnit == unit) {
            return S_OK;
        }
    }
    // Claim("") claims the reader for the caller's own user, the process owner: fprintd then verifies
    // only that user's prints.
    const CallResult result = callDevice(devicePath(unit), "Claim", g_variant_new("(s)", ""));
    Variant reply(result.reply);
    if (!reply) {
        const HRESULT hr = failure(Call::Claim, "Claim", result);
        return hr == WINBIO_E_DEVICE_BUSY ? WINBIO_E_LOCK_VIOLATION : hr;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session == nullptr) {
        return E_HANDLE;
    }
    session->claimedUnit = unit;
    return S_OK;
}

HRESULT FprintdBackend::unlockUnit(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session == nullptr) {
        return E_HANDLE;
    }
    if (unit < 1 || unit > m_devices.size()) {
        return WINBIO_E_INVALID_UNIT;
    }
    if (session->claimedUnit != unit) {
        return WINBIO_E_INVALID_OPERATION;
    }
    const bool verifying = session->verifying;
    const bool enrolling = session->enrolling;
    session->claimedUnit = 0;
    session->verifying = false;
    session->enrolling = false;
    session->enrollBegun = false;
    session->monitorClaim = false;
    lock.unlock();
    stopOperation(unit, verifying, enrolling);
    return releaseReader(unit);
}

HRESULT FprintdBackend::armVerification(WINBIO_SESSION_HANDLE handle, bool hasCallback,
                                        const Pending& pending) {
    if (!hasCallback) {
        return E_POINTER;
    }
    WINBIO_UNIT_ID unit = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Session* session = find(handle);
        if (session == nullptr) {
            return E_HANDLE;
        }
        if (session->pending.kind == Pending::Kind::Monitor && pending.kind == Pending::Kind::Monitor) {
            return WINBIO_E_EVENT_MONITOR_ACTIVE;
        }
        if (session->pending.kind != Pending::Kind::None) {
            return WINBIO_E_SESSION_BUSY;
        }
        if (session->claimedUnit == 0) {
            return WINBIO_E_DEVICE_FAILURE;
        }
        unit = session->claimedUnit;
        // Armed before VerifyStart: its result may come before the call returns.
        session->pending = pending;
        session->cancelRequested = false;
        if (session->verifying) {
            // The daemon is still verifying from the previous sample; a result it gave meanwhile is
            // delivered now, on the loop thread.
            if (!session->queuedResult.empty()) {
                requestDelivery();
            }
            return S_OK;
        }
        session->verifying = true;
        session->queuedResult.clear();
    }
    const CallResult result = callDevice(devicePath(unit), "VerifyStart", g_variant_new("(s)", "any"));
    Variant reply(result.reply);
    if (reply) {
        return S_OK;
    }
    const HRESULT hr = failure(Call::VerifyStart, "VerifyStart", result);
    std::lock_guard<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session != nullptr && !session->delivering && !session->cancelRequested) {
        session->pending = Pending{};
        session->verifying = false;
    }
    m_changed.notify_all();
    return hr;
}

HRESULT FprintdBackend::wait(WINBIO_SESSION_HANDLE handle) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto found = m_sessions.find(handle);
    if (found == m_sessions.end() || found->second.closed) {
        return E_HANDLE;
    }
    Session& session = found->second;
    m_changed.wait(lock, [&] { return session.pending.kind == Pending::Kind::None && !session.delivering; });
    return S_OK;
}

HRESULT FprintdBackend::cancel(WINBIO_SESSION_HANDLE handle) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session == nullptr) {
        return E_HANDLE;
    }
    if (session->pending.kind != Pending::Kind::None && !session->cancelRequested) {
        session->cancelRequested = true;
        requestDelivery();
    }
    return S_OK;
}

// Needs m_mutex. The cancellations are delivered on the loop thread, never on the caller's.
void FprintdBackend::requestDelivery() {
    if (m_deliveryQueued) {
        return;
    }
    m_deliveryQueued = true;
    GSource* source = g_idle_source_new();
    g_source_set_callback(source, &onDeliveryRequested, this, nullptr);
    g_source_attach(source, m_context);
    g_source_unref(source);
}

HRESULT FprintdBackend::enrollBegin(WINBIO_SESSION_HANDLE handle, WINBIO_BIOMETRIC_SUBTYPE subFactor,
                                    WINBIO_UNIT_ID unit) {
    const HRESULT hr = lockUnit(handle, unit);
    if (hr < 0) {
        return hr == WINBIO_E_LOCK_VIOLATION ? WINBIO_E_ENROLLMENT_IN_PROGRESS : hr;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session == nullptr) {
        return E_HANDLE;
    }
    session->enrollBegun = true;
    session->enrollFinger = std::string(fprintd::fingerOfSubFactor(subFactor));
    return S_OK;
}

HRESULT FprintdBackend::enrollCaptureWithCallback(WINBIO_SESSION_HANDLE handle,
                                                  PWINBIO_ENROLL_CAPTURE_CALLBACK callback, void* context) {
    if (callback == nullptr) {
        return E_POINTER;
    }
    WINBIO_UNIT_ID unit = 0;
    std::string finger;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Session* session = find(handle);
        if (session == nullptr) {
            return E_HANDLE;
        }
        if (!session->enrollBegun) {
            return WINBIO_E_INVALID_OPERATION;
        }
        if (session->pending.kind != Pending::Kind::None) {
            return WINBIO_E_SESSION_BUSY;
        }
        session->pending.kind = Pending::Kind::Enroll;
        session->pending.enroll = callback;
        session->pending.context = context;
        session->cancelRequested = false;
        if (session->enrolling) {
            // The daemon's enrollment goes on: its next stage answers this sample.
            return S_OK;
        }
        session->enrolling = true;
        unit = session->claimedUnit;
        finger = session->enrollFinger;
    }
    const CallResult result =
        callDevice(devicePath(unit), "EnrollStart", g_variant_new("(s)", finger.c_str()));
    Variant reply(result.reply);
    if (reply) {
        return S_OK;
    }
    const HRESULT hr = failure(Call::EnrollStart, "EnrollStart", result);
    std::lock_guard<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session != nullptr && !session->delivering && !session->cancelRequested) {
        session->pending = Pending{};
        session->enrolling = false;
    }
    m_changed.notify_all();
    return hr;
}

HRESULT FprintdBackend::enrollDiscard(WINBIO_SESSION_HANDLE handle) {
    std::unique_lock<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session == nullptr) {
        return E_HANDLE;
    }
    const bool enrolling = session->enrolling;
    const WINBIO_UNIT_ID unit = session->claimedUnit;
    session->enrolling = false;
    session->enrollBegun = false;
    lock.unlock();
    if (enrolling) {
        stopOperation(unit, false, true);
    }
    return S_OK;
}

HRESULT FprintdBackend::enumEnrollments(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit,
                                        WINBIO_IDENTITY* identity, WINBIO_BIOMETRIC_SUBTYPE** subFactors,
                                        SIZE_T* count) {
    if (identity == nullptr || subFactors == nullptr || count == nullptr) {
        return E_POINTER;
    }
    *subFactors = nullptr;
    *count = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (find(handle) == nullptr) {
            return E_HANDLE;
        }
        if (unit < 1 || unit > m_devices.size()) {
            return WINBIO_E_INVALID_UNIT;
        }
    }
    std::string user;
    if (!userNameOfIdentity(*identity, user)) {
        return E_INVALIDARG;
    }
    const CallResult result =
        callDevice(devicePath(unit), "ListEnrolledFingers", g_variant_new("(s)", user.c_str()));
    Variant reply(result.reply);
    if (!reply) {
        const HRESULT hr = fprintd::errorCode(Call::ListEnrolledFingers, result.errorName);
        return hr == WINBIO_E_DATABASE_NO_RESULTS
                   ? S_OK
                   : failure(Call::ListEnrolledFingers, "ListEnrolledFingers", result);
    }
    std::vector<WINBIO_BIOMETRIC_SUBTYPE> fingers;
    if (fprintd::hasType(reply.get(), "(as)")) {
        GVariantIter* iter = nullptr;
        g_variant_get(reply.get(), "(as)", &iter);
        const gchar* finger = nullptr;
        while (g_variant_iter_next(iter, "&s", &finger) != FALSE) {
            fingers.push_back(fprintd::subFactorOfFinger(finger));
        }
        g_variant_iter_free(iter);
    }
    if (fingers.empty()) {
        return S_OK;
    }
    *subFactors = static_cast<WINBIO_BIOMETRIC_SUBTYPE*>(std::malloc(fingers.size()));
    if (*subFactors == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(*subFactors, fingers.data(), fingers.size());
    *count = fingers.size();
    return S_OK;
}

// The framework's event monitor needs no locked unit, but fprintd verifies only for the client that claimed
// the reader: a session without a claim claims its first unit for the monitor.
HRESULT FprintdBackend::claimForMonitor(WINBIO_SESSION_HANDLE handle) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Session* session = find(handle);
        if (session == nullptr) {
            return E_HANDLE;
        }
        if (session->claimedUnit != 0 || session->pending.kind != Pending::Kind::None) {
            return S_OK;
        }
    }
    const WINBIO_UNIT_ID firstUnit = 1;
    const HRESULT hr = lockUnit(handle, firstUnit);
    if (hr < 0) {
        return hr;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session != nullptr) {
        session->monitorClaim = true;
    }
    return S_OK;
}

// Stops the monitor's verification and gives back a claim the monitor made itself, also after a cancel
// has already ended the monitor.
HRESULT FprintdBackend::unregisterEventMonitor(WINBIO_SESSION_HANDLE handle) {
    std::unique_lock<std::mutex> lock(m_mutex);
    Session* session = find(handle);
    if (session == nullptr) {
        return E_HANDLE;
    }
    const bool monitoring = session->pending.kind == Pending::Kind::Monitor;
    const bool releases =
        session->monitorClaim && (monitoring || session->pending.kind == Pending::Kind::None);
    if (!monitoring && !releases) {
        return S_OK;
    }
    if (monitoring) {
        session->pending = Pending{};
        session->cancelRequested = false;
    }
    const bool verifying = session->verifying;
    session->verifying = false;
    session->queuedResult.clear();
    const WINBIO_UNIT_ID unit = session->claimedUnit;
    if (releases) {
        session->claimedUnit = 0;
        session->monitorClaim = false;
    }
    m_changed.notify_all();
    lock.unlock();
    stopOperation(unit, verifying, false);
    if (releases && unit != 0) {
        return releaseReader(unit);
    }
    return S_OK;
}

std::uint64_t FprintdBackend::subscribeWindowEvents(sensor::WindowEventProc proc, void* context) {
    if (proc == nullptr) {
        return 0;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::uint64_t id = m_nextSubscriber++;
    m_subscribers.emplace(id, Subscriber{proc, context});
    return id;
}

void FprintdBackend::unsubscribeWindowEvents(std::uint64_t id) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_subscribers.erase(id);
    }
    // Waits for a delivery in progress (re-entrant for a call from inside the subscriber itself).
    std::lock_guard<std::recursive_mutex> delivery(m_subscriberDelivery);
}

// ---- The loop thread ----

void FprintdBackend::onSignal(GDBusConnection*, const gchar*, const gchar* path, const gchar*,
                              const gchar* signal, GVariant* parameters, gpointer self) {
    auto* backend = static_cast<FprintdBackend*>(self);
    const std::string_view name(signal);
    if (name == "VerifyStatus" || name == "EnrollStatus") {
        if (!fprintd::hasType(parameters, "(sb)")) {
            return;
        }
        const gchar* result = nullptr;
        gboolean done = FALSE;
        g_variant_get(parameters, "(&sb)", &result, &done);
        if (name == "VerifyStatus") {
            backend->handleVerifyStatus(path, result, done != FALSE);
        } else {
            backend->handleEnrollStatus(path, result);
        }
    } else if (name == "NameOwnerChanged") {
        // The daemon gone, or restarted under a new owner, forgets every claim; its first start does not.
        const gchar* service = nullptr;
        const gchar* oldOwner = nullptr;
        const gchar* newOwner = nullptr;
        if (fprintd::hasType(parameters, "(sss)")) {
            g_variant_get(parameters, "(&s&s&s)", &service, &oldOwner, &newOwner);
            if (*oldOwner != '\0') {
                backend->handleDaemonGone();
            }
        }
    } else if (name == "PrepareForSleep") {
        gboolean start = FALSE;
        if (fprintd::hasType(parameters, "(b)")) {
            g_variant_get(parameters, "(b)", &start);
            {
                std::lock_guard<std::mutex> lock(backend->m_mutex);
                backend->m_sleeping = start != FALSE;
            }
            backend->m_changed.notify_all();
            backend->notifySubscribers(WM_POWERBROADCAST, start != FALSE ? kPowerSuspend : kPowerResume);
        }
    } else if (name == "Lock" && !backend->m_loginSessionPath.empty() &&
               backend->m_loginSessionPath == path) {
        backend->notifySubscribers(WM_WTSSESSION_CHANGE, kSessionLock);
    }
}

gboolean FprintdBackend::onDeliveryRequested(gpointer self) {
    static_cast<FprintdBackend*>(self)->deliverCancellations();
    return G_SOURCE_REMOVE;
}

void FprintdBackend::handleVerifyStatus(const std::string& path, const char* result, bool done) {
    WINBIO_SESSION_HANDLE target = 0;
    bool keep = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& [handle, session] : m_sessions) {
            const bool ours = session.claimedUnit != 0 && session.verifying && !session.cancelRequested &&
                              session.claimedUnit <= m_devices.size() &&
                              m_devices[session.claimedUnit - 1] == path;
            if (ours && session.pending.kind == Pending::Kind::None) {
                session.queuedResult = result;
                session.queuedDone = done;
                return;
            }
            if (ours && (session.pending.kind == Pending::Kind::Identify ||
                         session.pending.kind == Pending::Kind::Monitor)) {
                target = handle;
                keep = session.pending.kind == Pending::Kind::Monitor;
                break;
            }
        }
    }
    if (target == 0) {
        return;
    }
    const fprintd::StatusOutcome outcome = fprintd::verifyOutcome(result);
    Sample sample;
    sample.status = outcome.status;
    sample.rejectDetail = outcome.rejectDetail;
    // fprintd verifies only the prints of the user who claimed the reader, the process owner (Claim("")):
    // a match is that owner's finger by construction.
    sample.identified = outcome.status == S_OK;
    // A final result (done) ends the daemon's verification: it is stopped here, and the next armed sample
    // starts a new one, as the framework's own loop would, so a no-match leaves the wait going on. A retry
    // result leaves the daemon verifying, and that verification answers the next armed sample.
    const bool ends = done || fprintd::endsVerification(result);
    WINBIO_UNIT_ID unit = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Session& session = m_sessions[target];
        unit = session.claimedUnit;
        session.verifying = session.verifying && !ends;
    }
    if (ends) {
        stopOperation(unit, true, false);
    }
    deliver(target, sample, keep);
    if (keep && ends && outcome.status != WINBIO_E_DEVICE_FAILURE) {
        std::unique_lock<std::mutex> lock(m_mutex);
        Session& session = m_sessions[target];
        if (session.pending.kind == Pending::Kind::Monitor && !session.cancelRequested && !session.closed) {
            session.verifying = true;
            lock.unlock();
            Variant(callDevice(devicePath(unit), "VerifyStart", g_variant_new("(s)", "any")).reply);
        }
    }
}

void FprintdBackend::handleEnrollStatus(const std::string& path, const char* result) {
    WINBIO_SESSION_HANDLE target = 0;
    WINBIO_UNIT_ID unit = 0;
    const fprintd::StatusOutcome outcome = fprintd::enrollOutcome(result);
    const bool goesOn = outcome.status == WINBIO_I_MORE_DATA || outcome.status == WINBIO_E_BAD_CAPTURE;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& [handle, session] : m_sessions) {
            if (session.enrolling && !session.cancelRequested &&
                session.pending.kind == Pending::Kind::Enroll && session.claimedUnit <= m_devices.size() &&
                session.claimedUnit != 0 && m_devices[session.claimedUnit - 1] == path) {
                target = handle;
                unit = session.claimedUnit;
                session.enrolling = goesOn;
                break;
            }
        }
    }
    if (target == 0) {
        return;
    }
    if (!goesOn) {
        stopOperation(unit, false, true);
    }
    Sample sample;
    sample.status = outcome.status;
    sample.rejectDetail = outcome.rejectDetail;
    deliver(target, sample, false);
}

void FprintdBackend::handleDaemonGone() {
    std::vector<WINBIO_SESSION_HANDLE> failed;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& [handle, session] : m_sessions) {
            session.claimedUnit = 0;
            session.monitorClaim = false;
            session.verifying = false;
            session.enrolling = false;
            session.enrollBegun = false;
            session.queuedResult.clear();
            if (session.pending.kind != Pending::Kind::None && !session.cancelRequested) {
                failed.push_back(handle);
            }
        }
        // Device objects of a restarted daemon are new: the next enumeration numbers them afresh.
        m_devices.clear();
    }
    std::fprintf(stderr, "fprintd: the daemon left the bus; the reader is gone.\n");
    Sample sample;
    sample.status = WINBIO_E_DEVICE_FAILURE;
    for (WINBIO_SESSION_HANDLE handle : failed) {
        deliver(handle, sample, false);
    }
}

void FprintdBackend::deliverCancellations() {
    std::vector<std::pair<WINBIO_SESSION_HANDLE, Session>> cancelled;
    std::vector<std::pair<std::string, Session>> queued;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_deliveryQueued = false;
        for (auto& [handle, session] : m_sessions) {
            if (!session.cancelRequested && !session.queuedResult.empty() &&
                session.pending.kind != Pending::Kind::None && session.claimedUnit != 0 &&
                session.claimedUnit <= m_devices.size()) {
                queued.emplace_back(m_devices[session.claimedUnit - 1], session);
                session.queuedResult.clear();
            }
            if (session.cancelRequested) {
                session.queuedResult.clear();
                cancelled.emplace_back(handle, session);
                session.verifying = false;
                session.enrolling = false;
            }
        }
    }
    for (const auto& [path, before] : queued) {
        handleVerifyStatus(path, before.queuedResult.c_str(), before.queuedDone);
    }
    for (const auto& [handle, before] : cancelled) {
        stopOperation(before.claimedUnit, before.verifying, before.enrolling);
        Sample sample;
        sample.status = WINBIO_E_CANCELED;
        deliver(handle, sample, false);
    }
}

// Runs the session's armed callback once with `sample`; `keepPending` leaves an event monitor armed.
void FprintdBackend::deliver(WINBIO_SESSION_HANDLE handle, const Sample& sample, bool keepPending) {
    Pending pending;
    WINBIO_UNIT_ID unit = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Session& session = m_sessions[handle];
        pending = session.pending;
        const bool cancelled = sample.status == WINBIO_E_CANCELED;
        if (!keepPending || cancelled) {
            session.pending = Pending{};
        }
        if (cancelled) {
            session.cancelRequested = false;
        }
        session.delivering = true;
        unit = session.claimedUnit;
    }
    Result result;
    result.status = sample.status;
    result.rejectDetail = sample.rejectDetail;
    if (sample.identified) {
        // fprintd verifies only the claiming user's prints: a match is the process owner by construction.
        result.identity = m_ownerIdentity;
        result.subFactor = WINBIO_SUBTYPE_ANY;
    }
    deliverResult(pending, result, unit);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sessions[handle].delivering = false;
    m_changed.notify_all();
}

void FprintdBackend::notifySubscribers(UINT message, WPARAM code) {
    std::vector<std::uint64_t> ids;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& entry : m_subscribers) {
            ids.push_back(entry.first);
        }
    }
    std::lock_guard<std::recursive_mutex> delivery(m_subscriberDelivery);
    for (std::uint64_t id : ids) {
        std::unique_lock<std::mutex> check(m_mutex);
        const auto found = m_subscribers.find(id);
        if (found == m_subscribers.end()) {
            continue;
        }
        const Subscriber subscriber = found->second;
        check.unlock();
        subscriber.proc(subscriber.context, message, code);
    }
}

}  // namespace

bool fprintdBackendBuiltIn() {
    return true;
}

std::unique_ptr<Backend> makeFprintdBackend() {
    return std::make_unique<FprintdBackend>();
}

}  // namespace plat::winbio
