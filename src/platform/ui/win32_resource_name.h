// A resource number as the system's calls take it: a pointer whose value is the number. The system's
// MAKEINTRESOURCEW would name the layer's LPWSTR (char16_t) inside namespace plat.
#pragma once

#include <cstdint>

namespace plat::ui {

inline const wchar_t* resourceName(unsigned id) {
    return reinterpret_cast<const wchar_t*>(static_cast<std::uintptr_t>(id & 0xFFFF));
}

}  // namespace plat::ui
