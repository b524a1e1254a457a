// The string loaders (LoadStringW, ResourceHelper::getStrFromRes, loadResString), the generated table and
// the generator's refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "log_capture.h"
#include "plat/errors.h"
#include "plat/language.h"
#include "plat/resources.h"
#include "temp_folder.h"
#include "ui/ResourceHelper.h"

namespace {

using plat::StringTableEntry;

// A text of `length` units whose every position is recognisable, so that a cut or a shift shows.
std::u16string patterned(std::size_t length) {
    std::u16string text;
    for (std::size_t i = 0; i < length; ++i) {
        text.push_back(static_cast<char16_t>(u'A' + i % 26));
    }
    return text;
}

constexpr plat::UINT kId98 = 1, kId99 = 2, kId100 = 3, kId199 = 4, kId1100 = 5, kMissingId = 77;

// Loaders read a small table of texts of the lengths that matter for the growing and cutting rules.
class LoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_texts = {patterned(98), patterned(99), patterned(100), patterned(199), patterned(1100)};
        const plat::UINT ids[] = {kId98, kId99, kId100, kId199, kId1100};
        for (std::size_t i = 0; i < m_texts.size(); ++i) {
            m_entries.push_back(StringTableEntry{plat::LANG_ENGLISH_US, ids[i], m_texts[i]});
        }
        plat::useStringTable(m_entries);
    }
    void TearDown() override { plat::useStringTable({}); }

    const std::u16string& text(plat::UINT id) const { return m_texts[id - 1]; }

    std::vector<std::u16string> m_texts;
    std::vector<StringTableEntry> m_entries;
};

TEST_F(LoaderTest, LoadStringCopiesAtMostCapacityLessOneAndReturnsTheCount) {
    char16_t buffer[50];
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(plat::LoadStringW(nullptr, kId99, buffer, 50), 49);
    EXPECT_EQ(std::u16string(buffer), text(kId99).substr(0, 49));

    char16_t exact[100];
    EXPECT_EQ(plat::LoadStringW(nullptr, kId99, exact, 100), 99);
    EXPECT_EQ(std::u16string(exact), text(kId99));

    char16_t one[1] = {u'#'};
    EXPECT_EQ(plat::LoadStringW(nullptr, kId98, one, 1), 0);
    EXPECT_EQ(one[0], u'\0');
}

TEST_F(LoaderTest, LoadStringWithCapacityZeroGivesAPointerToTheWholeText) {
    const char16_t* pText = nullptr;
    EXPECT_EQ(plat::LoadStringW(nullptr, kId1100, reinterpret_cast<plat::LPWSTR>(&pText), 0), 1100);
    ASSERT_NE(pText, nullptr);
    EXPECT_EQ(std::u16string(pText), text(kId1100));
}

TEST_F(LoaderTest, LoadStringOfAMissingIdGivesZeroAndNameNotFound) {
    char16_t buffer[10] = {u'#'};
    plat::SetLastError(0);
    EXPECT_EQ(plat::LoadStringW(nullptr, kMissingId, buffer, 10), 0);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(buffer[0], u'\0');

    const char16_t* pText = u"stale";
    EXPECT_EQ(plat::LoadStringW(nullptr, kMissingId, reinterpret_cast<plat::LPWSTR>(&pText), 0), 0);
    EXPECT_EQ(pText, nullptr);
}

TEST_F(LoaderTest, GetStrFromResGivesEveryTextWholeWhateverItsLength) {
    velq_test::LogCapture log;
    for (const plat::UINT id : {kId98, kId99, kId100, kId199, kId1100}) {
        EXPECT_EQ(ResourceHelper::getStrFromRes(id, nullptr), text(id)) << "id " << id;
    }
    EXPECT_EQ(log.count("ASSERT( nRet > 0 )"), 0) << log.text();
}

TEST_F(LoaderTest, GetStrFromResOfAMissingIdIsEmptyAndLogsTheAssertion) {
    velq_test::LogCapture log;
    ASSERT_TRUE(log.ready());
    EXPECT_EQ(ResourceHelper::getStrFromRes(kMissingId, nullptr), u"");
    EXPECT_EQ(log.count("[ERR]"), 1) << log.text();
    EXPECT_EQ(log.count("ASSERT( nRet > 0 )"), 1) << log.text();
}

