// Named events as sync.cpp reaches them: CreateEventW with a name, and SetEvent/ResetEvent on a handle
// that is a named event.
#pragma once

#include <optional>

#include "plat/types.h"

namespace plat::detail {

// CreateEventW for a non-empty name (see plat/named.h for the rules).
HANDLE createNamedEvent(BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName);

// Sets (or resets) `h` when it is a named event and gives the call's result; nullopt when it is none.
std::optional<BOOL> changeNamedEvent(HANDLE h, bool set);

}  // namespace plat::detail
