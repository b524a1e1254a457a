// velq collect: invocations of one verb started in the same short moment become one request (collect.h).
#include "collect.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "plat/errors.h"
#include "plat/handle.h"
#include "plat/named.h"
#include "plat/strings.h"
#include "plat/sync.h"

namespace velq {
namespace {

constexpr int kWrongUse = 2;
constexpr unsigned kDefaultQuietMs = 700;
constexpr unsigned kMaxQuietMs = 60000;
constexpr unsigned kQuietMomentsAtMost = 20;

// The list: a header, then the paths in UTF-16, each closed by a NUL. 256 KiB hold the 100 items that
// Explorer offers a Player verb at their longest usual length several times over.
constexpr std::size_t kListBytes = 256 * 1024;
struct ListHeader {
    std::uint32_t count;
    std::uint32_t units;
};
constexpr std::size_t kListCapacityUnits = (kListBytes - sizeof(ListHeader)) / sizeof(char16_t);

// The absolute, normal form of `given`, through UTF-16 so that no code page stands in between.
std::string absolutePath(const std::string& given) {
    std::error_code error;
    const std::filesystem::path path =
        std::filesystem::absolute(std::filesystem::path(plat::fromUtf8(given)), error).lexically_normal();
    return error ? given : plat::toUtf8(path.u16string());
}

// The handles of one invocation's meeting with the others, closed by the destructor in the order that
// leaves no list without its event: view, list, event, then the mutex (released first when held).
class Meeting {
public:
    explicit Meeting(const std::string& verb) : m_stem(plat::fromUtf8("velq-collect-" + verb)) {}
    ~Meeting() { leave(); }
    Meeting(const Meeting&) = delete;
    Meeting& operator=(const Meeting&) = delete;

    // Takes the mutex, opens the event and the list (making both when nobody holds them). false when one of
    // them cannot be had; bFirst tells whether this invocation made the list.
    bool enter(bool& bFirst) {
        m_hLock = plat::CreateMutexW(nullptr, plat::FALSE, (m_stem + u"-lock").c_str());
        if (m_hLock == nullptr) {
            return false;
        }
        const plat::DWORD waited = plat::WaitForSingleObject(m_hLock, plat::INFINITE);
        if (waited != plat::WAIT_OBJECT_0 && waited != plat::WAIT_ABANDONED_0) {
            return false;
        }
        m_bLocked = true;
        m_hArrived = plat::CreateEventW(nullptr, plat::FALSE, plat::FALSE, (m_stem + u"-arrived").c_str());
        if (m_hArrived == nullptr) {
            return false;
        }
        m_hList = plat::CreateFileMappingW(plat::INVALID_HANDLE_VALUE, nullptr, plat::PAGE_READWRITE, 0,
                                           static_cast<plat::DWORD>(kListBytes), (m_stem + u"-list").c_str());
        if (m_hList == nullptr) {
            return false;
        }
        bFirst = plat::GetLastError() != plat::ERROR_ALREADY_EXISTS;
        m_pView = static_cast<unsigned char*>(plat::MapViewOfFile(m_hList, plat::FILE_MAP_WRITE, 0, 0, 0));
        return m_pView != nullptr;
    }

    // Adds `paths` to the list and wakes the collector. false (the list unchanged) when they do not fit.
    bool add(const std::vector<std::string>& paths) {
        ListHeader header;
        std::memcpy(&header, m_pView, sizeof header);
        std::u16string units;
        for (const std::string& path : paths) {
            units += plat::fromUtf8(path);
            units += u'\0';
        }
        if (header.units > kListCapacityUnits || units.size() > kListCapacityUnits - header.units) {
            return false;
        }
        std::memcpy(m_pView + sizeof header + header.units * sizeof(char16_t), units.data(),
                    units.size() * sizeof(char16_t));
        header.count += static_cast<std::uint32_t>(paths.size());
        header.units += static_cast<std::uint32_t>(units.size());
        std::memcpy(m_pView, &header, sizeof header);
        plat::SetEvent(m_hArrived);
        return true;
    }

