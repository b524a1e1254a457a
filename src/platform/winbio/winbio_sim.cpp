// The simulated sensor (VELQ_WINBIO=sim). Its own thread plays the timeline of the script: a touch goes
// to a session that has a sample armed and a caller in WinBioWait, as the framework's callback thread
// would deliver it; window statements go to the subscribed wait windows; a pause holds the timeline
// back. Cancellations are delivered on the same thread, before anything of the timeline.
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "plat/messages.h"
#include "plat/strings.h"
#include "winbio/backend.h"
#include "winbio/pending.h"

namespace plat::winbio {

namespace {

using Clock = std::chrono::steady_clock;

struct Session {
    Pending pending;
    bool cancelRequested = false;
    bool delivering = false;
    int waiters = 0;
    bool enrolling = false;
    bool closed = false;
    WINBIO_UNIT_ID lockedUnit = 0;
};

bool identityOfSidText(const std::string& text, WINBIO_IDENTITY& identity) {
    PSID sid = nullptr;
    const std::u16string wide = fromUtf8(text);
    if (ConvertStringSidToSidW(wide.c_str(), &sid) == FALSE) {
        return false;
    }
    identity.Type = WINBIO_ID_TYPE_SID;
    identity.Value.AccountSid.Size = GetLengthSid(sid);
    std::memcpy(identity.Value.AccountSid.Data, sid, identity.Value.AccountSid.Size);
    LocalFree(sid);
    return true;
}

class SimBackend final : public Backend {
public:
    explicit SimBackend(const SimScript& script)
        : m_script(script), m_selfSid(toUtf8(processOwnerSidText())), m_thread([this] { run(); }) {
        std::fprintf(stderr, "%.*s\n", static_cast<int>(kSimWarning.size()), kSimWarning.data());
    }

