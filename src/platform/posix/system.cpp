#include "plat/system.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

#include "plat/errors.h"
#include "plat/strings.h"

namespace plat {

DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize) {
    if (hModule != nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);  // only the program's own module is known here
        return 0;
    }
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (length <= 0) {
        setLastErrorFromErrno(errno);
        return 0;
    }
    const std::u16string wide = fromUtf8(std::string_view(path, static_cast<std::size_t>(length)));
    const std::size_t copied = copyTruncated(wide, lpFilename, nSize);
    if (copied < wide.size()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return nSize;
    }
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(copied);
}

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

DWORD ExpandEnvironmentStringsW(LPCWSTR lpSrc, LPWSTR lpDst, DWORD nSize) {
    if (lpSrc == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::u16string_view source(lpSrc);
    std::u16string result;
    std::size_t at = 0;
    while (at < source.size()) {
        const std::size_t open = source.find(u'%', at);
        const std::size_t close = open == source.npos ? source.npos : source.find(u'%', open + 1);
        if (close == source.npos) {
            result.append(source.substr(at));
            break;
        }
        result.append(source.substr(at, open - at));
        const std::u16string_view name = source.substr(open + 1, close - open - 1);
        const char* value = name.empty() ? nullptr : std::getenv(toUtf8(name).c_str());
        if (value != nullptr) {
            result += fromUtf8(value);
        } else {
            result.append(source.substr(open, close - open + 1));  // unknown names stay as they are
        }
        at = close + 1;
    }
    const std::size_t needed = result.size() + 1;
    if (lpDst != nullptr && needed <= nSize) {
        copyTruncated(result, lpDst, nSize);
    }
    return static_cast<DWORD>(needed);
}

namespace {

bool isDirectory(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool existsAsNonDirectory(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

int finish(DWORD error) {
    SetLastError(error);
    return static_cast<int>(error);
}

}  // namespace

int SHCreateDirectoryExW(HWND /*hwnd*/, LPCWSTR pszPath, const void* /*psa*/) {
    if (pszPath == nullptr || pszPath[0] != u'/') {
        return finish(ERROR_BAD_PATHNAME);
    }
    std::string path = toUtf8(pszPath);
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    if (isDirectory(path)) {
        return finish(ERROR_ALREADY_EXISTS);
    }
    // Every folder from the top down; one that exists already (or appears meanwhile) is fine.
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string folder = path.substr(0, slash);
        if (::mkdir(folder.c_str(), 0777) != 0 && !(errno == EEXIST && isDirectory(folder))) {
            return finish(existsAsNonDirectory(folder) ? ERROR_FILE_EXISTS : errorFromErrno(errno));
        }
        if (slash == std::string::npos) {
            return finish(ERROR_SUCCESS);
        }
    }
}

void OutputDebugStringW(LPCWSTR lpOutputString) {
    if (lpOutputString == nullptr) {
        return;
    }
    ::syslog(LOG_USER | LOG_DEBUG, "%s", toUtf8(lpOutputString).c_str());
}

void GetLocalTime(SYSTEMTIME* lpSystemTime) {
    if (lpSystemTime == nullptr) {
        return;
    }
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    lpSystemTime->wYear = static_cast<WORD>(local.tm_year + 1900);
    lpSystemTime->wMonth = static_cast<WORD>(local.tm_mon + 1);
    lpSystemTime->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    lpSystemTime->wDay = static_cast<WORD>(local.tm_mday);
    lpSystemTime->wHour = static_cast<WORD>(local.tm_hour);
    lpSystemTime->wMinute = static_cast<WORD>(local.tm_min);
    lpSystemTime->wSecond = static_cast<WORD>(local.tm_sec);
    lpSystemTime->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}

DWORD GetTickCount() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const auto milliseconds = static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
                              static_cast<unsigned long long>(now.tv_nsec / 1000000);
    return static_cast<DWORD>(milliseconds);  // wraps at 2^32 like the original
}

}  // namespace plat
