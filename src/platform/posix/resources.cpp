// LoadStringW on POSIX: every text comes from the generated string table (posix/string_table.cpp).
#include "plat/resources.h"
#include "posix/string_table.h"

namespace plat {

int LoadStringW(HINSTANCE /*hInstance*/, UINT uID, LPWSTR lpBuffer, int cchBufferMax) {
    return loadStringFromTable(uID, lpBuffer, cchBufferMax);
}

}  // namespace plat
