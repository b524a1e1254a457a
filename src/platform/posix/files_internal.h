// What the file calls share inside the POSIX platform layer: the file object behind a file handle, the
// attribute and time conversions, and the private temporary folder's path.
#pragma once

#include <sys/stat.h>

#include <string>

#include "plat/files.h"
#include "plat/handle.h"

namespace plat {

// An open file: its descriptor, and with it the flock that CreateFileW took. Closing the last handle
// closes the descriptor, which releases the lock.
class FileObject : public KernelObject {
public:
    explicit FileObject(int fd) : m_fd(fd) {}
    int fd() const { return m_fd; }

protected:
    ~FileObject() override;

private:
    const int m_fd;
};

// Attributes as GetFileAttributesW reports them for a stat result.
DWORD attributesFromStat(const struct stat& st);

FILETIME fileTimeFromTimespec(const struct timespec& ts);

// ${TMPDIR:-/tmp}/velq-<uid> without the final "/", as a UTF-8 path; nothing is created or checked.
std::string privateTempFolderPath();

// The folder part of a path ("." for a bare name, "/" for a name just under the root).
std::string parentFolderOf(const std::string& path);

}  // namespace plat
