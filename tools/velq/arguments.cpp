#include "arguments.h"

#ifdef _WIN32
#include "plat/strings.h"
// After the layer's header: <windows.h> defines some of the layer's constant names as macros.
#include <windows.h>
// Needs windows.h first.
#include <shellapi.h>
#endif

namespace velq {

std::vector<std::string> programArguments(int argc, char** argv) {
#ifdef _WIN32
    int count = 0;
    LPWSTR* wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wide != nullptr) {
        std::vector<std::string> args;
        for (int i = 1; i < count; ++i) {
            args.push_back(plat::toUtf8(reinterpret_cast<const char16_t*>(wide[i])));
        }
        ::LocalFree(static_cast<HLOCAL>(wide));
        return args;
    }
#endif
    return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
}

}  // namespace velq
