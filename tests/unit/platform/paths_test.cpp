#include "plat/paths.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "plat/errors.h"
#include "plat/strings.h"

namespace {

std::u16string extensionOf(const char16_t* path) {
    return plat::PathFindExtensionW(path);
}

TEST(PathFindExtension, TakesTheLastDotOfTheLastComponentOnly) {
    EXPECT_EQ(extensionOf(u"/a/b.txt.lqvz"), u".lqvz");
    EXPECT_EQ(extensionOf(u"/a.dir/name"), u"");
    EXPECT_EQ(extensionOf(u"name."), u".");
    EXPECT_EQ(extensionOf(u".profile"), u".profile");
    const char16_t* noExtension = u"/x/readme";
    EXPECT_EQ(plat::PathFindExtensionW(noExtension), noExtension + 9);  // the terminating NUL
    EXPECT_EQ(plat::PathFindExtensionW(nullptr), nullptr);
}

TEST(PathFindFileName, SkipsTrailingSeparatorsAsWindowsDoes) {
    EXPECT_EQ(std::u16string(plat::PathFindFileNameW(u"/a/b/c.txt")), u"c.txt");
    EXPECT_EQ(std::u16string(plat::PathFindFileNameW(u"/a/b/")), u"b/");
    EXPECT_EQ(std::u16string(plat::PathFindFileNameW(u"plain")), u"plain");
    EXPECT_EQ(plat::PathFindFileNameW(nullptr), nullptr);
}

TEST(PathFileExists, CountsDanglingLinksAndTellsMissingParents) {
    char root[] = "/tmp/velq-paths-XXXXXX";
    ASSERT_NE(::mkdtemp(root), nullptr);
    const std::string link = std::string(root) + "/dangling";
    ASSERT_EQ(::symlink("/nonexistent/velq-target", link.c_str()), 0);
    EXPECT_TRUE(plat::PathFileExistsW(plat::fromUtf8(link).c_str()));
    EXPECT_TRUE(plat::PathFileExistsW(plat::fromUtf8(root).c_str()));

    EXPECT_FALSE(plat::PathFileExistsW(plat::fromUtf8(std::string(root) + "/missing").c_str()));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(plat::PathFileExistsW(plat::fromUtf8(std::string(root) + "/no/such").c_str()));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_PATH_NOT_FOUND);
    ::unlink(link.c_str());
    ::rmdir(root);
}

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
