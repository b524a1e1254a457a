// Path helpers on every system, with the system's own separator.
#include "plat/paths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "plat/errors.h"
#include "plat/strings.h"
#include "temp_folder.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

// `path` with each "/" made the system's separator.
std::u16string native(std::u16string path) {
    std::replace(path.begin(), path.end(), u'/', plat::kPathSeparator);
    return path;
}

std::u16string extensionOf(const char16_t* path) {
    return plat::PathFindExtensionW(native(path).c_str());
}

std::u16string fileNameOf(const char16_t* path) {
    const std::u16string nativePath = native(path);
    return plat::PathFindFileNameW(nativePath.c_str());
}

TEST(PathFindExtension, TakesTheLastDotOfTheLastComponentOnly) {
    EXPECT_EQ(extensionOf(u"/a/b.txt.lqvz"), u".lqvz");
    EXPECT_EQ(extensionOf(u"/a.dir/name"), u"");
    EXPECT_EQ(extensionOf(u"name."), u".");
    EXPECT_EQ(extensionOf(u".profile"), u".profile");
    const std::u16string noExtension = native(u"/x/readme");
    EXPECT_EQ(plat::PathFindExtensionW(noExtension.c_str()), noExtension.c_str() + 9);  // the terminating NUL
    EXPECT_EQ(plat::PathFindExtensionW(nullptr), nullptr);
}

TEST(PathFindFileName, SkipsTrailingSeparatorsAsWindowsDoes) {
    EXPECT_EQ(fileNameOf(u"/a/b/c.txt"), u"c.txt");
    EXPECT_EQ(fileNameOf(u"/a/b/"), native(u"b/"));
    EXPECT_EQ(fileNameOf(u"plain"), u"plain");
    EXPECT_EQ(plat::PathFindFileNameW(nullptr), nullptr);
}

TEST(PathFileExists, TellsAMissingFileFromAMissingFolder) {
    const velq_test::TempFolder folder("velq-paths-");
    ASSERT_FALSE(folder.path().empty());
    const std::u16string root = folder.path().u16string();
    EXPECT_TRUE(plat::PathFileExistsW(root.c_str()));
    EXPECT_FALSE(plat::PathFileExistsW((root + native(u"/missing")).c_str()));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(plat::PathFileExistsW((root + native(u"/no/such")).c_str()));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_PATH_NOT_FOUND);
}

#ifndef _WIN32
// A dangling link is a name that is taken: a new file there would be written through it.
TEST(PathFileExists, CountsDanglingLinks) {
    const velq_test::TempFolder folder("velq-paths-");
    ASSERT_FALSE(folder.path().empty());
    const std::filesystem::path link = folder.path() / "dangling";
    ASSERT_EQ(::symlink("/nonexistent/velq-target", link.c_str()), 0);
    EXPECT_TRUE(plat::PathFileExistsW(link.u16string().c_str()));
}
#endif

TEST(CharLower, LowersLatinGreekCyrillicInPlace) {
    std::u16string text = u"ABC.LQVZ ÀÉÖØÞ ĀĹŸŽ ΑΒΓΆΏΣ АБВЁЯЇ Ԁ";
    EXPECT_EQ(plat::CharLowerW(text.data()), text.data());
    EXPECT_EQ(text, u"abc.lqvz àéöøþ āĺÿž αβγάώσ абвёяї ԁ");
}

TEST(CharLower, LeavesSignsSurrogatesAndLowerCaseAlone) {
    std::u16string text = u"×÷ß already lower 123 \U0001F600";
    const std::u16string before = text;
    plat::CharLowerW(text.data());
    EXPECT_EQ(text, before);
    EXPECT_EQ(plat::CharLowerW(nullptr), nullptr);
}

}  // namespace
