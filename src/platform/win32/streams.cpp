// stdio streams through the C runtime's wide open, binary and not inherited ("N").
#include "plat/streams.h"
#include "wide.h"

#include <string>

namespace plat {

std::FILE* openStream(const std::u16string& path, StreamMode mode) {
    const wchar_t* streamMode = L"rbN";
    if (mode == StreamMode::kAppend) {
        streamMode = L"abN";
    } else if (mode == StreamMode::kReplace) {
        streamMode = L"wbN";
    }
    return ::_wfopen(win32::wide(path.c_str()), streamMode);
}

bool appendWhole(const std::u16string& path, std::string_view bytes, std::string& failure) {
    // FILE_APPEND_DATA alone: every write lands at the end, whoever else appends.
    ::HANDLE file = ::CreateFileW(win32::wide(path.c_str()), FILE_APPEND_DATA,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        failure = "error " + std::to_string(::GetLastError());
        return false;
    }
    ::DWORD written = 0;
    const bool wrote = bytes.size() <= 0x7FFFFFFFu &&
                       ::WriteFile(file, bytes.data(), static_cast<::DWORD>(bytes.size()), &written, nullptr);
    const ::DWORD error = ::GetLastError();
    ::CloseHandle(file);
    if (!wrote) {
        failure = "error " + std::to_string(error);
        return false;
    }
    if (written != bytes.size()) {
        failure = "short write";
        return false;
    }
    return true;
}

}  // namespace plat
