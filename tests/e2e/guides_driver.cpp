// Runs one of the request processor's key guides or its search in a process of its own, with the UI
// backend the environment chooses (VELQ_UI), so that the end-to-end tests can drive them through the
// automation interface with real files and several processes while the program's roads to them need the
// fingerprint gate.
//
//   guides_driver backup            _backupKeyGuide; prints "result 0x...", exit 0
//   guides_driver recover           recoverKeyGuide; prints "result N", exit 0
//   guides_driver search PATH...    a search request (menu type 4) with PATHs as its folders
#include <cstdio>
#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "plat/command_line.h"
#include "plat/strings.h"

int main(int argc, char** argv) {
    // Not argv itself: on Windows it is in the ANSI code page, which cannot spell every folder's name;
    // the layer reads the wide command line there (as the program's entry does) and argv elsewhere.
    const std::vector<std::string> args = plat::commandLineArguments(argc, argv);
    if (args.empty()) {
        static_cast<void>(std::fprintf(stderr, "usage: guides_driver backup|recover|search PATH...\n"));
        return 2;
    }
    const std::string& command = args[0];
    if (command == "backup") {
        VELQShellExtProc proc(std::vector<std::u16string>{});
        std::printf("result 0x%x\n", static_cast<unsigned>(proc._backupKeyGuide()));
        return 0;
    }
    if (command == "recover") {
        std::printf("result %d\n", static_cast<int>(VELQShellExtProc::recoverKeyGuide()));
        return 0;
    }
    if (command == "search") {
        std::vector<std::u16string> folders;
        for (std::size_t i = 1; i < args.size(); ++i) {
            folders.push_back(plat::fromUtf8(args[i]));
        }
        const plat::UINT uMenuType = 4;
        VELQShellExtProc proc({}, {}, folders, {}, uMenuType);
        return proc.run() == 1 ? 0 : 1;
    }
    static_cast<void>(std::fprintf(stderr, "guides_driver: unknown command %s\n", command.c_str()));
    return 2;
}
