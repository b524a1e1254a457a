// The shell's URL escaping, and its "open this" call, which on this system opens only a search query
// (ui/backend_search.cpp).
#include "plat/shell.h"

#include <algorithm>

#include "ui/backend_search.h"

namespace plat {

namespace {

constexpr char16_t kHex[] = u"0123456789ABCDEF";

bool isUnsafe(char16_t unit, DWORD flags) {
    if (unit == u'%') {
        return (flags & URL_ESCAPE_PERCENT) != 0;
    }
    if (unit < 0x20 || (unit >= 0x7F && unit <= 0xFF)) {
        return true;
    }
    return std::u16string_view(u" ^&`{}|][\"<>\\").find(unit) != std::u16string_view::npos;
}

std::u16string escaped(std::u16string_view url, DWORD flags) {
    std::u16string out;
    const std::size_t queryStart = std::min(url.find(u'?'), url.find(u'#'));
    for (std::size_t i = 0; i < url.size(); ++i) {
        const char16_t unit = url[i];
        if (i < queryStart && isUnsafe(unit, flags)) {
            out += u'%';
            out += kHex[(unit >> 4) & 0xF];
            out += kHex[unit & 0xF];
        } else {
            out += unit;
        }
    }
    return out;
}

}  // namespace

HRESULT UrlEscapeW(LPCWSTR pszUrl, LPWSTR pszEscaped, DWORD* pcchEscaped, DWORD dwFlags) {
    constexpr DWORD kSupported = URL_ESCAPE_PERCENT | URL_DONT_ESCAPE_EXTRA_INFO;
    if (pszUrl == nullptr || pszEscaped == nullptr || pcchEscaped == nullptr || *pcchEscaped == 0 ||
        (dwFlags & ~kSupported) != 0) {
        return E_INVALIDARG;
    }
    const std::u16string out = escaped(pszUrl, dwFlags);
    if (out.size() + 1 > *pcchEscaped) {
        *pcchEscaped = static_cast<DWORD>(out.size() + 1);
        return E_POINTER;
    }
    std::copy(out.begin(), out.end(), pszEscaped);
    pszEscaped[out.size()] = u'\0';
    *pcchEscaped = static_cast<DWORD>(out.size());
    return S_OK;
}

std::intptr_t ShellExecuteW(HWND, LPCWSTR, LPCWSTR lpFile, LPCWSTR, LPCWSTR, int) {
    return ui::showSearchInBackend(lpFile);
}

}  // namespace plat
