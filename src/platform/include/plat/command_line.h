// The process's arguments as UTF-8, on every system.
#pragma once

#include <string>
#include <vector>

namespace plat {

// The arguments after the program's name. On POSIX they are `argv` as it is; on Windows the C runtime's
// argv holds them in the ANSI code page, which cannot spell every file name, so there they come from the
// wide command line, split by the same rules.
std::vector<std::string> commandLineArguments(int argc, char** argv);

}  // namespace plat
