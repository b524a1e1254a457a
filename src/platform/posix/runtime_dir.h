// The per-user runtime folder, where named objects live.
#pragma once

#include <string>

namespace plat::detail {

// The folder's path: VELQ_RUNTIME_DIR when set, else $XDG_RUNTIME_DIR/velq, else /tmp/velq-<uid>.
std::string runtimeFolderPath();

// Opens the runtime folder (O_DIRECTORY, no following of a link), creating it with mode 0700 when it is
// missing (its parent must exist). The folder is refused with ERROR_ACCESS_DENIED when it is a link, not a
// folder, not owned by the effective user, or has any mode but 0700: others must never be able to place
// or read objects there. Returns the descriptor (close-on-exec), or -1 with the last error set; `path`
// receives the path in either case.
int openRuntimeFolder(std::string& path);

}  // namespace plat::detail
