#include "plat/command_line.h"

namespace plat {

std::vector<std::string> commandLineArguments(int argc, char** argv) {
    return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
}

}  // namespace plat
