// The search for encrypted files as the UI backends show it: the query of a search-ms: line is carried
// out here, over the layer's own file listing, and its results go to the backend's search window. It is
// the search of every backend but one whose windows are the system's own (Backend::usesSystemWindows).
#pragma once

#include <cstdint>

#include "plat/types.h"

namespace plat::ui {

// ShellExecuteW of `file` for such a backend: see plat/shell.h.
std::intptr_t showSearchInBackend(LPCWSTR file);

}  // namespace plat::ui
