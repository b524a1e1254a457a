// The command line of velq as UTF-8 strings, on every system.
#pragma once

#include <string>
#include <vector>

namespace velq {

// The arguments after the program's name. On Windows the C runtime's argv holds them in the ANSI code
// page, which cannot spell every file name, so there they come from the wide command line instead.
std::vector<std::string> programArguments(int argc, char** argv);

}  // namespace velq
