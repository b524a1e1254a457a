// Language selection: the user's language from the environment, locale names, the thread's preferred
// languages, the match against the table and initThreadLanguage.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "plat/errors.h"
#include "plat/language.h"
#include "plat/resources.h"
#include "plat/strings.h"
#include "test_environment.h"
#include "ui/Language.h"
#include "ui/ResourceHelper.h"

namespace {

constexpr const char* kVariables[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};

// Each test starts with none of the four variables set and a thread without languages, and leaves the
// process as it found it.
class LanguageTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : kVariables) {
            m_saved.push_back(plat::environmentValue(name));
            setEnvironment(name, nullptr);
        }
    }
    void TearDown() override {
        for (std::size_t i = 0; i < m_saved.size(); ++i) {
            if (m_saved[i]) {
                setEnvironment(kVariables[i], m_saved[i]->c_str());
            } else {
                setEnvironment(kVariables[i], nullptr);
            }
        }
        plat::SetThreadPreferredUILanguages(0, nullptr, nullptr);
        plat::SetThreadLocale(plat::LANG_ENGLISH_US);
        plat::useStringTable({});
    }

    std::vector<std::optional<std::string>> m_saved;
};

TEST_F(LanguageTest, TheFirstVariableThatIsSetAndNotEmptyWins) {
    EXPECT_EQ(plat::GetUserDefaultUILanguage(), 1033) << "nothing set";
    setEnvironment("LANG", "fr_FR.UTF-8");
    EXPECT_EQ(plat::GetUserDefaultUILanguage(), 1036);
    setEnvironment("LC_MESSAGES", "it_IT");
    EXPECT_EQ(plat::GetUserDefaultUILanguage(), 1040);
    setEnvironment("LC_ALL", "es_ES");
    EXPECT_EQ(plat::GetUserDefaultUILanguage(), 3082);
    setEnvironment("LANGUAGE", "");
    EXPECT_EQ(plat::GetUserDefaultUILanguage(), 3082) << "an empty LANGUAGE counts as not set";
    setEnvironment("LANGUAGE", "de:en");
    EXPECT_EQ(plat::GetUserDefaultUILanguage(), 7) << "the first entry of the list";
}

// The POSIX layer's own reading of locale values; the Windows program asks the system for its languages.
#ifndef _WIN32
TEST_F(LanguageTest, PosixLocaleValuesGiveWindowsLanguageIds) {
    EXPECT_EQ(plat::langIdFromPosixLocale("de_DE.UTF-8"), 1031);
    EXPECT_EQ(plat::langIdFromPosixLocale("de_AT.ISO-8859-1@euro"), 3079);
    EXPECT_EQ(plat::langIdFromPosixLocale("de_XX"), 7) << "unknown region: the neutral language";
    EXPECT_EQ(plat::langIdFromPosixLocale("pt_BR.utf8"), 1046);
    EXPECT_EQ(plat::langIdFromPosixLocale("pt_PT"), 2070);
    EXPECT_EQ(plat::langIdFromPosixLocale("zh_SG.GB2312"), 4100);
    EXPECT_EQ(plat::langIdFromPosixLocale("C"), 1033);
    EXPECT_EQ(plat::langIdFromPosixLocale("POSIX"), 1033);
    EXPECT_EQ(plat::langIdFromPosixLocale("tlh_QO"), 1033) << "unknown language";
    EXPECT_EQ(plat::langIdFromPosixLocale(""), 1033);
}
#endif

TEST_F(LanguageTest, LocaleNamesRoundTrip) {
    char16_t name[90];
    EXPECT_EQ(plat::LCIDToLocaleName(1031, name, 90, 0), 6);
    EXPECT_EQ(std::u16string(name), u"de-DE");
    EXPECT_EQ(plat::LCIDToLocaleName(3076, nullptr, 0, 0), 6) << "capacity 0 asks for the size";

    EXPECT_EQ(plat::LCIDToLocaleName(1031, name, 5, 0), 0);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_INSUFFICIENT_BUFFER);

    EXPECT_EQ(plat::LocaleNameToLCID(u"pt-BR", 0), 1046u);
    EXPECT_EQ(plat::LocaleNameToLCID(u"PT_br", 0), 1046u);
    EXPECT_EQ(plat::LocaleNameToLCID(u"qq-QQ", 0), 0u);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_INVALID_PARAMETER);
}