    ~SimBackend() override {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

    HRESULT getEnabledSetting(BOOLEAN* value, WINBIO_SETTING_SOURCE_TYPE* source) override {
        if (value == nullptr || source == nullptr) {
            return E_POINTER;
        }
        HRESULT hr = S_OK;
        const bool failed = failing("WinBioGetEnabledSetting", hr);
        *value = !failed && m_script.enabled ? 1 : 0;
        *source = failed ? WINBIO_SETTING_SOURCE_INVALID : WINBIO_SETTING_SOURCE_DEFAULT;
        return hr;
    }

    HRESULT enumBiometricUnits(WINBIO_BIOMETRIC_TYPE factor, WINBIO_UNIT_SCHEMA** units,
                               SIZE_T* count) override {
        HRESULT hr = S_OK;
        if (failing("WinBioEnumBiometricUnits", hr)) {
            return hr;
        }
        if (units == nullptr || count == nullptr) {
            return E_POINTER;
        }
        *units = nullptr;
        *count = 0;
        if ((factor & WINBIO_TYPE_FINGERPRINT) == 0) {
            return WINBIO_E_UNSUPPORTED_FACTOR;
        }
        if (m_script.units == 0) {
            return S_OK;
        }
        *units = static_cast<WINBIO_UNIT_SCHEMA*>(std::calloc(m_script.units, sizeof(WINBIO_UNIT_SCHEMA)));
        if (*units == nullptr) {
            return E_OUTOFMEMORY;
        }
        for (unsigned i = 0; i < m_script.units; ++i) {
            describeUnit(i + 1, (*units)[i]);
        }
        *count = m_script.units;
        return S_OK;
    }

    HRESULT openSession(WINBIO_BIOMETRIC_TYPE factor, WINBIO_POOL_TYPE pool, WINBIO_SESSION_FLAGS,
                        WINBIO_UNIT_ID*, SIZE_T, GUID*, WINBIO_SESSION_HANDLE* session) override {
        HRESULT hr = S_OK;
        if (failing("WinBioOpenSession", hr)) {
            return hr;
        }
        hr = checkOpenSession(factor, pool, session);
        if (hr != S_OK) {
            return hr;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        *session = m_nextSession++;
        m_sessions.emplace(*session, Session{});
        return S_OK;
    }

    // Also waits until the session's last callback has returned (unless called from inside one), so
    // that the caller may free the callbacks' context at once.
    HRESULT closeSession(WINBIO_SESSION_HANDLE handle) override {
        HRESULT hr = S_OK;
        if (failing("WinBioCloseSession", hr)) {
            return hr;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        Session* session = find(handle);
        if (session == nullptr) {
            return E_HANDLE;
        }
        session->closed = true;
        session->cancelRequested = session->pending.kind != Pending::Kind::None;
        session->enrolling = false;
        releaseUnit(handle, *session);
        m_changed.notify_all();
        if (std::this_thread::get_id() != m_thread.get_id()) {
            m_changed.wait(lock,
                           [&] { return m_stop || (!session->cancelRequested && !session->delivering); });
        }
        return S_OK;
    }

    HRESULT lockUnit(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit) override {
        return withSession("WinBioLockUnit", handle, [&](Session& session) {
            if (!isUnit(unit)) {
                return WINBIO_E_INVALID_UNIT;
            }
            const auto holder = m_unitHolders.find(unit);
            if (holder != m_unitHolders.end() && holder->second != handle) {
                return WINBIO_E_LOCK_VIOLATION;
            }
            m_unitHolders[unit] = handle;
            session.lockedUnit = unit;
            return S_OK;
        });
    }

    HRESULT unlockUnit(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit) override {
        return withSession("WinBioUnlockUnit", handle, [&](Session& session) {
            if (!isUnit(unit)) {
                return WINBIO_E_INVALID_UNIT;
            }
            if (session.lockedUnit != unit) {
                return WINBIO_E_INVALID_OPERATION;
            }
            releaseUnit(handle, session);
            return S_OK;
        });
    }

    HRESULT identifyWithCallback(WINBIO_SESSION_HANDLE handle, PWINBIO_IDENTIFY_CALLBACK callback,
                                 void* context) override {
        Pending pending;
        pending.kind = Pending::Kind::Identify;
        pending.identify = callback;
        pending.context = context;
        return arm("WinBioIdentifyWithCallback", handle, callback != nullptr, pending);
    }

    HRESULT wait(WINBIO_SESSION_HANDLE handle) override {
        HRESULT hr = S_OK;
        if (failing("WinBioWait", hr)) {
            return hr;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        Session* session = find(handle);
        if (session == nullptr) {
            return E_HANDLE;
        }
        ++session->waiters;
        m_changed.notify_all();
        m_changed.wait(lock, [&] {
            return m_stop || (session->pending.kind == Pending::Kind::None && !session->delivering);
        });
        --session->waiters;
        return m_stop ? WINBIO_E_CANCELED : S_OK;
    }

    HRESULT cancel(WINBIO_SESSION_HANDLE handle) override {
        return withSession("WinBioCancel", handle, [&](Session& session) {
            session.cancelRequested = session.pending.kind != Pending::Kind::None;
            return S_OK;
        });
    }

    HRESULT free(void* address) override {
        HRESULT hr = S_OK;
        if (failing("WinBioFree", hr)) {
            return hr;
        }
        if (address == nullptr) {
            return E_POINTER;
        }
        std::free(address);
        return S_OK;
    }

    HRESULT enrollBegin(WINBIO_SESSION_HANDLE handle, WINBIO_BIOMETRIC_SUBTYPE,
                        WINBIO_UNIT_ID unit) override {
        return withSession("WinBioEnrollBegin", handle, [&](Session& session) {
            if (m_script.enrolling) {
                return WINBIO_E_ENROLLMENT_IN_PROGRESS;
            }
            if (!isUnit(unit)) {
                return WINBIO_E_INVALID_UNIT;
            }
            session.enrolling = true;
            return S_OK;
        });
    }

    HRESULT enrollCaptureWithCallback(WINBIO_SESSION_HANDLE handle, PWINBIO_ENROLL_CAPTURE_CALLBACK callback,
                                      void* context) override {
        Pending pending;
        pending.kind = Pending::Kind::Enroll;
        pending.enroll = callback;
        pending.context = context;
        return arm("WinBioEnrollCaptureWithCallback", handle, callback != nullptr, pending);
    }

    HRESULT enrollDiscard(WINBIO_SESSION_HANDLE handle) override {
        return withSession("WinBioEnrollDiscard", handle, [&](Session& session) {
            session.enrolling = false;
            return S_OK;
        });
    }

    HRESULT enumEnrollments(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit, WINBIO_IDENTITY* identity,
                            WINBIO_BIOMETRIC_SUBTYPE** subFactors, SIZE_T* count) override;

    HRESULT registerEventMonitor(WINBIO_SESSION_HANDLE handle, WINBIO_EVENT_TYPE,
                                 PWINBIO_EVENT_CALLBACK callback, void* context) override {
        Pending pending;
        pending.kind = Pending::Kind::Monitor;
        pending.event = callback;
        pending.context = context;
        return arm("WinBioRegisterEventMonitor", handle, callback != nullptr, pending);
    }

    HRESULT unregisterEventMonitor(WINBIO_SESSION_HANDLE handle) override {
        return withSession("WinBioUnregisterEventMonitor", handle, [&](Session& session) {
            if (session.pending.kind == Pending::Kind::Monitor) {
                session.pending = Pending{};
                session.cancelRequested = false;
            }
            return S_OK;
        });
    }

    std::uint64_t subscribeWindowEvents(sensor::WindowEventProc proc, void* context) override {
        if (proc == nullptr) {
            return 0;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        const std::uint64_t id = m_nextSubscriber++;
        m_subscribers.emplace(id, Subscriber{proc, context});
        m_changed.notify_all();
        return id;
    }

    void unsubscribeWindowEvents(std::uint64_t id) override {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_subscribers.erase(id);
        }
        // Waits for a delivery in progress (re-entrant for a call from inside the subscriber itself).
        std::lock_guard<std::recursive_mutex> delivery(m_deliveryMutex);
    }

private:
    bool failing(const char* name, HRESULT& hr) const {
        const auto found = m_script.failures.find(name);
        if (found == m_script.failures.end()) {
            return false;
        }
        hr = found->second;
        return true;
    }

    bool isUnit(WINBIO_UNIT_ID unit) const { return unit >= 1 && unit <= m_script.units; }

    void describeUnit(WINBIO_UNIT_ID unit, WINBIO_UNIT_SCHEMA& schema) const {
        schema.UnitId = unit;
        schema.PoolType = WINBIO_POOL_SYSTEM;
        schema.BiometricFactor = WINBIO_TYPE_FINGERPRINT;
        copyTruncated(u"VELQ simulated fingerprint sensor", schema.Description, 256);
        copyTruncated(u"VELQ", schema.Manufacturer, 256);
        copyTruncated(u"sim", schema.Model, 256);
        copyTruncated(fromUtf8("sim-" + std::to_string(unit)), schema.DeviceInstanceId, 256);
    }

    // A session that is open; null for an unknown or closed handle. Needs m_mutex.
    Session* find(WINBIO_SESSION_HANDLE handle) {
        const auto found = m_sessions.find(handle);
        return found == m_sessions.end() || found->second.closed ? nullptr : &found->second;
    }

    template <typename Action>
    HRESULT withSession(const char* name, WINBIO_SESSION_HANDLE handle, Action action) {
        HRESULT hr = S_OK;
        if (failing(name, hr)) {
            return hr;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        Session* session = find(handle);
        if (session == nullptr) {
            return E_HANDLE;
        }
        hr = action(*session);
        m_changed.notify_all();
        return hr;
    }

    HRESULT arm(const char* name, WINBIO_SESSION_HANDLE handle, bool hasCallback, const Pending& pending) {
        HRESULT hr = S_OK;
        if (failing(name, hr)) {
            return hr;
        }
        if (!hasCallback) {
            return E_POINTER;
        }
        return withSession(name, handle, [&](Session& session) {
            if (session.pending.kind == Pending::Kind::Monitor && pending.kind == Pending::Kind::Monitor) {
                return WINBIO_E_EVENT_MONITOR_ACTIVE;
            }
            if (session.pending.kind != Pending::Kind::None) {
                return WINBIO_E_SESSION_BUSY;
            }
            if (pending.kind == Pending::Kind::Enroll && !session.enrolling) {
                return WINBIO_E_INVALID_OPERATION;
            }
            session.pending = pending;
            session.cancelRequested = false;
            return S_OK;
        });
    }

    void releaseUnit(WINBIO_SESSION_HANDLE handle, Session& session) {
        const auto holder = m_unitHolders.find(session.lockedUnit);
        if (holder != m_unitHolders.end() && holder->second == handle) {
            m_unitHolders.erase(holder);
        }
        session.lockedUnit = 0;
    }

    WINBIO_UNIT_ID unitOf(const Session& session) const {
        return session.lockedUnit != 0 ? session.lockedUnit : m_script.units;
    }

    Result sampleOf(const SimStep& step) const {
        Result sample;
        sample.status = step.status;
        if (step.status == S_OK) {
            identityOfSidText(step.sid == kSelfSid ? m_selfSid : step.sid, sample.identity);
            sample.subFactor = WINBIO_ANSI_381_POS_RH_INDEX_FINGER;
        } else if (step.status == WINBIO_E_BAD_CAPTURE) {
            sample.rejectDetail = WINBIO_FP_POOR_QUALITY;
        }
        return sample;
    }

    // The thread's steps; each needs m_mutex held through `lock` and gives true when it did something.
    bool deliverCancellation(std::unique_lock<std::mutex>& lock);
    bool playTimeline(std::unique_lock<std::mutex>& lock);
    bool deliverTouch(std::unique_lock<std::mutex>& lock, const SimStep& step);
    bool deliverWindowEvent(std::unique_lock<std::mutex>& lock, const SimStep& step);
    Session* sessionWaitingForSample();
    void run();

    const SimScript m_script;
    const std::string m_selfSid;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_stop = false;
    std::map<WINBIO_SESSION_HANDLE, Session> m_sessions;
    WINBIO_SESSION_HANDLE m_nextSession = 1;
    std::map<WINBIO_UNIT_ID, WINBIO_SESSION_HANDLE> m_unitHolders;
    std::map<std::uint64_t, Subscriber> m_subscribers;
    std::uint64_t m_nextSubscriber = 1;
    std::size_t m_cursor = 0;
    Clock::time_point m_pauseUntil{};
    // Held while subscribers run, so that unsubscribing can wait for them.
    std::recursive_mutex m_deliveryMutex;

    // Last: it starts at once and uses everything above.
    std::thread m_thread;
};

HRESULT SimBackend::enumEnrollments(WINBIO_SESSION_HANDLE handle, WINBIO_UNIT_ID unit,
                                    WINBIO_IDENTITY* identity, WINBIO_BIOMETRIC_SUBTYPE** subFactors,
                                    SIZE_T* count) {
    return withSession("WinBioEnumEnrollments", handle, [&](Session&) {
        if (subFactors == nullptr || count == nullptr || identity == nullptr) {
            return E_POINTER;
        }
        *subFactors = nullptr;
        *count = 0;
        if (m_script.enrolling) {
            return WINBIO_E_ENROLLMENT_IN_PROGRESS;
        }
        if (!isUnit(unit)) {
            return WINBIO_E_INVALID_UNIT;
        }
        LPWSTR text = nullptr;
        if (identity->Type != WINBIO_ID_TYPE_SID ||
            ConvertSidToStringSidW(identity->Value.AccountSid.Data, &text) == FALSE) {
            return E_INVALIDARG;
        }
        const std::string sid = toUtf8(text);
        LocalFree(text);
        unsigned templates = 0;
        for (const auto& [who, number] : m_script.enrolled) {
            if ((who == kSelfSid ? m_selfSid : who) == sid) {
                templates = number;
            }
        }
        if (templates == 0) {
            return S_OK;
        }
        *subFactors = static_cast<WINBIO_BIOMETRIC_SUBTYPE*>(std::malloc(templates));
        if (*subFactors == nullptr) {
            return E_OUTOFMEMORY;
        }
        for (unsigned i = 0; i < templates; ++i) {
            (*subFactors)[i] = static_cast<WINBIO_BIOMETRIC_SUBTYPE>(i + 1);
        }
        *count = templates;
        return S_OK;
    });
}

bool SimBackend::deliverCancellation(std::unique_lock<std::mutex>& lock) {
    for (auto& [handle, session] : m_sessions) {
        if (!session.cancelRequested) {
            continue;
        }
        const Pending pending = session.pending;
        session.pending = Pending{};
        session.cancelRequested = false;
        session.delivering = true;
        const WINBIO_UNIT_ID unit = unitOf(session);
        lock.unlock();
        Result cancelled;
        cancelled.status = WINBIO_E_CANCELED;
        deliverResult(pending, cancelled, unit);
        lock.lock();
        session.delivering = false;
        m_changed.notify_all();
        return true;
    }
    return false;
}

Session* SimBackend::sessionWaitingForSample() {
    for (auto& [handle, session] : m_sessions) {
        if (!session.closed && session.pending.kind != Pending::Kind::None && !session.cancelRequested &&
            session.waiters > 0) {
            return &session;
        }
    }
    return nullptr;
}

bool SimBackend::deliverTouch(std::unique_lock<std::mutex>& lock, const SimStep& step) {
    Session* session = sessionWaitingForSample();
    if (session == nullptr) {
        return false;
    }
    ++m_cursor;
    const Pending pending = session->pending;
    if (pending.kind != Pending::Kind::Monitor) {
        session->pending = Pending{};
    }
    session->delivering = true;
    const WINBIO_UNIT_ID unit = unitOf(*session);
    lock.unlock();
    deliverResult(pending, sampleOf(step), unit);
    lock.lock();
    session->delivering = false;
    m_changed.notify_all();
    return true;
}

bool SimBackend::deliverWindowEvent(std::unique_lock<std::mutex>& lock, const SimStep& step) {
    if (m_subscribers.empty()) {
        return false;
    }
    ++m_cursor;
    const UINT message = step.kind == SimStep::Kind::CloseWindow ? WM_CLOSE
                         : step.kind == SimStep::Kind::Session   ? WM_WTSSESSION_CHANGE
                                                                 : WM_POWERBROADCAST;
    std::vector<std::uint64_t> ids;
    for (const auto& entry : m_subscribers) {
        ids.push_back(entry.first);
    }
    lock.unlock();
    {
        std::lock_guard<std::recursive_mutex> delivery(m_deliveryMutex);
        for (std::uint64_t id : ids) {
            std::unique_lock<std::mutex> check(m_mutex);
            const auto found = m_subscribers.find(id);
            if (found == m_subscribers.end()) {
                continue;
            }
            const Subscriber subscriber = found->second;
            check.unlock();
            subscriber.proc(subscriber.context, message, static_cast<WPARAM>(step.value));
        }
    }
    lock.lock();
    return true;
}

bool SimBackend::playTimeline(std::unique_lock<std::mutex>& lock) {
    if (m_cursor >= m_script.timeline.size() || Clock::now() < m_pauseUntil) {
        return false;
    }
    const SimStep& step = m_script.timeline[m_cursor];
    switch (step.kind) {
        case SimStep::Kind::Touch:
            return deliverTouch(lock, step);
        case SimStep::Kind::Pause:
            if (sessionWaitingForSample() == nullptr && m_subscribers.empty()) {
                return false;
            }
            ++m_cursor;
            m_pauseUntil = Clock::now() + std::chrono::milliseconds(step.value);
            return true;
        case SimStep::Kind::CloseWindow:
        case SimStep::Kind::Session:
        case SimStep::Kind::Power:
            return deliverWindowEvent(lock, step);
    }
    return false;
}

void SimBackend::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        if (deliverCancellation(lock) || playTimeline(lock)) {
            continue;
        }
        if (Clock::now() < m_pauseUntil) {
            m_changed.wait_until(lock, m_pauseUntil);
        } else {
            m_changed.wait(lock);
        }
    }
}

}  // namespace

bool simBackendBuiltIn() {
    return true;
}

std::unique_ptr<Backend> makeSimBackend(const SimScript& script, std::string& error) {
    error.clear();
    return std::make_unique<SimBackend>(script);
}

}  // namespace plat::winbio
