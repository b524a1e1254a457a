// Last error, text conversion and handles: the API's own calls. UTF-16 is the system's native text, so
// only the conversions to and from UTF-8 (for logs and files the core writes as UTF-8) do any work.
#include "plat/errors.h"
#include "plat/handle.h"
#include "plat/strings.h"
#include "wide.h"

namespace plat {

using win32::wide;

DWORD GetLastError() {
    return ::GetLastError();
}

void SetLastError(DWORD error) {
    ::SetLastError(error);
}

BOOL CloseHandle(HANDLE h) {
    return ::CloseHandle(win32::native(h));
}

// Without WC_ERR_INVALID_CHARS a lone surrogate becomes U+FFFD, as the conversions promise.
std::string toUtf8(std::u16string_view text) {
    if (text.empty()) {
        return {};
    }
    const int units = static_cast<int>(text.size());
    const int bytes =
        ::WideCharToMultiByte(CP_UTF8, 0, wide(text.data()), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide(text.data()), units, result.data(), bytes, nullptr, nullptr);
    return result;
}

// Without MB_ERR_INVALID_CHARS an invalid sequence becomes U+FFFD.
std::u16string fromUtf8(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    const int bytes = static_cast<int>(text.size());
    const int units = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0);
    std::u16string result(static_cast<std::size_t>(units), u'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide(result.data()), units);
    return result;
}

std::size_t wcslen16(LPCWSTR text) {
    return text == nullptr ? 0 : std::char_traits<char16_t>::length(text);
}

std::size_t copyTruncated(std::u16string_view text, LPWSTR buffer, std::size_t capacity) {
    if (buffer == nullptr || capacity == 0) {
        return 0;
    }
    const std::size_t count = text.size() < capacity ? text.size() : capacity - 1;
    text.copy(buffer, count);
    buffer[count] = u'\0';
    return count;
}

}  // namespace plat
