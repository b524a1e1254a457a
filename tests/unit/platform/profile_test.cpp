#include "plat/profile.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "plat/errors.h"
#include "plat/strings.h"

namespace {

TEST(ProfileParse, SectionsAndKeysIgnoreCaseCommentsAndBlanks) {
    const std::u16string ini =
        u"; comment\r\n[Other]\r\nLevel=9\r\n  [ log ]  \r\n;Level=8\r\n  LEVEL  =  3  \r\nPath = \"C:\\a "
        u"b\" \r\n";
    EXPECT_EQ(plat::findProfileValue(ini, u"LOG", u"level"), u"3");
    EXPECT_EQ(plat::findProfileValue(ini, u"other", u"Level"), u"9");
    EXPECT_EQ(plat::findProfileValue(ini, u"LOG", u"Path"), u"C:\\a b");  // quotes dropped
    EXPECT_FALSE(plat::findProfileValue(ini, u"LOG", u"Missing"));
    EXPECT_FALSE(plat::findProfileValue(ini, u"Nowhere", u"Level"));
}

TEST(ProfileParse, FirstKeyWinsAndOddLinesAreHarmless) {
    const std::u16string ini = u"[LOG]\nA=1\nA=2\nno equals sign\n=empty key\n[unclosed\nA=3\nB='x\n";
    EXPECT_EQ(plat::findProfileValue(ini, u"LOG", u"A"), u"1");
    EXPECT_EQ(plat::findProfileValue(ini, u"unclosed", u"A"), u"3");
    EXPECT_EQ(plat::findProfileValue(ini, u"unclosed", u"B"), u"'x");  // unmatched quote stays
    EXPECT_EQ(plat::findProfileValue(ini, u"LOG", u""), u"empty key");
    EXPECT_FALSE(plat::findProfileValue(u"", u"LOG", u"A"));
}

class ProfileFile : public ::testing::Test {
protected:
    void SetUp() override {
        char folder[] = "/tmp/velq-profile-XXXXXX";
        ASSERT_NE(::mkdtemp(folder), nullptr);
        m_folder = folder;
        m_path = m_folder + "/DbgLog.ini";
    }
    void TearDown() override {
        ::unlink(m_path.c_str());
        ::rmdir(m_folder.c_str());
    }
    void write(const std::string& bytes) { std::ofstream(m_path, std::ios::binary) << bytes; }
    std::u16string path() const { return plat::fromUtf8(m_path); }
    plat::UINT intOf(const char16_t* key, int fallback = 77) {
        return plat::GetPrivateProfileIntW(u"LOG", key, fallback, path().c_str());
    }

    std::string m_folder;
    std::string m_path;
};

TEST_F(ProfileFile, NumbersFollowTheWindowsRules) {
    write("[LOG]\nPlain=12\nTrail=12abc\nWord=abc\nEmpty=\nMinus=-1\nHex=0x1F\nBlank= 5 \nHuge=4294967297\n");
    EXPECT_EQ(intOf(u"Plain"), 12u);
    EXPECT_EQ(intOf(u"Trail"), 12u);  // stops at the first non-digit
    EXPECT_EQ(intOf(u"Word"), 0u);    // present but not a number
    EXPECT_EQ(intOf(u"Empty"), 0u);
    EXPECT_EQ(intOf(u"Minus"), 0xFFFFFFFFu);
    EXPECT_EQ(static_cast<int>(intOf(u"Minus")), -1);
    EXPECT_EQ(intOf(u"Hex"), 31u);
    EXPECT_EQ(intOf(u"Blank"), 5u);
    EXPECT_EQ(intOf(u"Huge"), 1u);  // wraps
    EXPECT_EQ(intOf(u"Missing"), 77u);
    EXPECT_EQ(intOf(u"Missing", -3), static_cast<plat::UINT>(-3));
}

TEST_F(ProfileFile, MissingFileGivesDefaults) {
    EXPECT_EQ(intOf(u"Level", 4), 4u);
    char16_t buffer[16];
    EXPECT_EQ(plat::GetPrivateProfileStringW(u"LOG", u"LogFile", u"dflt", buffer, 16, path().c_str()), 4u);
    EXPECT_EQ(std::u16string(buffer), u"dflt");
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(plat::GetPrivateProfileIntW(u"LOG", u"Level", 6, u""), 6u);
    EXPECT_EQ(plat::GetPrivateProfileIntW(u"LOG", u"Level", 6, nullptr), 6u);
}

TEST_F(ProfileFile, StringsAreCutToTheBufferAndCountedWithoutNul) {
    write("[LOG]\nLogFile=/var/log/velq.txt\n");
    char16_t buffer[8];
    EXPECT_EQ(plat::GetPrivateProfileStringW(u"log", u"logfile", u"", buffer, 8, path().c_str()), 7u);
    EXPECT_EQ(std::u16string(buffer), u"/var/lo");
    char16_t wide[64];
    EXPECT_EQ(plat::GetPrivateProfileStringW(u"LOG", u"LogFile", u"", wide, 64, path().c_str()), 17u);
    EXPECT_EQ(std::u16string(wide), u"/var/log/velq.txt");
    EXPECT_EQ(plat::GetPrivateProfileStringW(u"LOG", u"Other", u"def  ", wide, 64, path().c_str()), 3u);
    EXPECT_EQ(std::u16string(wide), u"def");  // trailing blanks of the default go
    EXPECT_EQ(plat::GetPrivateProfileStringW(u"LOG", u"Other", nullptr, wide, 64, path().c_str()), 0u);
    EXPECT_EQ(wide[0], u'\0');
    EXPECT_EQ(plat::GetPrivateProfileStringW(u"LOG", nullptr, u"d", wide, 64, path().c_str()), 1u);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_NOT_SUPPORTED);
}

TEST_F(ProfileFile, ByteOrderMarksSelectTheEncoding) {
    write("\xEF\xBB\xBF[LOG]\nName=\xC3\xA9t\xC3\xA9\n");
    char16_t buffer[16];
    plat::GetPrivateProfileStringW(u"LOG", u"Name", u"", buffer, 16, path().c_str());
    EXPECT_EQ(std::u16string(buffer), u"\u00e9t\u00e9");

    const std::u16string wide = u"[LOG]\r\nLevel=3\r\n";
    std::string bytes = "\xFF\xFE";
    for (const char16_t unit : wide) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
    }
    write(bytes);
    EXPECT_EQ(intOf(u"Level"), 3u);
}

}  // namespace
