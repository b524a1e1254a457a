// The shell's URL escaping and ShellExecuteW (a search-ms: query opens the system's search window):
// the API's own calls. Under another UI than the system's (the scripted one) the search is that UI's.
#include "plat/shell.h"
#include "plat/ui.h"
#include "ui/backend_search.h"
#include "wide.h"
// After wide.h: the shell's headers need <windows.h> first.
#include <shellapi.h>
#include <shlwapi.h>

namespace plat {

using win32::wide;

HRESULT UrlEscapeW(LPCWSTR pszUrl, LPWSTR pszEscaped, DWORD* pcchEscaped, DWORD dwFlags) {
    if (pcchEscaped == nullptr) {
        return E_INVALIDARG;
    }
    ::DWORD capacity = *pcchEscaped;
    const HRESULT result = ::UrlEscapeW(wide(pszUrl), wide(pszEscaped), &capacity, dwFlags);
    *pcchEscaped = capacity;
    return result;
}

std::intptr_t ShellExecuteW(HWND hwnd, LPCWSTR lpOperation, LPCWSTR lpFile, LPCWSTR lpParameters,
                            LPCWSTR lpDirectory, int nShowCmd) {
    if (!ui::currentBackend().usesSystemWindows()) {
        return ui::showSearchInBackend(lpFile);
    }
    return reinterpret_cast<std::intptr_t>(::ShellExecuteW(win32::native(hwnd), wide(lpOperation),
                                                           wide(lpFile), wide(lpParameters),
                                                           wide(lpDirectory), nShowCmd));
}

}  // namespace plat