// The POSIX layer's own table of locales. Windows knows more of them (0x0C3B is Northern Sami in Finland;
// "sv-AX" is a locale of its own there, 0x1000) and Wine names the neutral 7 "de-DE".
#ifndef _WIN32
TEST_F(LanguageTest, TheLayersTableKnowsTheProgramsLanguagesAndTheirNeutrals) {
    char16_t name[90];
    EXPECT_EQ(plat::LCIDToLocaleName(7, name, 90, 0), 3);
    EXPECT_EQ(std::u16string(name), u"de");
    EXPECT_EQ(plat::LCIDToLocaleName(0x0C3B, name, 90, 0), 0);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(plat::LocaleNameToLCID(u"sv-AX", 0), 29u) << "an unknown region gives the neutral language";
}
#endif

TEST_F(LanguageTest, PreferredLanguagesAreAListOfNames) {
    plat::ULONG count = 99;
    EXPECT_EQ(plat::GetThreadUILanguage(), 1033) << "a thread that set nothing";
    ASSERT_TRUE(
        plat::SetThreadPreferredUILanguages(plat::MUI_LANGUAGE_NAME, u"qq-QQ\0fr-CA\0de-DE\0", &count));
    EXPECT_EQ(count, 2u) << "unknown names are skipped";
    EXPECT_EQ(plat::GetThreadUILanguage(), 3084);

    plat::SetLastError(0);
    EXPECT_FALSE(plat::SetThreadPreferredUILanguages(plat::MUI_LANGUAGE_ID | plat::MUI_LANGUAGE_NAME, u"de\0",
                                                     nullptr));
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(plat::GetThreadUILanguage(), 3084) << "a refused call changes nothing";

    ASSERT_TRUE(plat::SetThreadPreferredUILanguages(0, nullptr, &count));
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(plat::GetThreadUILanguage(), 1033);
}

TEST_F(LanguageTest, ThreadLocaleTakesKnownLocalesOnly) {
    setEnvironment("LANG", "ru_RU.UTF-8");
    initThreadLanguage();
    EXPECT_EQ(plat::GetThreadLocale(), 1049u);
    EXPECT_FALSE(plat::SetThreadLocale(0x0C3B));
    EXPECT_EQ(plat::GetThreadLocale(), 1049u);
}

// The matching rule, against a table with the languages that make its cases.
class MatchingTest : public LanguageTest {
protected:
    void SetUp() override {
        LanguageTest::SetUp();
        for (const plat::LANGID language : {7, 22, 1033, 1046, 2052, 3076}) {
            m_entries.push_back(plat::StringTableEntry{language, 1, u"x"});
        }
        plat::useStringTable(m_entries);
    }
    std::vector<plat::StringTableEntry> m_entries;
};

TEST_F(MatchingTest, ExactThenChineseScriptThenNeutralElseNone) {
    EXPECT_EQ(plat::tableLanguageFor(7), 7) << "a neutral language the table holds";
    EXPECT_EQ(plat::tableLanguageFor(1031), 7) << "a region of it";
    EXPECT_EQ(plat::tableLanguageFor(3079), 7);
    EXPECT_EQ(plat::tableLanguageFor(1046), 1046) << "Brazil has its own texts";
    EXPECT_EQ(plat::tableLanguageFor(2070), 22) << "Portugal takes the neutral Portuguese";
    EXPECT_EQ(plat::tableLanguageFor(22), 22);
    EXPECT_EQ(plat::tableLanguageFor(2052), 2052);
    EXPECT_EQ(plat::tableLanguageFor(4100), 2052) << "Singapore writes simplified";
    EXPECT_EQ(plat::tableLanguageFor(4), 2052);
    EXPECT_EQ(plat::tableLanguageFor(1028), 3076) << "Taiwan writes traditional";
    EXPECT_EQ(plat::tableLanguageFor(5124), 3076) << "Macao writes traditional";
    EXPECT_EQ(plat::tableLanguageFor(1036), 0) << "French is not in this table";
    EXPECT_EQ(plat::tableLanguageFor(2057), 0) << "nor British English: the caller falls back";
}

