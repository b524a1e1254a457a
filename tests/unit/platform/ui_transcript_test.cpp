#ifndef _WIN32
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ui/transcript.h"
#include "ui_test_support.h"

namespace {

using plat::ui::JsonLine;
using plat::ui::Transcript;
using velq_test::parseTranscriptLine;

std::string decodedText(std::u16string_view text) {
    const auto object = parseTranscriptLine(JsonLine().add("text", text).line());
    EXPECT_TRUE(object.has_value());
    return object ? object->text("text") : std::string();
}

TEST(TranscriptJson, MessageBoxLineHasTheDocumentedFormExactly) {
    const std::string line = JsonLine()
                                 .addUtf8("ui", "messagebox")
                                 .add("text", u"Do you want to decrypt the protected file?")
                                 .add("caption", u"Information")
                                 .add("flags", 36LL)
                                 .add("owner", false)
                                 .add("answer", 6LL)
                                 .add("default", false)
                                 .line();
    EXPECT_EQ(line,
              "{\"ui\":\"messagebox\",\"text\":\"Do you want to decrypt the protected file?\","
              "\"caption\":\"Information\",\"flags\":36,\"owner\":false,\"answer\":6,\"default\":false}\n");
}

TEST(TranscriptJson, EscapesQuotesBackslashesAndControlCharacters) {
    const std::string line = JsonLine().add("text", u"a\"b\\c\nd\te\r\b\f\x01\x1f").line();
    EXPECT_EQ(line, "{\"text\":\"a\\\"b\\\\c\\nd\\te\\r\\b\\f\\u0001\\u001f\"}\n");
    EXPECT_EQ(decodedText(u"a\"b\\c\nd\te\r\b\f\x01\x1f"), "a\"b\\c\nd\te\r\b\f\x01\x1f");
}

TEST(TranscriptJson, NonAsciiIsWrittenAsUtf8) {
    const std::string line = JsonLine().add("text", u"Ünïcödé 日本 \U0001F600").line();
    EXPECT_EQ(line, "{\"text\":\"Ünïcödé 日本 \U0001F600\"}\n");
    EXPECT_EQ(decodedText(u"C:/Ä/ß.txt"), "C:/Ä/ß.txt");
}

TEST(TranscriptJson, LoneSurrogatesBecomeReplacementCharacters) {
    const std::u16string loneHigh{u'a', char16_t(0xD83D), u'b'};
    const std::u16string loneLow{char16_t(0xDE00)};
    const std::u16string reversed{char16_t(0xDE00), char16_t(0xD83D)};
    const std::u16string highAtEnd{u'x', char16_t(0xD800)};
    EXPECT_EQ(decodedText(loneHigh), "a\uFFFDb");
    EXPECT_EQ(decodedText(loneLow), "\uFFFD");
    EXPECT_EQ(decodedText(reversed), "\uFFFD\uFFFD");
    EXPECT_EQ(decodedText(highAtEnd), "x\uFFFD");
}

TEST(TranscriptJson, LineSeparatorsAreEscapedSoTheLineStaysOneLine) {
    const std::string line = JsonLine().add("text", u"a\u2028b\u2029").line();
    EXPECT_EQ(line, "{\"text\":\"a\\u2028b\\u2029\"}\n");
}

TEST(TranscriptJson, InvalidUtf8InputBecomesReplacementCharacters) {
    const auto object = parseTranscriptLine(JsonLine().addUtf8("path", "a\xff\xc3").line());
    ASSERT_TRUE(object.has_value());
    EXPECT_EQ(object->text("path"), "a\uFFFD\uFFFD");
}

TEST(TranscriptJson, ArraysNumbersAndBooleans) {
    const auto object = parseTranscriptLine(JsonLine()
                                                .addUtf8("ui", "search")
                                                .add("results", std::vector<std::u16string>{u"/a\"", u"/b"})
                                                .add("empty", std::vector<std::u16string>{})
                                                .add("n", -5LL)
                                                .add("t", true)
                                                .line());
    ASSERT_TRUE(object.has_value());
    EXPECT_EQ(object->keys, (std::vector<std::string>{"ui", "results", "empty", "n", "t"}));
    EXPECT_EQ(std::get<std::vector<std::string>>(object->values.at("results")),
              (std::vector<std::string>{"/a\"", "/b"}));
    EXPECT_TRUE(std::get<std::vector<std::string>>(object->values.at("empty")).empty());
    EXPECT_EQ(object->number("n"), -5);
    EXPECT_TRUE(object->flag("t"));
}

class TranscriptFile : public ::testing::Test {
protected:
    void SetUp() override {
        if (!m_dir.ok()) {
            GTEST_SKIP() << "no temporary folder";
        }
    }
    velq_test::TempDir m_dir;
};

TEST_F(TranscriptFile, AppendsLinesToAnOwnerOnlyFile) {
    const std::string path = m_dir.file("t.jsonl");
    velq_test::writeFile(path, "{\"earlier\":1}\n");
    Transcript transcript(path);
    EXPECT_TRUE(transcript.enabled());
    EXPECT_TRUE(transcript.write(JsonLine().addUtf8("ui", "cursor").add("id", 32514LL)));
    EXPECT_EQ(velq_test::readFile(path), "{\"earlier\":1}\n{\"ui\":\"cursor\",\"id\":32514}\n");

    const std::string fresh = m_dir.file("fresh.jsonl");
    Transcript created(fresh);
    ASSERT_TRUE(created.write(JsonLine().add("id", 1LL)));
    EXPECT_EQ(velq_test::readFile(fresh), "{\"id\":1}\n");
#ifndef _WIN32
    // Windows gives the new file its folder's access list; a mode is POSIX's alone.
    struct stat st {};
    ASSERT_EQ(::stat(fresh.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
#endif
}

TEST_F(TranscriptFile, AFileRemovedBetweenLinesIsCreatedAgain) {
    const std::string path = m_dir.file("t.jsonl");
    Transcript transcript(path);
    ASSERT_TRUE(transcript.write(JsonLine().add("n", 1LL)));
    ASSERT_TRUE(std::filesystem::remove(velq_test::fileSystemPath(path)));
    ASSERT_TRUE(transcript.write(JsonLine().add("n", 2LL)));
    EXPECT_EQ(velq_test::readFile(path), "{\"n\":2}\n");
}

TEST_F(TranscriptFile, WithoutAPathNothingIsWritten) {
    Transcript transcript("");
    EXPECT_FALSE(transcript.enabled());
    EXPECT_TRUE(transcript.write(JsonLine().add("n", 1LL)));
}

TEST_F(TranscriptFile, AnUnwritablePathFailsWithoutStoppingTheCaller) {
    Transcript transcript(m_dir.file("missing-folder/t.jsonl"));
    EXPECT_FALSE(transcript.write(JsonLine().add("n", 1LL)));
    EXPECT_FALSE(transcript.write(JsonLine().add("n", 2LL)));
}

// Long lines from several threads, and on POSIX a second process: every line must come out whole. Each
// line opens the file anew, so to the file system a thread's appends are as another process's would be.
TEST_F(TranscriptFile, LinesOfThreadsAndProcessesNeverMix) {
    const std::string path = m_dir.file("t.jsonl");
    constexpr int kThreads = 4;
    constexpr int kLines = 100;
    const auto writeLines = [&path](int writer) {
        Transcript transcript(path);
        const std::u16string filler(5000, static_cast<char16_t>(u'a' + writer));
        for (int i = 0; i < kLines; ++i) {
            transcript.write(JsonLine().add("writer", static_cast<long long>(writer)).add("text", filler));
        }
    };
    int writers = kThreads;
#ifndef _WIN32
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        writeLines(kThreads);
        ::_exit(0);
    }
    ++writers;
#endif
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back(writeLines, t);
    }
    for (auto& thread : threads) {
        thread.join();
    }
#ifndef _WIN32
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
#endif

    const auto lines = velq_test::splitLines(velq_test::readFile(path));
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(writers * kLines));
    std::vector<int> perWriter(static_cast<std::size_t>(writers), 0);
    for (const std::string& line : lines) {
        const auto object = parseTranscriptLine(line);
        ASSERT_TRUE(object.has_value()) << line.substr(0, 80);
        const long long writer = object->number("writer");
        ASSERT_TRUE(writer >= 0 && writer < writers) << writer;
        ASSERT_EQ(object->text("text"), std::string(5000, static_cast<char>('a' + writer)));
        ++perWriter[static_cast<std::size_t>(writer)];
    }
    for (const int count : perWriter) {
        EXPECT_EQ(count, kLines);
    }
}

}  // namespace
