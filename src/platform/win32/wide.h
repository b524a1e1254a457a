// Conversions between the platform layer's types and the Windows API's, for the forwards in this folder.
//
// Include this after every plat/ header and before any code: <windows.h> defines most Windows names
// (TRUE, INFINITE, INVALID_HANDLE_VALUE, the ERROR_ and WM_ values ...) as macros, so a plat header read
// after it would no longer compile, and code here writes the values by their Windows macros.
#pragma once

#include "plat/types.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

namespace plat::win32 {

// plat::WCHAR is char16_t and the API's WCHAR is wchar_t; both are 16-bit UTF-16 units on Windows (the
// type checks prove it), so a text passes between them by a pointer cast and no copy. This is the one
// place where the two character types meet.
inline const wchar_t* wide(LPCWSTR text) {
    return reinterpret_cast<const wchar_t*>(text);
}
inline wchar_t* wide(LPWSTR text) {
    return reinterpret_cast<wchar_t*>(text);
}
inline LPCWSTR units(const wchar_t* text) {
    return reinterpret_cast<LPCWSTR>(text);
}
inline LPWSTR units(wchar_t* text) {
    return reinterpret_cast<LPWSTR>(text);
}

// A plat handle is the API's handle value itself: no object of this layer stands behind it on Windows.
inline ::HANDLE native(HANDLE handle) {
    return reinterpret_cast<::HANDLE>(handle);
}
inline HANDLE fromNative(::HANDLE handle) {
    return reinterpret_cast<HANDLE>(handle);
}
inline ::HWND native(HWND window) {
    return reinterpret_cast<::HWND>(window);
}
inline HWND fromNative(::HWND window) {
    return reinterpret_cast<HWND>(window);
}
// A null module names the program itself, as in the layer's resource calls; the API needs its handle to
// find the classes the program registered.
inline ::HINSTANCE native(HINSTANCE module) {
    return module == nullptr ? ::GetModuleHandleW(nullptr) : reinterpret_cast<::HINSTANCE>(module);
}

// Stores a value the API wrote into a DWORD of its own (unsigned long) through an optional plat pointer
// (unsigned int): the two types have one size but are distinct, so they are never aliased.
template <typename Plat, typename Native>
inline void storeIfWanted(Plat* target, Native value) {
    if (target != nullptr) {
        *target = static_cast<Plat>(value);
    }
}

}  // namespace plat::win32
