// The Windows biometric framework (winbio.dll) as a WinBio backend.
#pragma once

#include <memory>

#include "winbio/backend.h"

namespace plat::winbio {

// The backend over `dllName` (the system's winbio.dll unless a test names another), loaded with
// LoadLibraryW and its documented functions found with GetProcAddress. A system without the library, or
// with a library that lacks one of the functions, gets the backend of a machine without a sensor
// (makeNoneBackend): every call then fails as without a sensor, and nothing is ever called through a
// missing function. Callbacks run on the framework's threads, as the layer promises.
std::unique_ptr<Backend> makeWinBioDllBackend(const char16_t* dllName = u"winbio.dll");

}  // namespace plat::winbio
