#include "plat/format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

namespace {

// Formats into a generous buffer; the result and its return value together.
struct Formatted {
    std::u16string text;
    int result;
};

template <typename... Args>
Formatted fmt(const char16_t* format, Args... args) {
    char16_t buffer[256];
    const int result = plat::format16(buffer, 256, format, args...);
    return {buffer, result};
}

std::u16string text(const char16_t* format, auto... args) {
    return fmt(format, args...).text;
}

TEST(Format16, IntegersWithSizesAndBases) {
    EXPECT_EQ(text(u"%d %i %u", -42, 7, 4000000000u), u"-42 7 4000000000");
    EXPECT_EQ(text(u"%x %X %o", 0xbeefu, 0xbeefu, 8u), u"beef BEEF 10");
    EXPECT_EQ(text(u"%lld %llu", LLONG_MIN, ULLONG_MAX), u"-9223372036854775808 18446744073709551615");
    EXPECT_EQ(text(u"%ld %zu %I64d", -5L, std::size_t{12}, 64LL), u"-5 12 64");
    EXPECT_EQ(text(u"%hd %hhu", 70000, 300), u"4464 44");  // narrowed as the size flag says
    EXPECT_EQ(text(u"0x%x", static_cast<unsigned>(0x80004005)), u"0x80004005");
}

TEST(Format16, FlagsWidthAndPrecision) {
    EXPECT_EQ(text(u"[%5d][%-5d][%05d]", 42, 42, -42), u"[   42][42   ][-0042]");
    EXPECT_EQ(text(u"[%+d][% d][%+d]", 5, 5, -5), u"[+5][ 5][-5]");
    EXPECT_EQ(text(u"[%#x][%#X][%#o][%#x][%#o]", 255u, 255u, 8u, 0u, 0u), u"[0xff][0XFF][010][0][0]");
    EXPECT_EQ(text(u"[%.3d][%8.3d][%.0d]", 7, -7, 0), u"[007][    -007][]");
    EXPECT_EQ(text(u"[%03d][%03d][%.3d][%d]", 7, 0, 0, 0), u"[007][000][000][0]");
    EXPECT_EQ(text(u"[%*d][%-*d][%.*d]", 4, 1, 3, 2, 2, 3), u"[   1][2  ][03]");
    EXPECT_EQ(text(u"[%*d]", -4, 1), u"[1   ]");  // a negative '*' width means '-'
}

TEST(Format16, TextCharactersAndPercent) {
    EXPECT_EQ(text(u"%s = %s", u"lpCmdLine", u"1::C:\\a\\b.txt::1"), u"lpCmdLine = 1::C:\\a\\b.txt::1");
    EXPECT_EQ(text(u"[%s]", static_cast<const char16_t*>(nullptr)), u"[(null)]");
    EXPECT_EQ(text(u"[%6s][%-6s][%.2s]", u"ab", u"ab", u"abcdef"), u"[    ab][ab    ][ab]");
    EXPECT_EQ(text(u"%c%c%%", u'\u00e9', u'x'), u"\u00e9x%");
    // A "%s" inside an argument is text, not a format.
    EXPECT_EQ(text(u"file %s", u"C:\\%s\\%d.txt"), u"file C:\\%s\\%d.txt");
}

TEST(Format16, PointersAndFloats) {
    int local = 0;
    const std::u16string pointer = text(u"%p", static_cast<void*>(&local));
    EXPECT_EQ(pointer.substr(0, 2), u"0x");
    EXPECT_GT(pointer.size(), 2u);
    EXPECT_EQ(text(u"%.2f|%8.3f|%-8.1f|", 3.14159, -2.5, 1.0), u"3.14|  -2.500|1.0     |");
    EXPECT_EQ(text(u"%e|%g|%G", 12345.678, 0.0001, 1e20), u"1.234568e+04|0.0001|1E+20");
    EXPECT_EQ(text(u"%08.2f", -1.5), u"-0001.50");
}

TEST(Format16, ResultThatDoesNotFitIsCutAndNegative) {
    char16_t buffer[6];
    EXPECT_EQ(plat::format16(buffer, 6, u"%s", u"abcdefgh"), -1);
    EXPECT_EQ(std::u16string(buffer), u"abcde");
    EXPECT_EQ(plat::format16(buffer, 6, u"abcde"), 5);  // exactly fills: no cut
    EXPECT_EQ(plat::format16(buffer, 6, u"%10d", 1), -1);
    EXPECT_EQ(std::u16string(buffer), u"     ");
    EXPECT_EQ(plat::format16(buffer, 1, u"x"), -1);
    EXPECT_EQ(buffer[0], u'\0');
    EXPECT_EQ(plat::format16(buffer, 0, u"x"), -1);
    EXPECT_EQ(plat::format16(nullptr, 6, u"x"), -1);
    EXPECT_EQ(plat::format16(buffer, 6, nullptr), -1);
}

TEST(Format16, HugeWidthsStopAtTheBuffer) {
    char16_t buffer[16];
    EXPECT_EQ(plat::format16(buffer, 16, u"%999999999d", 1), -1);
    EXPECT_EQ(std::u16string(buffer), std::u16string(15, u' '));
    EXPECT_EQ(plat::format16(buffer, 16, u"%.999999999f", 1.0), -1);
    EXPECT_EQ(std::u16string(buffer), u"1.0000000000000");
}

TEST(Format16, BadSpecsKeepTheTextSoFarAndFail) {
    EXPECT_EQ(fmt(u"ab%").result, -1);
    EXPECT_EQ(fmt(u"ab%").text, u"ab");
    EXPECT_EQ(fmt(u"ab%-0+ #12.").result, -1);  // ends inside the conversion
    EXPECT_EQ(fmt(u"x%qy").result, -1);
    EXPECT_EQ(fmt(u"x%qy").text, u"x");
    int written = 0;
    EXPECT_EQ(fmt(u"%n", &written).result, -1);  // never writes through an argument
    EXPECT_EQ(written, 0);
}

}  // namespace
