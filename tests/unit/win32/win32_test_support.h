// Helpers of the Win32 layer's tests: a private folder under the system's temporary folder.
#pragma once

#include <string>

#include "plat/files.h"
#include "plat/strings.h"
#include "plat/threads.h"

namespace plat::test {

// A new empty folder, removed with what the test left in it (files only) when the object goes.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    // The path of `name` inside the folder.
    std::u16string path(std::u16string_view name) const { return m_path + u"\\" + std::u16string(name); }

private:
    std::u16string m_path;
};

}  // namespace plat::test
