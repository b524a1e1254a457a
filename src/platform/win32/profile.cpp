// Reading INI files: the API's own calls, which read the file on each call as the core expects.
#include "plat/profile.h"
#include "wide.h"

namespace plat {

using win32::wide;

UINT GetPrivateProfileIntW(LPCWSTR lpAppName, LPCWSTR lpKeyName, int nDefault, LPCWSTR lpFileName) {
    return ::GetPrivateProfileIntW(wide(lpAppName), wide(lpKeyName), nDefault, wide(lpFileName));
}

DWORD GetPrivateProfileStringW(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpDefault,
                               LPWSTR lpReturnedString, DWORD nSize, LPCWSTR lpFileName) {
    return ::GetPrivateProfileStringW(wide(lpAppName), wide(lpKeyName), wide(lpDefault),
                                      wide(lpReturnedString), nSize, wide(lpFileName));
}

}  // namespace plat
