// Text conversions, the last error and handles, on every system.
#include <gtest/gtest.h>

#include <cerrno>

#include "plat/errors.h"
#include "plat/handle.h"
#include "plat/strings.h"

namespace {

TEST(Utf, RoundTripsEveryPlaneAndReplacesBrokenSequences) {
    const std::u16string text = u"a\u00e9\u4e2d\U0001F600z";
    EXPECT_EQ(plat::toUtf8(text), "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80z");
    EXPECT_EQ(plat::fromUtf8(plat::toUtf8(text)), text);
    EXPECT_EQ(plat::toUtf8(std::u16string(1, u'\xD800')), "\xEF\xBF\xBD");  // a lone surrogate
}

// A cut sequence, an overlong form and an encoded surrogate become U+FFFD and take nothing else with them.
// (How many U+FFFD each gives differs between systems.)
TEST(Utf, BrokenSequencesBecomeReplacementCharactersOnly) {
    for (const char* broken : {"\xE4\xB8", "\xC0\xAF", "\xED\xA0\x80", "\xFF"}) {
        const std::u16string text = plat::fromUtf8(std::string("a") + broken + "z");
        ASSERT_GE(text.size(), 3u) << broken;
        EXPECT_EQ(text.front(), u'a');
        EXPECT_EQ(text.back(), u'z');
        EXPECT_EQ(text.find_first_not_of(u'\uFFFD', 1), text.size() - 1) << broken;
    }
}

#ifndef _WIN32
// Each byte that starts no whole sequence is one U+FFFD.
TEST(Utf, EachBrokenByteBecomesOneReplacementCharacter) {
    EXPECT_EQ(plat::fromUtf8("\xE4\xB8"), u"\uFFFD\uFFFD");
    EXPECT_EQ(plat::fromUtf8("\xC0\xAF"), u"\uFFFD\uFFFD");
    EXPECT_EQ(plat::fromUtf8("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");
}
#endif

TEST(Utf, CopyTruncatedCutsAtCapacityLessOne) {
    char16_t buffer[4] = {u'x', u'x', u'x', u'x'};
    EXPECT_EQ(plat::copyTruncated(u"abcdef", buffer, 4), 3u);
    EXPECT_EQ(std::u16string(buffer), u"abc");
    EXPECT_EQ(plat::copyTruncated(u"abc", buffer, 0), 0u);
    EXPECT_EQ(plat::wcslen16(nullptr), 0u);
}

TEST(Errors, LastErrorIsWhatWasSetLast) {
    plat::SetLastError(123);
    EXPECT_EQ(plat::GetLastError(), 123u);
    plat::SetLastError(0);
    EXPECT_EQ(plat::GetLastError(), 0u);
}

#ifndef _WIN32
// The emulation's table from errno to the numbers that Windows gives for the same failures.
TEST(Errors, ErrnoMapsToWin32Numbers) {
    EXPECT_EQ(plat::errorFromErrno(ENOENT), 2u);
    EXPECT_EQ(plat::errorFromErrno(ENOTDIR), 3u);
    EXPECT_EQ(plat::errorFromErrno(ENAMETOOLONG), 3u);
    EXPECT_EQ(plat::errorFromErrno(EACCES), 5u);
    EXPECT_EQ(plat::errorFromErrno(EPERM), 5u);
    EXPECT_EQ(plat::errorFromErrno(EISDIR), 5u);
    EXPECT_EQ(plat::errorFromErrno(EROFS), 19u);
    EXPECT_EQ(plat::errorFromErrno(EWOULDBLOCK), 32u);
    EXPECT_EQ(plat::errorFromErrno(EEXIST), 80u);
    EXPECT_EQ(plat::errorFromErrno(ENOSPC), 112u);
    EXPECT_EQ(plat::errorFromErrno(EDQUOT), 112u);
    EXPECT_EQ(plat::errorFromErrnoForPath(ENOENT, "/no-such-folder-velq/x"), 3u);
    EXPECT_EQ(plat::errorFromErrnoForPath(ENOENT, "/tmp/no-such-file-velq"), 2u);
}
#endif

TEST(Handles, CloseHandleRefusesNullAndInvalid) {
    plat::SetLastError(0);
    EXPECT_EQ(plat::CloseHandle(nullptr), plat::FALSE);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_INVALID_HANDLE);
#ifndef _WIN32
    // On Windows the same value is the process's own pseudo handle, which "closes" without error.
    EXPECT_EQ(plat::CloseHandle(plat::INVALID_HANDLE_VALUE), plat::FALSE);
#endif
}

}  // namespace
