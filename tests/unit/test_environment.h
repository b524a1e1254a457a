// The process's environment for tests, on every system: a variable set or removed, and one changed for
// the life of an object.
#pragma once

#include <cstdlib>
#include <string>

// Sets the environment variable `name` to `value`, or removes it for a null `value`.
inline void setEnvironment(const char* name, const char* value) {
#ifdef _WIN32
    ::_putenv_s(name, value != nullptr ? value : "");  // an empty value removes the variable
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
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        const char* old = std::getenv(name);
        m_bHad = old != nullptr;
        m_old = old ? old : "";
        setEnvironment(name, value);
    }
    ~ScopedEnv() { setEnvironment(m_name, m_bHad ? m_old.c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* m_name;
    std::string m_old;
    bool m_bHad;
};