TEST_F(MatchingTest, TheThreadTakesItsFirstMatchingLanguageElseEnglish) {
    EXPECT_EQ(plat::threadTableLanguage(), 1033);
    plat::SetThreadPreferredUILanguages(plat::MUI_LANGUAGE_NAME, u"fr-FR\0zh-HK\0de-CH\0", nullptr);
    EXPECT_EQ(plat::threadTableLanguage(), 3076);
    plat::SetThreadPreferredUILanguages(plat::MUI_LANGUAGE_NAME, u"uk-UA\0", nullptr);
    EXPECT_EQ(plat::threadTableLanguage(), 1033);
}

// With the program's own table: what a user of each kind of language reads.
std::u16string tableText(plat::LANGID language, plat::UINT id) {
    const plat::StringTableEntry* entry = plat::findTableText(language, id);
    return entry != nullptr ? std::u16string(entry->text) : u"<none>";
}

// The thread's own list of languages chooses the texts on every system (on Windows, LoadStringW finds them
// among the module's resources), and it belongs to the thread that set it.
TEST_F(LanguageTest, TheThreadsLanguagesChooseItsTextsAndNoOtherThreads) {
    struct Case {
        const char16_t* list;  // entries ended by an empty one
        plat::LANGID tableLanguage;
    };
    const Case cases[] = {
        {u"de\0", 7},        // a neutral language of the table
        {u"sv-FI\0", 29},    // a region of it
        {u"pt-BR\0", 1046},  // a region with texts of its own
        {u"zh-TW\0", 3076},  // Chinese by script
        {u"uk-UA\0", 1033},  // a language the table lacks: English
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(plat::SetThreadPreferredUILanguages(plat::MUI_LANGUAGE_NAME, c.list, nullptr));
        const std::string listed = plat::toUtf8(c.list);
        EXPECT_EQ(loadResString(1018), tableText(c.tableLanguage, 1018)) << listed;
        EXPECT_EQ(ResourceHelper::getStrFromRes(1059, nullptr), tableText(c.tableLanguage, 1059)) << listed;
    }
    std::u16string szOther;
    std::thread worker([&] { szOther = loadResString(1018); });
    worker.join();
    EXPECT_EQ(szOther, u"Error") << "a new thread starts in English";
    EXPECT_NE(tableText(7, 1018), u"Error") << "the German table must differ for the cases to mean anything";
}

TEST_F(LanguageTest, EachKindOfLanguageReadsTheTextsTheRuleGives) {
    struct Case {
        const char* variable;
        const char* value;
        plat::LANGID tableLanguage;
    };
    const Case cases[] = {
        {"LANG", "de", 7},                // a neutral language of the table
        {"LC_ALL", "sv_FI.UTF-8", 29},    // a region of it
        {"LANG", "pt_BR.UTF-8", 1046},    // a region with texts of its own
        {"LANG", "zh_TW.UTF-8", 3076},    // Chinese by script
        {"LANGUAGE", "uk:de", 1033},      // a language the table lacks: English, not the list's second
        {"LC_MESSAGES", "tlh_QO", 1033},  // a language nobody knows
    };
    for (const Case& c : cases) {
        for (const char* name : kVariables) {
            setEnvironment(name, nullptr);
        }
        setEnvironment(c.variable, c.value);
        initThreadLanguage();
        EXPECT_EQ(loadResString(1018), tableText(c.tableLanguage, 1018)) << c.value;
        EXPECT_EQ(ResourceHelper::getStrFromRes(1059, nullptr), tableText(c.tableLanguage, 1059)) << c.value;
    }
    EXPECT_NE(tableText(7, 1018), u"Error") << "the German table must differ for the cases to mean anything";
}

TEST_F(LanguageTest, TheLanguageBelongsToTheThreadThatSetIt) {
    setEnvironment("LANG", "fr_FR.UTF-8");
    initThreadLanguage();
    std::u16string szOther, szOtherAfterInit;
    std::thread worker([&] {
        szOther = loadResString(1018);
        initThreadLanguage();
        szOtherAfterInit = loadResString(1018);
        plat::SetThreadPreferredUILanguages(0, nullptr, nullptr);
    });
    worker.join();
    EXPECT_EQ(szOther, u"Error") << "a new thread starts in English";
    EXPECT_EQ(szOtherAfterInit, tableText(12, 1018));
    EXPECT_EQ(loadResString(1018), tableText(12, 1018));
}

}  // namespace
