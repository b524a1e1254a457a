// The POSIX process entry. The command line handed to wWinMain is the arguments after the program's name,
// joined by single blanks (no quoting is added or removed). A process started with no arguments at all,
// not even its own name (argc 0, possible with execve), has no command line: wWinMain gets null, as a
// program started without one does elsewhere. The exit status is the low 8 bits of the result code:
// 0, 5 for E_FAIL, 87 for E_INVALIDARG.
#include <string>

#include "app/VELQFileEncryptMain.h"
#include "plat/strings.h"
#include "plat/ui.h"

int main(int argc, char** argv) {
    plat::HRESULT hr = plat::S_OK;
    if (argc < 1) {
        hr = wWinMain(nullptr, nullptr, nullptr, 1);
    } else {
        std::string joined;
        for (int i = 1; i < argc; ++i) {
            if (i > 1) {
                joined += ' ';
            }
            joined += argv[i];
        }
        std::u16string cmdLine = plat::fromUtf8(joined);
        hr = wWinMain(nullptr, nullptr, cmdLine.data(), 1);
    }
    plat::ui::endBackend();
    return static_cast<int>(static_cast<unsigned>(hr) & 0xFFu);
}