    // Lets the others in while this collector waits for them.
    void unlock() {
        if (m_bLocked) {
            plat::ReleaseMutex(m_hLock);
            m_bLocked = false;
        }
    }

    // Waits until no path has arrived for `quiet` ms, or the gathering has lasted its longest.
    void gather(unsigned quiet) const {
        const auto longest = std::chrono::milliseconds(quiet) * kQuietMomentsAtMost;
        const auto start = std::chrono::steady_clock::now();
        while (plat::WaitForSingleObject(m_hArrived, quiet) == plat::WAIT_OBJECT_0) {
            if (std::chrono::steady_clock::now() - start >= longest) {
                break;
            }
        }
    }

    // Takes the mutex again and appends the list's paths to `paths`; the list ends with this meeting.
    void take(std::vector<std::string>& paths) {
        const plat::DWORD waited = plat::WaitForSingleObject(m_hLock, plat::INFINITE);
        m_bLocked = waited == plat::WAIT_OBJECT_0 || waited == plat::WAIT_ABANDONED_0;
        ListHeader header;
        std::memcpy(&header, m_pView, sizeof header);
        const std::size_t units = header.units <= kListCapacityUnits ? header.units : 0;
        std::u16string text(units, u'\0');
        std::memcpy(text.data(), m_pView + sizeof header, units * sizeof(char16_t));
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = text.find(u'\0', begin);
            paths.push_back(plat::toUtf8(text.substr(begin, end - begin)));
            begin = end + 1;
        }
        leave();
    }

private:
    void leave() {
        if (m_pView != nullptr) {
            plat::UnmapViewOfFile(m_pView);
            m_pView = nullptr;
        }
        for (plat::HANDLE* pHandle : {&m_hList, &m_hArrived}) {
            if (*pHandle != nullptr) {
                plat::CloseHandle(*pHandle);
                *pHandle = nullptr;
            }
        }
        unlock();
        if (m_hLock != nullptr) {
            plat::CloseHandle(m_hLock);
            m_hLock = nullptr;
        }
    }

    std::u16string m_stem;
    plat::HANDLE m_hLock = nullptr;
    plat::HANDLE m_hArrived = nullptr;
    plat::HANDLE m_hList = nullptr;
    unsigned char* m_pView = nullptr;
    bool m_bLocked = false;
};

}  // namespace

unsigned numberFromEnvironment(const char* name, unsigned fallback, unsigned limit) {
    const char* text = std::getenv(name);
    if (text == nullptr || *text == '\0') {
        return fallback;
    }
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    return *end == '\0' && value > 0 && value <= limit ? static_cast<unsigned>(value) : fallback;
}

Collected collect(const std::vector<std::string>& args) {
    Collected result;
    if (args.size() < 2 || (args[0] != "encrypt" && args[0] != "decrypt" && args[0] != "search")) {
        std::fputs("velq: collect needs a verb (encrypt, decrypt or search) and at least one PATH\n", stderr);
        result.status = kWrongUse;
        return result;
    }
    result.verb = args[0];
    for (std::size_t i = 1; i < args.size(); ++i) {
        result.paths.push_back(absolutePath(args[i]));
    }
    Meeting meeting(result.verb);
    bool bFirst = false;
    if (!meeting.enter(bFirst)) {
        std::fprintf(stderr, "velq: cannot meet the other selected items (error %u); these go alone\n",
                     static_cast<unsigned>(plat::GetLastError()));
        return result;
    }
    if (!bFirst) {
        if (meeting.add(result.paths)) {
            result.paths.clear();
        } else {
            std::fputs("velq: the selection's list is full; these go alone\n", stderr);
        }
        return result;
    }
    meeting.unlock();
    meeting.gather(numberFromEnvironment("VELQ_COLLECT_QUIET_MS", kDefaultQuietMs, kMaxQuietMs));
    meeting.take(result.paths);
    return result;
}

}  // namespace velq
