#include "app/VELQAssistant.h"

#include <cstdint>

#include "diag/DbgLog.h"
#include "plat/errors.h"
#include "plat/handle.h"
#include "plat/named.h"

namespace {

// The guard's name buffer holds MAX_PATH units with the terminator.
constexpr std::size_t kGuardNameMax = plat::MAX_PATH - 1;
constexpr std::size_t kHashDigits = 16;

// FNV-1a over the UTF-16 units: stable across builds and machines, which a guard name must be.
std::uint64_t hashOf(std::u16string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const char16_t unit : text) {
        hash ^= static_cast<std::uint64_t>(unit);
        hash *= 0x100000001b3ull;
    }
    return hash;
}

std::u16string hexDigits(std::uint64_t value) {
    static constexpr char16_t kDigits[] = u"0123456789abcdef";
    std::u16string text(kHashDigits, u'0');
    for (std::size_t i = kHashDigits; i-- > 0;) {
        text[i] = kDigits[value & 0xF];
        value >>= 4;
    }
    return text;
}

}  // namespace

VELQAssistant::VELQAssistant() : m_hInstanceMutex(nullptr) {}

VELQAssistant::~VELQAssistant() {
    if (m_hInstanceMutex != nullptr) {
        plat::CloseHandle(m_hInstanceMutex);
        m_hInstanceMutex = nullptr;
    }
}

std::u16string VELQAssistant::guardName(std::u16string_view name) {
    std::u16string text(name);
    for (char16_t& unit : text) {
        // "/" too: it is the path separator here, and a named object's name may not hold one.
        if (unit == u':' || unit == u'\\' || unit == u'/') {
            unit = u'-';
        }
    }
    if (text.size() <= kGuardNameMax) {
        return text;
    }
    const std::u16string tail = u"-" + hexDigits(hashOf(text));
    return text.substr(0, kGuardNameMax - tail.size()) + tail;
}

bool VELQAssistant::isExistInstance(const std::u16string& name) {
    const std::u16string mutexName = guardName(name);
    if (m_hInstanceMutex != nullptr) {
        // A second call guards the new name only; the old handle must not leak and keep its name alive.
        plat::CloseHandle(m_hInstanceMutex);
        m_hInstanceMutex = nullptr;
    }
    m_hInstanceMutex = plat::CreateMutexW(nullptr, plat::FALSE, mutexName.c_str());
    if (m_hInstanceMutex == nullptr) {
        VELQ_LOG(DBG_LEVEL_WRN, u" (VELQAssistant::isExistInstance)", u"CreateMutex failure: %u",
                 static_cast<unsigned>(plat::GetLastError()));
        return false;
    }
    return plat::GetLastError() == plat::ERROR_ALREADY_EXISTS;
}

std::u16string VELQAssistant::getFilePathFromCmdLine(plat::LPCWSTR lpCmdLine) {
    if (lpCmdLine == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQAssistant::getFilePathFromCmdLine)", u"Error Code: 0x%x",
                 static_cast<unsigned>(plat::E_INVALIDARG));
        return std::u16string();
    }
    std::u16string szFilePath;
    for (plat::LPCWSTR p = lpCmdLine; *p != u'\0' && szFilePath.size() < kGuardNameMax; ++p) {
        if (*p != u'"') {
            szFilePath.push_back(*p);
        }
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (VELQAssistant::getFilePathFromCmdLine)", u"%s = %s", u"szFilePath",
             szFilePath.c_str());
    return szFilePath;
}
