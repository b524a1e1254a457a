// Runs one of the request processor's key guides or its search in a process of its own, with the UI
// backend the environment chooses (VELQ_UI), so that the end-to-end tests can drive them through the
// automation interface with real files and several processes while the program's roads to them need the
// fingerprint gate.
//
//   guides_driver backup            _backupKeyGuide; prints "result 0x...", exit 0
//   guides_driver recover           recoverKeyGuide; prints "result N", exit 0
//   guides_driver search PATH...    a search request (menu type 4) with PATHs as its folders
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "plat/strings.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: guides_driver backup|recover|search PATH...\n");
        return 2;
    }
    if (std::strcmp(argv[1], "backup") == 0) {
        VELQShellExtProc proc(std::vector<std::u16string>{});
        std::printf("result 0x%x\n", static_cast<unsigned>(proc._backupKeyGuide()));
        return 0;
    }
    if (std::strcmp(argv[1], "recover") == 0) {
        std::printf("result %d\n", static_cast<int>(VELQShellExtProc::recoverKeyGuide()));
        return 0;
    }
    if (std::strcmp(argv[1], "search") == 0) {
        std::vector<std::u16string> folders;
        for (int i = 2; i < argc; ++i) {
            folders.push_back(plat::fromUtf8(argv[i]));
        }
        const plat::UINT uMenuType = 4;
        VELQShellExtProc proc({}, {}, folders, {}, uMenuType);
        return proc.run() == 1 ? 0 : 1;
    }
    std::fprintf(stderr, "guides_driver: unknown command %s\n", argv[1]);
    return 2;
}
