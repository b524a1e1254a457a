// The process's environment for tests, on every system: a variable set or removed, and one changed for
// the life of an object. Values are UTF-8, as plat::environmentValue gives them back.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "plat/strings.h"
#include "plat/system.h"

// Sets the environment variable `name` to the UTF-8 `value`, or removes it for a null `value`.
inline void setEnvironment(const char* name, const char* value) {
#ifdef _WIN32
    // Through the wide call: the narrow one would store the UTF-8 bytes as ANSI code page letters, which
    // only a narrow getenv reads back unchanged.
    const std::u16string wideName = plat::fromUtf8(name);
    const std::u16string wideValue = plat::fromUtf8(value != nullptr ? value : "");
    ::_wputenv_s(reinterpret_cast<const wchar_t*>(wideName.c_str()),
                 reinterpret_cast<const wchar_t*>(wideValue.c_str()));  // an empty value removes the variable
#else
    if (value != nullptr) {
        ::setenv(name, value, 1);
    } else {
        ::unsetenv(name);
    }
#endif
}

// One environment variable changed for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name), m_old(plat::environmentValue(name)) {
        setEnvironment(name, value);
    }
    ~ScopedEnv() { setEnvironment(m_name, m_old ? m_old->c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_old;
};