TEST_F(LoaderTest, LoadResStringCutsAt1023AndNeverLogs) {
    velq_test::LogCapture log;
    EXPECT_EQ(loadResString(kId199), text(kId199));
    EXPECT_EQ(loadResString(kId1100), text(kId1100).substr(0, 1023));
    EXPECT_EQ(loadResString(kMissingId), u"");
    EXPECT_EQ(log.text(), "");
}

// The generated table, as the program ships it.

const std::set<plat::LANGID> kLanguages = {7,    10,   12,   16,   19,   20,   22,   29,
                                           1029, 1030, 1032, 1033, 1035, 1038, 1041, 1042,
                                           1045, 1046, 1049, 1051, 1055, 2052, 3076};

std::set<plat::UINT> idsOf(plat::LANGID language) {
    std::set<plat::UINT> ids;
    for (const StringTableEntry& entry : plat::stringTable()) {
        if (entry.wLanguage == language) {
            ids.insert(entry.uId);
        }
    }
    return ids;
}

TEST(StringTable, HoldsTheTwentyThreeLanguages) {
    std::set<plat::LANGID> languages;
    for (const StringTableEntry& entry : plat::stringTable()) {
        languages.insert(entry.wLanguage);
    }
    EXPECT_EQ(languages, kLanguages);
}

TEST(StringTable, EveryLanguageHasExactlyTheEnglishIds) {
    const std::set<plat::UINT> english = {1005, 1006, 1007, 1008, 1009, 1010, 1011, 1012, 1013, 1017, 1018,
                                          1019, 1020, 1021, 1022, 1023, 1032, 1033, 1034, 1035, 1038, 1039,
                                          1042, 1043, 1045, 1046, 1051, 1052, 1053, 1054, 1055, 1056, 1057,
                                          1058, 1059, 1060, 1062, 1063, 1064, 1065, 1066, 1067, 1068, 1069,
                                          // The terminal's lines of the fingerprint wait window.
                                          1100, 1101, 1102,
                                          // The desktop windows' buttons, labels and messages.
                                          1110, 1111, 1112, 1113, 1114, 1115, 1116, 1117, 1118, 1119, 1120,
                                          1121, 1122, 1123, 1124, 1125, 1126, 1127, 1128};
    EXPECT_EQ(idsOf(1033), english);
    for (const plat::LANGID language : kLanguages) {
        EXPECT_EQ(idsOf(language), english) << "language " << language;
    }
}

TEST(StringTable, IsSortedByLanguageThenIdWithoutDuplicates) {
    const auto table = plat::stringTable();
    for (std::size_t i = 1; i < table.size(); ++i) {
        EXPECT_LT(std::pair(table[i - 1].wLanguage, table[i - 1].uId),
                  std::pair(table[i].wLanguage, table[i].uId))
            << "entry " << i;
    }
}

TEST(StringTable, EnglishTextsAreTheReferenceTextsByteForByte) {
    const std::pair<plat::UINT, std::u16string_view> expected[] = {
        {1005, u"Encrypt Files"},
        {1013, u"Canceled..."},
        {1052, u"The key is invalid.\nRecover the key and try again?"},
        {1054, u"You have insufficient priviledges to perform this operation."},
        {1065,
         u"An enrollment transaction could not be started because another enrollment is already in "
         u"progress."},
        {1067, u"OK"},
        {1069, u"Message"},
    };
    for (const auto& [id, text] : expected) {
        const StringTableEntry* entry = plat::findTableText(1033, id);
        ASSERT_NE(entry, nullptr) << id;
        EXPECT_EQ(entry->text, text) << id;
    }
}

TEST(StringTable, TheTwoLineQuestionHasARealLineFeedInEveryLanguage) {
    for (const plat::LANGID language : kLanguages) {
        const StringTableEntry* entry = plat::findTableText(language, 1052);
        ASSERT_NE(entry, nullptr) << language;
        EXPECT_NE(entry->text.find(u'\n'), std::u16string_view::npos) << language;
        EXPECT_EQ(entry->text.find(u"\\n"), std::u16string_view::npos) << language;
    }
}

