// The shell's URL escaping as the search uses it (flags 0x2001000), the search query read back, and the
// files a query finds.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "plat/errors.h"
#include "plat/shell.h"
#include "plat/strings.h"
#include "temp_folder.h"

namespace {

using namespace plat;

constexpr DWORD kSearchFlags = URL_DONT_ESCAPE_EXTRA_INFO | URL_ESCAPE_PERCENT;

// The escaped text, or "<hr>" with the code when the call failed.
std::u16string escape(std::u16string_view url, DWORD flags = kSearchFlags, DWORD capacity = 260) {
    std::vector<WCHAR> buffer(capacity + 1, u'#');
    DWORD count = capacity;
    const HRESULT hr = UrlEscapeW(std::u16string(url).c_str(), buffer.data(), &count, flags);
    if (hr != S_OK) {
        return u"<hr>";
    }
    EXPECT_EQ(buffer[count], u'\0');
    return std::u16string(buffer.data(), count);
}

TEST(UrlEscape, EscapesEachUnsafeCharacterOfTheDocumentedTable) {
    EXPECT_EQ(escape(u"^&`{}|][\"<>\\"), u"%5E%26%60%7B%7D%7C%5D%5B%22%3C%3E%5C");
    EXPECT_EQ(escape(u"/home/a b"), u"/home/a%20b");
    // Letters, digits and the characters a path is made of stay as they are.
    EXPECT_EQ(escape(u"/media/USB-1/x_y.z~(2)+!$',=:@*"), u"/media/USB-1/x_y.z~(2)+!$',=:@*");
}

TEST(UrlEscape, PercentIsEscapedOnlyWhenAskedFor) {
    EXPECT_EQ(escape(u"/100%/a%20b"), u"/100%25/a%2520b");
    EXPECT_EQ(escape(u"/100%/a%20b", URL_DONT_ESCAPE_EXTRA_INFO), u"/100%/a%20b");
}

TEST(UrlEscape, TheQueryAfterTheFirstQuestionMarkOrHashStaysAsItIs) {
    // The documented division: server and segment before the first '?' or '#', the query after it.
    EXPECT_EQ(escape(u"http://microsoft.com/test.asp?url=/example/abc.asp?frame=true#fragment"),
              u"http://microsoft.com/test.asp?url=/example/abc.asp?frame=true#fragment");
    EXPECT_EQ(escape(u"/a b?c d#e f"), u"/a%20b?c d#e f");
    EXPECT_EQ(escape(u"/a b#c d?e f"), u"/a%20b#c d?e f");
}

TEST(UrlEscape, ControlAndLatin1UnitsAreEscapedWiderUnitsAreNot) {
    EXPECT_EQ(escape(u"\x01\x1f\x7f\u00e9"), u"%01%1F%7F%E9");
    EXPECT_EQ(escape(u"/\u4e2d\u6587"), u"/\u4e2d\u6587");
}

TEST(UrlEscape, AResultThatDoesNotFitWritesNothingAndSaysTheSizeNeeded) {
    WCHAR buffer[8] = {u'k', u'e', u'p', u't', 0, 0, 0, 0};
    DWORD count = 8;
    EXPECT_EQ(UrlEscapeW(u"/a b c", buffer, &count, kSearchFlags), E_POINTER);
    EXPECT_EQ(count, 11u);  // "/a%20b%20c" and its NUL
    EXPECT_EQ(std::u16string(buffer), u"kept");
    // Exactly room for the text and its NUL.
    count = 11;
    WCHAR exact[11];
    EXPECT_EQ(UrlEscapeW(u"/a b c", exact, &count, kSearchFlags), S_OK);
    EXPECT_EQ(count, 10u);
    EXPECT_EQ(escape(u"abc", kSearchFlags, 3), u"<hr>");
}

TEST(UrlEscape, RefusesNullArgumentsAndFlagsItDoesNotKnow) {
    WCHAR buffer[4];
    DWORD count = 4;
    EXPECT_EQ(UrlEscapeW(nullptr, buffer, &count, kSearchFlags), E_INVALIDARG);
    EXPECT_EQ(UrlEscapeW(u"a", nullptr, &count, kSearchFlags), E_INVALIDARG);
    EXPECT_EQ(UrlEscapeW(u"a", buffer, nullptr, kSearchFlags), E_INVALIDARG);
    count = 0;
    EXPECT_EQ(UrlEscapeW(u"a", buffer, &count, kSearchFlags), E_INVALIDARG);
#ifndef _WIN32
    // The emulation knows the search's flags only; the shell's call knows them all.
    count = 4;
    EXPECT_EQ(UrlEscapeW(u"a", buffer, &count, URL_ESCAPE_SPACES_ONLY), E_INVALIDARG);
#endif
}

TEST(SearchQuery, ReadsPatternAndLocationsBackUnescaped) {
    const SearchQuery query = parseSearchQuery(
        u"search-ms:query=*.lqvz&crumb=location:/a%20b/100%25&crumb=location:&crumb=location:/usb");
    ASSERT_TRUE(query.valid);
    EXPECT_EQ(query.pattern, u"*.lqvz");
    EXPECT_EQ(query.locations, (std::vector<std::u16string>{u"/a b/100%", u"/usb"}));
    // Every path survives escaping and reading back.
    const std::u16string path = u"/x y/%41%/^{}\u00e9";
    EXPECT_EQ(urlUnescape(escape(path)), path);
}

TEST(SearchQuery, RefusesTextsThatAreNoSearch) {
    EXPECT_FALSE(parseSearchQuery(u"").valid);
    EXPECT_FALSE(parseSearchQuery(u"http://example.com/").valid);
    EXPECT_FALSE(parseSearchQuery(u"search-ms:crumb=location:/a").valid);
#ifndef _WIN32
    // On Windows the system's UI opens every other file with the shell.
    SetLastError(0);
    EXPECT_EQ(ShellExecuteW(nullptr, nullptr, u"/etc/passwd", nullptr, nullptr, 1), SE_ERR_NOASSOC);
    EXPECT_EQ(GetLastError(), ERROR_NO_ASSOCIATION);
    EXPECT_EQ(ShellExecuteW(nullptr, nullptr, nullptr, nullptr, nullptr, 1), SE_ERR_NOASSOC);
#endif
}

TEST(SearchQuery, FindsFittingRegularFilesAtEveryDepthWithoutFollowingLinks) {
    const velq_test::TempFolder folder("velq-search-");
    const std::filesystem::path& root = folder.path();
    ASSERT_FALSE(root.empty());
    std::filesystem::create_directories(root / "a" / "b");
    std::filesystem::create_directories(root / "outside");
    for (const char* name : {"a/one.lqvz", "a/b/two.LqVz", "a/three.lqvz.bak", "outside/four.lqvz"}) {
        std::ofstream(root / std::filesystem::path(name).make_preferred()) << "x";
    }
#ifndef _WIN32
    // Links to folders are POSIX's everyday (on Windows they need a privilege).
    std::filesystem::create_directory_symlink(root / "outside", root / "a/link");
#endif
    const std::vector<std::u16string> found = findMatchingFiles(u"*.lqvz", {(root / "a").u16string()});
    EXPECT_EQ(found, (std::vector<std::u16string>{(root / "a" / "b" / "two.LqVz").u16string(),
                                                  (root / "a" / "one.lqvz").u16string()}));
    EXPECT_TRUE(findMatchingFiles(u"*.lqvz", {(root / "missing").u16string()}).empty());
}

}  // namespace
