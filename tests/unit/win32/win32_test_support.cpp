#include "win32/win32_test_support.h"

#include <atomic>
#include <vector>

#include "plat/security.h"
#include "plat/system.h"
// After the plat headers: <windows.h> turns their names into macros.
#include <windows.h>

namespace plat::test {

namespace {

std::wstring wide(const std::u16string& text) {
    return std::wstring(text.begin(), text.end());
}

}  // namespace

TempFolder::TempFolder() {
    static std::atomic<int> counter{0};
    WCHAR temp[MAX_PATH + 1] = {};
    plat::GetTempPathW(MAX_PATH + 1, temp);
    m_path = std::u16string(temp) + u"velq-win32-test-" +
             plat::fromUtf8(std::to_string(::GetCurrentProcessId())) + u"-" +
             plat::fromUtf8(std::to_string(counter.fetch_add(1)));
    ::CreateDirectoryW(wide(m_path).c_str(), nullptr);
}

TempFolder::~TempFolder() {
    ::WIN32_FIND_DATAW entry{};
    const std::wstring folder = wide(m_path);
    ::HANDLE find = ::FindFirstFileW((folder + L"\\*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring file = folder + L"\\" + entry.cFileName;
            ::SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            ::DeleteFileW(file.c_str());
        } while (::FindNextFileW(find, &entry));
        ::FindClose(find);
    }
    ::RemoveDirectoryW(folder.c_str());
}

}  // namespace plat::test
