#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "files_internal.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/paths.h"
#include "plat/strings.h"
#include "plat/wildcard.h"

namespace plat {

namespace {

std::u16string lowered(std::u16string text) {
    CharLowerW(text.data());
    return text;
}

// One search: the folder, the lowered pattern and how far the listing has come. "." and ".." are
// offered first, then the folder's own entries.
class FindObject : public KernelObject {
public:
    FindObject(DIR* dir, std::string folder, std::u16string pattern)
        : m_dir(dir), m_folder(std::move(folder)), m_pattern(std::move(pattern)) {}

    // The next entry that matches, or false at the end.
    bool next(WIN32_FIND_DATAW& data);

protected:
    ~FindObject() override { ::closedir(m_dir); }

private:
    bool nextName(std::string& name);
    bool matches(const std::string& name) const;

    DIR* const m_dir;
    const std::string m_folder;
    const std::u16string m_pattern;
    int m_nDotsOffered = 0;
};

bool FindObject::nextName(std::string& name) {
    if (m_nDotsOffered < 2) {
        name = ++m_nDotsOffered == 1 ? "." : "..";
        return true;
    }
    while (const dirent* entry = ::readdir(m_dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            name = entry->d_name;
            return true;
        }
    }
    return false;
}

bool FindObject::matches(const std::string& name) const {
    if (m_pattern == u"*" || m_pattern == u"*.*") {
        return true;
    }
    const std::u16string lowerName = lowered(fromUtf8(name));
    if (wildcardMatch(lowerName, m_pattern)) {
        return true;
    }
    // As on Windows, "name.*" also finds "name".
    const bool endsInAnyExtension = m_pattern.size() >= 2 && m_pattern.ends_with(u".*");
    return endsInAnyExtension &&
           wildcardMatch(lowerName, std::u16string_view(m_pattern).substr(0, m_pattern.size() - 2));
}

// Fills `data` for one entry; false when it vanished since it was listed.
bool describeEntry(const std::string& folder, const std::string& name, WIN32_FIND_DATAW& data) {
    const std::string path = folder + "/" + name;
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        return false;
    }
    DWORD extra = 0;
    if (S_ISLNK(st.st_mode)) {
        extra = FILE_ATTRIBUTE_REPARSE_POINT;
        struct stat target {};
        if (::stat(path.c_str(), &target) == 0) {
            st = target;
        }
    }
    data = WIN32_FIND_DATAW{};
    data.dwFileAttributes = attributesFromStat(st) | extra;
    if (extra != 0) {
        data.dwFileAttributes &= ~FILE_ATTRIBUTE_DIRECTORY;  // a link is never walked into
    }
    data.ftCreationTime = fileTimeFromTimespec(st.st_mtim);
    data.ftLastAccessTime = fileTimeFromTimespec(st.st_atim);
    data.ftLastWriteTime = fileTimeFromTimespec(st.st_mtim);
    const auto size = S_ISREG(st.st_mode) ? static_cast<ULONGLONG>(st.st_size) : 0;
    data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(size & 0xFFFFFFFFu);
    copyTruncated(fromUtf8(name), data.cFileName, MAX_PATH);
    return true;
}

bool FindObject::next(WIN32_FIND_DATAW& data) {
    std::string name;
    while (nextName(name)) {
        if (matches(name) && describeEntry(m_folder, name, data)) {
            return true;
        }
    }
    return false;
}

}  // namespace

HANDLE FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData) {
    if (lpFileName == nullptr || lpFindFileData == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    const std::string full = toUtf8(lpFileName);
    const std::size_t slash = full.find_last_of('/');
    const std::string folder = parentFolderOf(full);
    const std::string pattern = slash == std::string::npos ? full : full.substr(slash + 1);
    if (pattern.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) {
        // The folder itself is what is missing here, so ENOENT means "path not found".
        SetLastError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : errorFromErrno(errno));
        return INVALID_HANDLE_VALUE;
    }
    auto* search = new FindObject(dir, folder, lowered(fromUtf8(pattern)));
    if (!search->next(*lpFindFileData)) {
        search->release();
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    SetLastError(ERROR_SUCCESS);
    return search;
}

BOOL FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData) {
    auto* search = handleAs<FindObject>(hFindFile);
    if (search == nullptr || lpFindFileData == nullptr) {
        SetLastError(search == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!search->next(*lpFindFileData)) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    return TRUE;
}

BOOL FindClose(HANDLE hFindFile) {
    if (handleAs<FindObject>(hFindFile) == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return CloseHandle(hFindFile);
}

}  // namespace plat
