// The wide command line, split into arguments by the shell's rules (those of the C runtime's argv).
#include "plat/command_line.h"
#include "plat/strings.h"
// After the layer's headers: <windows.h> defines some of the layer's constant names as macros.
#include <windows.h>
// Needs windows.h first.
#include <shellapi.h>

namespace plat {

std::vector<std::string> commandLineArguments(int argc, char** argv) {
    int count = 0;
    ::LPWSTR* wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wide == nullptr) {
        return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
    }
    std::vector<std::string> args;
    for (int i = 1; i < count; ++i) {
        args.push_back(toUtf8(reinterpret_cast<const char16_t*>(wide[i])));
    }
    ::LocalFree(static_cast<::HLOCAL>(wide));
    return args;
}

}  // namespace plat
