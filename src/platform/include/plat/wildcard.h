// File-name patterns as FindFirstFileW takes them, for the layer's own listings and searches.
#pragma once

#include <string_view>

namespace plat {

// "*" matches any run of units, "?" exactly one, the rest must be equal (callers lower both texts first
// when case does not count).
bool wildcardMatch(std::u16string_view name, std::u16string_view pattern);

}  // namespace plat
