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

namespace {

// Wine finds a FILE_APPEND_DATA handle's end and writes there in two steps, so two appenders can write at
// the same place and one line is lost (checked by the transcript's tests). Every appender therefore holds
// a lock on one byte far past any real end while it writes: appenders of all processes take turns, and
// readers, who never reach that byte, are not held up.
constexpr ::DWORD kAppendTurnOffsetHigh = 0x7FFFFFFF;

bool takeAppendTurn(::HANDLE file, ::OVERLAPPED& place) {
    place = ::OVERLAPPED{};
    place.OffsetHigh = kAppendTurnOffsetHigh;
    return ::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &place) != FALSE;
}

}  // namespace

bool appendWhole(const std::u16string& path, std::string_view bytes, std::string& failure) {
    // FILE_APPEND_DATA without FILE_WRITE_DATA: every write lands at the end, whoever else appends. Reading
    // is asked for only because the lock needs a handle that may read or write its data.
    ::HANDLE file = ::CreateFileW(win32::wide(path.c_str()), FILE_APPEND_DATA | FILE_READ_DATA,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        failure = "error " + std::to_string(::GetLastError());
        return false;
    }
    // A file system without locks still takes the line, only without the turn.
    ::OVERLAPPED turn{};
    const bool turnTaken = takeAppendTurn(file, turn);
    ::DWORD written = 0;
    const bool wrote = bytes.size() <= 0x7FFFFFFFu &&
                       ::WriteFile(file, bytes.data(), static_cast<::DWORD>(bytes.size()), &written, nullptr);
    const ::DWORD error = ::GetLastError();
    if (turnTaken) {
        ::UnlockFileEx(file, 0, 1, 0, &turn);
    }
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
