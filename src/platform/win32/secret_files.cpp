// Secret files on Windows: created exclusively in folders of the user's profile, whose access list is
// private to the user already, so no access list of our own is set; published with MoveFileExW.
#include "plat/secret_files.h"
#include "wide.h"

#include <string>

namespace plat {

using win32::wide;

namespace {

constexpr DWORD kInvalidData = ERROR_INVALID_DATA;

bool isSeparator(char16_t unit) {
    return unit == u'\\' || unit == u'/';
}

bool writeAll(::HANDLE file, const unsigned char* data, std::size_t size) {
    while (size > 0) {
        const ::DWORD chunk = size > 0x40000000u ? 0x40000000u : static_cast<::DWORD>(size);
        ::DWORD written = 0;
        if (!::WriteFile(file, data, chunk, &written, nullptr) || written == 0) {
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

// Where the folders to make begin: after "C:\", "\\server\share\" or a leading separator.
std::size_t firstFolderEnd(const std::u16string& path) {
    if (path.size() >= 2 && path[1] == u':') {
        return 3;
    }
    if (path.size() >= 2 && isSeparator(path[0]) && isSeparator(path[1])) {
        std::size_t position = 2;
        for (int part = 0; part < 2 && position != std::u16string::npos; ++part) {
            position = path.find_first_of(u"\\/", position + 1);
        }
        return position == std::u16string::npos ? path.size() : position + 1;
    }
    return 1;
}

// 0, or the error of a folder that could not be made; a non-folder in the way gives 3.
::DWORD makeOneFolder(const std::u16string& path) {
    if (::CreateDirectoryW(wide(path.c_str()), nullptr)) {
        return 0;
    }
    const ::DWORD error = ::GetLastError();
    if (error == ERROR_ALREADY_EXISTS || error == ERROR_ACCESS_DENIED) {
        const ::DWORD attributes = ::GetFileAttributesW(wide(path.c_str()));
        if (attributes != INVALID_FILE_ATTRIBUTES) {
            return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 0 : ERROR_PATH_NOT_FOUND;
        }
    }
    return error;
}

}  // namespace

BOOL writeSecretFile(LPCWSTR temp, LPCWSTR target, const void* data, std::size_t size, BOOL replace) {
    if (temp == nullptr || target == nullptr || (data == nullptr && size > 0)) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    ::HANDLE file =
        ::CreateFileW(wide(temp), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return FALSE;
    }
    ::DWORD error = 0;
    if (!writeAll(file, static_cast<const unsigned char*>(data), size) || !::FlushFileBuffers(file)) {
        error = ::GetLastError();
    }
    ::CloseHandle(file);
    const ::DWORD flags = MOVEFILE_WRITE_THROUGH | (replace ? MOVEFILE_REPLACE_EXISTING : 0);
    if (error == 0 && !::MoveFileExW(wide(temp), wide(target), flags)) {
        error = ::GetLastError();
        if (error == ERROR_ALREADY_EXISTS) {
            error = ERROR_FILE_EXISTS;
        }
    }
    if (error != 0) {
        ::DeleteFileW(wide(temp));
        ::SetLastError(error);
        return FALSE;
    }
    return TRUE;
}

BOOL readSmallFile(LPCWSTR path, std::size_t maxBytes, std::vector<unsigned char>& content) {
    content.clear();
    if (path == nullptr) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const ::DWORD attributes = ::GetFileAttributesW(wide(path));
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        ::SetLastError(kInvalidData);
        return FALSE;
    }
    ::HANDLE file =
        ::CreateFileW(wide(path), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return FALSE;
    }
    ::DWORD error = 0;
    ::LARGE_INTEGER length{};
    if (::GetFileType(file) != FILE_TYPE_DISK) {
        error = kInvalidData;
    } else if (!::GetFileSizeEx(file, &length)) {
        error = ::GetLastError();
    } else if (static_cast<unsigned long long>(length.QuadPart) > maxBytes) {
        error = kInvalidData;
    } else {
        // One byte more than expected, so that a file growing meanwhile is noticed as too long.
        content.resize(maxBytes + 1);
        std::size_t total = 0;
        while (total < content.size()) {
            const std::size_t left = content.size() - total;
            ::DWORD got = 0;
            if (!::ReadFile(file, content.data() + total,
                            left > 0x40000000u ? 0x40000000u : static_cast<::DWORD>(left), &got, nullptr)) {
                error = ::GetLastError();
                break;
            }
            if (got == 0) {
                break;
            }
            total += got;
        }
        content.resize(total);
        if (error == 0 && total > maxBytes) {
            error = kInvalidData;
        }
    }
    ::CloseHandle(file);
    if (error != 0) {
        content.clear();
        ::SetLastError(error);
        return FALSE;
    }
    return TRUE;
}

BOOL createPrivateFolder(LPCWSTR path) {
    if (path == nullptr || *path == u'\0') {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::u16string folder(path);
    for (std::size_t end = folder.find_first_of(u"\\/", firstFolderEnd(folder)); end != std::u16string::npos;
         end = folder.find_first_of(u"\\/", end + 1)) {
        if (const ::DWORD error = makeOneFolder(folder.substr(0, end)); error != 0) {
            ::SetLastError(error);
            return FALSE;
        }
    }
    if (const ::DWORD error = makeOneFolder(folder); error != 0) {
        ::SetLastError(error);
        return FALSE;
    }
    return TRUE;
}

}  // namespace plat