TEST(StringTable, AThreadThatSetNoLanguageLoadsEnglish) {
    EXPECT_EQ(ResourceHelper::getStrFromRes(1018, nullptr), u"Error");
    EXPECT_EQ(loadResString(1053), u"The file already exists. Would you like to replace the existing file?");
}

// The generator refuses a faulty language file, so that a fault stops the build rather than a text.
class GeneratorTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::system("python3 --version >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "python3 is not installed here (it is a build dependency of the table)";
        }
        m_folder = velq_test::makeTempFolder("velq-strings-");
        ASSERT_FALSE(m_folder.empty());
        std::filesystem::create_directory(m_folder / "strings");
        write("1033.txt", "language\t1033\tEnglish\n1\tOne\n2\tTwo \\\\ lines\\nend\n");
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    void write(const std::string& name, const std::string& content) {
        std::ofstream(m_folder / "strings" / name, std::ios::binary) << content;
    }

    // Runs the generator; gives its exit status and keeps what it said on stderr.
    int run() {
        const std::filesystem::path script =
            std::filesystem::path(__FILE__).parent_path() / "../../../src/ui/strings/gen_string_table.py";
        const std::string command =
            "python3 '" + script.string() + "' --output '" + (m_folder / "out.cpp").string() + "' '" +
            (m_folder / "strings").string() + "' >/dev/null 2>'" + (m_folder / "stderr.txt").string() + "'";
        const int status = std::system(command.c_str());
        std::ifstream err(m_folder / "stderr.txt");
        std::stringstream said;
        said << err.rdbuf();
        m_said = said.str();
        return status;
    }

    bool refusedSaying(const std::string& words) {
        const int status = run();
        return status != 0 && m_said.find(words) != std::string::npos;
    }

    std::filesystem::path m_folder;
    std::string m_said;
};

TEST_F(GeneratorTest, AcceptsGoodFilesAndWritesEscapesAsUnicode) {
    write("7.txt", "# German\nlanguage\t7\tDeutsch\n\n2\tZw\xC3\xB6lf\n1\tEins\n");
    ASSERT_EQ(run(), 0) << m_said;
    std::ifstream out(m_folder / "out.cpp");
    std::stringstream code;
    code << out.rdbuf();
    EXPECT_NE(code.str().find(R"({7, 2, u"Zw\u00F6lf"sv})"), std::string::npos) << code.str();
    EXPECT_NE(code.str().find(R"({1033, 2, u"Two \\ lines\nend"sv})"), std::string::npos) << code.str();
    EXPECT_LT(code.str().find("{7, 1,"), code.str().find("{7, 2,"));
    EXPECT_LT(code.str().find("{7, 2,"), code.str().find("{1033, 1,"));
}

TEST_F(GeneratorTest, RefusesEachFaultNamingFileAndLine) {
    const std::pair<std::string, std::string> faults[] = {
        {"language\t7\tDe\n1\tEins\n", "7.txt: missing ids 2"},
        {"language\t7\tDe\n1\tEins\n2\tZwei\n3\tDrei\n", "7.txt: ids not in 1033.txt: 3"},
        {"language\t7\tDe\n1\tEins\n2\tZwei\n1\tNochmal\n", "7.txt:4: duplicate id 1"},
        {"language\t7\tDe\n1\tEins\\t\n2\tZwei\n", "7.txt:2: bad escape"},
        {"language\t7\tDe\n1\tEins\n2\tZwei\\\n", "7.txt:3: bad escape"},
        {"language\t7\tDe\n1\tEi\tns\n2\tZwei\n", "7.txt:2: a tab in a text"},
        {"language\t10\tDe\n1\tEins\n2\tZwei\n", "7.txt:1: language 10 in a file named 7.txt"},
    };
    for (const auto& [content, words] : faults) {
        write("7.txt", content);
        EXPECT_TRUE(refusedSaying(words)) << words << " / " << m_said;
    }
}

}  // namespace
