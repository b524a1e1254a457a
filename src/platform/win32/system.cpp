// Process, environment, folders, time, the debugger output, the system's information, the foreground
// window and GDI+: the API's own calls.
#include "plat/system.h"
#include "plat/foreground.h"
#include "plat/strings.h"
#include "plat/sysinfo.h"
#include "wide.h"
// After wide.h: the shell's folder call needs <windows.h> first.
#include <shlobj.h>

#include <algorithm>
#include <string>

// GDI+'s flat start-up calls (gdiplus.dll), declared here rather than through <gdiplus.h>, whose C++
// classes need the min/max macros that every other unit here turns off. The records passed are the
// layer's, which have the documented layout.
extern "C" __declspec(dllimport) int __stdcall GdiplusStartup(std::uintptr_t* token, const void* input,
                                                              void* output);
extern "C" __declspec(dllimport) void __stdcall GdiplusShutdown(std::uintptr_t token);

namespace plat {

using win32::wide;

namespace {

const ::SYSTEMTIME* nativeTime(const SYSTEMTIME* time) {
    return reinterpret_cast<const ::SYSTEMTIME*>(time);
}

}  // namespace

DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize) {
    return ::GetModuleFileNameW(reinterpret_cast<::HMODULE>(hModule), wide(lpFilename), nSize);
}

// The process's own block, not the C runtime's copies: SetEnvironmentVariableW reaches only the block.
std::optional<std::string> environmentValue(const char* name) {
    const std::u16string wideName = fromUtf8(name);
    std::u16string value;
    ::DWORD room = 1;
    for (;;) {
        value.resize(room);
        ::SetLastError(ERROR_SUCCESS);
        const ::DWORD length = ::GetEnvironmentVariableW(wide(wideName.c_str()), wide(value.data()), room);
        if (length == 0) {
            // 0 is also the length of a variable that is set and empty; the last error tells them apart.
            return ::GetLastError() == ERROR_SUCCESS ? std::optional<std::string>(std::string())
                                                     : std::nullopt;
        }
        if (length < room) {
            value.resize(length);
            return toUtf8(value);
        }
        // Too small: `length` is the units needed with the NUL. Another thread may grow the value before
        // the next call, which then asks for more again.
        room = length;
    }
}

DWORD ExpandEnvironmentStringsW(LPCWSTR lpSrc, LPWSTR lpDst, DWORD nSize) {
    return ::ExpandEnvironmentStringsW(wide(lpSrc), wide(lpDst), nSize);
}

int SHCreateDirectoryExW(HWND hwnd, LPCWSTR pszPath, const void* psa) {
    if (pszPath == nullptr) {
        return ERROR_BAD_PATHNAME;
    }
    // The shell's call takes only "\" between folders, where every other file call of the API takes "/"
    // too; the core joins its paths with "/" (the log file's folder, the user's data folders).
    std::u16string path(pszPath);
    std::replace(path.begin(), path.end(), u'/', u'\\');
    return ::SHCreateDirectoryExW(win32::native(hwnd), wide(path.c_str()),
                                  static_cast<const ::SECURITY_ATTRIBUTES*>(psa));
}

void OutputDebugStringW(LPCWSTR lpOutputString) {
    if (lpOutputString != nullptr) {
        ::OutputDebugStringW(wide(lpOutputString));
    }
}

void GetLocalTime(SYSTEMTIME* lpSystemTime) {
    ::GetLocalTime(reinterpret_cast<::SYSTEMTIME*>(lpSystemTime));
}

DWORD GetTickCount() {
    return ::GetTickCount();
}

int GetDateFormatW(LCID Locale, DWORD dwFlags, const SYSTEMTIME* lpDate, LPCWSTR lpFormat, LPWSTR lpDateStr,
                   int cchDate) {
    return ::GetDateFormatW(Locale, dwFlags, nativeTime(lpDate), wide(lpFormat), wide(lpDateStr), cchDate);
}

int GetTimeFormatW(LCID Locale, DWORD dwFlags, const SYSTEMTIME* lpTime, LPCWSTR lpFormat, LPWSTR lpTimeStr,
                   int cchTime) {
    return ::GetTimeFormatW(Locale, dwFlags, nativeTime(lpTime), wide(lpFormat), wide(lpTimeStr), cchTime);
}

// The record's first field differs from the API's (a processor architecture union there), so it is
// copied field by field. The granularity is the system's, 65536 on every Windows.
void GetSystemInfo(LPSYSTEM_INFO lpSystemInfo) {
    if (lpSystemInfo == nullptr) {
        return;
    }
    ::SYSTEM_INFO info{};
    ::GetSystemInfo(&info);
    lpSystemInfo->dwPageSize = info.dwPageSize;
    lpSystemInfo->lpMinimumApplicationAddress = info.lpMinimumApplicationAddress;
    lpSystemInfo->lpMaximumApplicationAddress = info.lpMaximumApplicationAddress;
    lpSystemInfo->dwActiveProcessorMask = info.dwActiveProcessorMask;
    lpSystemInfo->dwNumberOfProcessors = info.dwNumberOfProcessors;
    lpSystemInfo->dwProcessorType = info.dwProcessorType;
    lpSystemInfo->dwAllocationGranularity = info.dwAllocationGranularity;
    lpSystemInfo->wProcessorLevel = info.wProcessorLevel;
    lpSystemInfo->wProcessorRevision = info.wProcessorRevision;
}

HWND GetForegroundWindow() {
    return win32::fromNative(::GetForegroundWindow());
}

GpStatus GdiplusStartup(std::uintptr_t* token, const GdiplusStartupInput* input,
                        GdiplusStartupOutput* output) {
    return static_cast<GpStatus>(::GdiplusStartup(token, input, output));
}

void GdiplusShutdown(std::uintptr_t token) {
    ::GdiplusShutdown(token);
}

}  // namespace plat
