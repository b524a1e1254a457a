// Builds for systems without the Windows biometric framework (POSIX).
#include "winbio/winbio_win32.h"

namespace plat::winbio {

bool winbioDllBackendBuiltIn() {
    return false;
}

std::unique_ptr<Backend> makeWinBioDllBackend(const char16_t*) {
    return nullptr;
}

}  // namespace plat::winbio
