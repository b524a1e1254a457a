// The process entry. The command line handed to wWinMain is the arguments after the program's name,
// joined by single blanks (no quoting is added or removed); on Windows they are read from the wide
// command line, so that a file name outside the ANSI code page arrives whole. A process started with no
// arguments at all, not even its own name (argc 0, possible with execve), has no command line: wWinMain gets
// null, as a program started without one does elsewhere. The exit status is the low 8 bits of the result
// code: 0, 5 for E_FAIL, 87 for E_INVALIDARG.
#include <string>
#include <vector>

#include "app/VELQFileEncryptMain.h"
#include "plat/command_line.h"
#include "plat/strings.h"
#include "plat/ui.h"

int main(int argc, char** argv) {
    plat::HRESULT hr = plat::S_OK;
    if (argc < 1) {
        hr = wWinMain(nullptr, nullptr, nullptr, 1);
    } else {
        const std::vector<std::string> arguments = plat::commandLineArguments(argc, argv);
        std::string joined;
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            if (i > 0) {
                joined += ' ';
            }
            joined += arguments[i];
        }
        std::u16string cmdLine = plat::fromUtf8(joined);
        hr = wWinMain(nullptr, nullptr, cmdLine.data(), 1);
    }
    plat::ui::endBackend();
    return static_cast<int>(static_cast<unsigned>(hr) & 0xFFu);
}
