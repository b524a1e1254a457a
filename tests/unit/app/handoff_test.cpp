// The program's side of the hand-off: the line's four fields, the text's four lists (with the rule that
// the fourth list is read only when the first three are empty), and initData against real named objects
// of the runtime folder, as a file manager's sender leaves them.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "app/VELQAssistant.h"
#include "app/VELQFileEncryptMain.h"
#include "app_test_support.h"
#include "guard_holder.h"
#include "plat/handle.h"
#include "plat/named.h"

namespace {

using app_test::ScopedEnv;
using app_test::TempDir;
using List = std::vector<std::u16string>;

struct Lists {
    List encrypt;
    List decrypt;
    List folders;
    List media;
};

bool parseText(std::u16string_view text, Lists& lists) {
    return VELQAssistant::parseHandOffText(text, lists.encrypt, lists.decrypt, lists.folders, lists.media);
}

TEST(HandOffLine, SplitsTheFourFields) {
    VELQAssistant::HandOffFields fields{};
    ASSERT_TRUE(VELQAssistant::_parseHandOffCmdLine(u"MapName::EventName::1024::1", fields));
    EXPECT_EQ(fields.szMapping, u"MapName");
    EXPECT_EQ(fields.szEvent, u"EventName");
    EXPECT_EQ(fields.nBytes, 1024);
    EXPECT_EQ(fields.uMenuType, 1u);

    // The type is everything behind the last ":", however many digits; BYTES stops at its "::".
    ASSERT_TRUE(VELQAssistant::_parseHandOffCmdLine(u"m::e::0::1234", fields));
    EXPECT_EQ(fields.nBytes, 0);
    EXPECT_EQ(fields.uMenuType, 1234u);
    ASSERT_TRUE(VELQAssistant::_parseHandOffCmdLine(u"m::e::77x::4", fields));
    EXPECT_EQ(fields.nBytes, 77);
    EXPECT_EQ(fields.uMenuType, 4u);
    ASSERT_TRUE(VELQAssistant::_parseHandOffCmdLine(u"m::e::99999999999::2", fields));
    EXPECT_EQ(fields.nBytes, 2147483647);
}

TEST(HandOffLine, RefusesLinesWithoutTheirBoundaries) {
    VELQAssistant::HandOffFields fields{};
    for (const char16_t* line : {u"", u"MapName", u"m:", u"m::e", u"m::e:", u"m::e::", u"m::e::5", u"::"}) {
        EXPECT_FALSE(VELQAssistant::_parseHandOffCmdLine(line, fields)) << plat::toUtf8(line);
    }
}

TEST(HandOffText, FirstListAndThreeEmptyOnes) {
    Lists lists;
    ASSERT_TRUE(
        parseText(u"DropEncryptFilePath::a;b;DropDecryptFilePath::DropFolderPath::DropLegalMedia::", lists));
    EXPECT_EQ(lists.encrypt, (List{u"a", u"b"}));
    EXPECT_TRUE(lists.decrypt.empty());
    EXPECT_TRUE(lists.folders.empty());
    EXPECT_TRUE(lists.media.empty());
}

TEST(HandOffText, ItemWithoutItsSemicolonIsNotTaken) {
    Lists lists;
    ASSERT_TRUE(
        parseText(u"DropEncryptFilePath::a;bDropDecryptFilePath::DropFolderPath::DropLegalMedia::", lists));
    EXPECT_EQ(lists.encrypt, (List{u"a"}));
    Lists tail;
    ASSERT_TRUE(
        parseText(u"DropEncryptFilePath::DropDecryptFilePath::DropFolderPath::DropLegalMedia::E:\\;F", tail));
    EXPECT_EQ(tail.media, (List{u"E:\\"}));
}

TEST(HandOffText, FourthListIsReadOnlyWhenTheFirstThreeAreEmpty) {
    Lists alone;
    ASSERT_TRUE(parseText(
        u"DropEncryptFilePath::DropDecryptFilePath::DropFolderPath::DropLegalMedia::E:\\;F:\\;", alone));
    EXPECT_EQ(alone.media, (List{u"E:\\", u"F:\\"}));
    EXPECT_TRUE(alone.folders.empty());

    Lists withFolder;
    ASSERT_TRUE(
        parseText(u"DropEncryptFilePath::DropDecryptFilePath::DropFolderPath::D:\\x;DropLegalMedia::E:\\;",
                  withFolder));
    EXPECT_EQ(withFolder.folders, (List{u"D:\\x"}));
    EXPECT_TRUE(withFolder.media.empty());

    Lists withFile;
    ASSERT_TRUE(parseText(
        u"DropEncryptFilePath::/a;DropDecryptFilePath::DropFolderPath::DropLegalMedia::/mnt;", withFile));
    EXPECT_EQ(withFile.encrypt, (List{u"/a"}));
    EXPECT_TRUE(withFile.media.empty());
}

TEST(HandOffText, EmptyItemsAndSemicolonsInPaths) {
    Lists lists;
    ASSERT_TRUE(
        parseText(u"DropEncryptFilePath::;;x;y;z;DropDecryptFilePath::/d/1.lqvz;DropFolderPath::/f;;"
                  u"DropLegalMedia::",
                  lists));
    // Two ";" in a row give an empty item; a path "x;y" comes out as two items.
    EXPECT_EQ(lists.encrypt, (List{u"", u"", u"x", u"y", u"z"}));
    EXPECT_EQ(lists.decrypt, (List{u"/d/1.lqvz"}));
    EXPECT_EQ(lists.folders, (List{u"/f", u""}));
}

TEST(HandOffText, ListsAreOnlyAppendedTo) {
    Lists lists;
    lists.encrypt.push_back(u"before");
    ASSERT_TRUE(parseText(u"DropEncryptFilePath::after;DropDecryptFilePath::DropFolderPath::DropLegalMedia::",
                          lists));
    EXPECT_EQ(lists.encrypt, (List{u"before", u"after"}));
}

TEST(HandOffText, MissingOrMisorderedMarkLeavesTheListsUntouched) {
    for (const char16_t* text : {
             u"",
             u"DropEncryptFilePath::a;DropFolderPath::DropLegalMedia::",
             u"DropEncryptFilePath::a;DropDecryptFilePath::DropFolderPath::",
             u"DropDecryptFilePath::DropEncryptFilePath::a;DropFolderPath::DropLegalMedia::",
             u"DropEncryptFilePath::a;DropDecryptFilePath::DropLegalMedia::DropFolderPath::",
         }) {
        Lists lists;
        EXPECT_FALSE(parseText(text, lists)) << plat::toUtf8(text);
        EXPECT_TRUE(lists.encrypt.empty() && lists.decrypt.empty() && lists.folders.empty() &&
                    lists.media.empty());
    }
}

// A sender as a file manager's extension is: a mapping holding the text (and what follows it), an event.
class HandOff : public testing::Test {
protected:
    void SetUp() override {
        m_hEvent = plat::CreateEventW(nullptr, plat::FALSE, plat::FALSE, u"test-handoff-event");
        ASSERT_NE(m_hEvent, nullptr);
    }
    void TearDown() override {
        if (m_hMapping != nullptr) {
            plat::CloseHandle(m_hMapping);
        }
        if (m_hEvent != nullptr) {
            plat::CloseHandle(m_hEvent);
        }
    }
    // Creates the mapping of `size` bytes holding `text` in UTF-16LE, with its NUL when `bNul`.
    void share(std::u16string_view text, std::size_t size, bool bNul = true) {
        m_hMapping = plat::CreateFileMappingW(plat::INVALID_HANDLE_VALUE, nullptr, plat::PAGE_READWRITE, 0,
                                              static_cast<plat::DWORD>(size), u"test-handoff-map");
        ASSERT_NE(m_hMapping, nullptr);
        void* pView = plat::MapViewOfFile(m_hMapping, plat::FILE_MAP_WRITE, 0, 0, 0);
        ASSERT_NE(pView, nullptr);
        auto* bytes = static_cast<unsigned char*>(pView);
        std::memset(bytes, bNul ? 0 : 'A', size);
        for (std::size_t i = 0; i < text.size() && 2 * i + 1 < size; ++i) {
            bytes[2 * i] = static_cast<unsigned char>(text[i] & 0xFF);
            bytes[2 * i + 1] = static_cast<unsigned char>(text[i] >> 8);
        }
        plat::UnmapViewOfFile(pView);
    }
    bool signalled() { return plat::WaitForSingleObject(m_hEvent, 0) == plat::WAIT_OBJECT_0; }
    plat::BOOL take(const char16_t* line) {
        VELQAssistant assistant;
        return assistant.initData(m_lists.encrypt, m_lists.decrypt, m_lists.folders, m_lists.media,
                                  &m_uMenuType, line);
    }

    TempDir m_dir;
    ScopedEnv m_runtime{"VELQ_RUNTIME_DIR", m_dir.path() + "/run"};
    plat::HANDLE m_hEvent = nullptr;
    plat::HANDLE m_hMapping = nullptr;
    Lists m_lists;
    plat::UINT m_uMenuType = 0;
};

constexpr std::u16string_view kText =
    u"DropEncryptFilePath::/h/a.txt;DropDecryptFilePath::/h/b.lqvz;"
    u"DropFolderPath::/h/docs;DropLegalMedia::";

TEST_F(HandOff, TakesTheListsAndSignalsOnce) {
    share(kText, 4096);
    EXPECT_EQ(take(u"test-handoff-map::test-handoff-event::0::1"), plat::TRUE);
    EXPECT_EQ(m_uMenuType, 1u);
    EXPECT_EQ(m_lists.encrypt, (List{u"/h/a.txt"}));
    EXPECT_EQ(m_lists.decrypt, (List{u"/h/b.lqvz"}));
    EXPECT_EQ(m_lists.folders, (List{u"/h/docs"}));
    EXPECT_TRUE(m_lists.media.empty());
    EXPECT_TRUE(signalled());
    EXPECT_FALSE(signalled()) << "signalled more than once";
}

TEST_F(HandOff, ReadsExactlyTheBytesAskedFor) {
    const std::size_t textBytes = 2 * (kText.size() + 1);
    share(kText, 8192);
    const std::u16string line =
        u"test-handoff-map::test-handoff-event::" + plat::fromUtf8(std::to_string(textBytes)) + u"::2";
    EXPECT_EQ(take(line.c_str()), plat::TRUE);
    EXPECT_EQ(m_uMenuType, 2u);
    EXPECT_EQ(m_lists.folders, (List{u"/h/docs"}));
}

TEST_F(HandOff, TextWithoutItsNulInsideTheBytesFails) {
    // The NUL lies two bytes behind the count asked for: it must not be read.
    const std::size_t textBytes = 2 * kText.size();
    share(kText, 4096);
    const std::u16string line =
        u"test-handoff-map::test-handoff-event::" + plat::fromUtf8(std::to_string(textBytes)) + u"::1";
    EXPECT_EQ(take(line.c_str()), plat::FALSE);
    EXPECT_TRUE(m_lists.encrypt.empty());
    EXPECT_TRUE(signalled());
}

TEST_F(HandOff, WholeMappingWithoutAnyNulFails) {
    // The read of a whole-mapping view stops at the view's end.
    share(kText, 4096, false);
    EXPECT_EQ(take(u"test-handoff-map::test-handoff-event::0::1"), plat::FALSE);
    EXPECT_TRUE(m_lists.encrypt.empty());
    EXPECT_TRUE(signalled());
}

TEST_F(HandOff, MarkMissingFailsAfterTheSignal) {
    share(u"DropEncryptFilePath::/h/a.txt;DropFolderPath::DropLegalMedia::", 4096);
    EXPECT_EQ(take(u"test-handoff-map::test-handoff-event::0::1"), plat::FALSE);
    EXPECT_TRUE(m_lists.encrypt.empty());
    EXPECT_TRUE(signalled());
}

TEST_F(HandOff, MappingGoneStillSignalsTheEvent) {
    EXPECT_EQ(take(u"test-handoff-map::test-handoff-event::0::4"), plat::FALSE);
    EXPECT_EQ(m_uMenuType, 4u) << "the menu type is set before anything is opened";
    EXPECT_TRUE(signalled());
}

TEST_F(HandOff, MappingTooSmallForTheBytesFailsAfterTheSignal) {
    share(kText, 4096);
    EXPECT_EQ(take(u"test-handoff-map::test-handoff-event::100000::1"), plat::FALSE);
    EXPECT_TRUE(m_lists.encrypt.empty());
    EXPECT_TRUE(signalled());
    EXPECT_EQ(take(u"test-handoff-map::test-handoff-event::-2::1"), plat::FALSE);
}

TEST_F(HandOff, NoEventMeansNothingIsOpened) {
    share(kText, 4096);
    EXPECT_EQ(take(u"test-handoff-map::no-such-event::0::1"), plat::FALSE);
    EXPECT_TRUE(m_lists.encrypt.empty());
    EXPECT_FALSE(signalled());
    EXPECT_EQ(take(u"not a hand-off line"), plat::FALSE);
    VELQAssistant assistant;
    EXPECT_EQ(assistant.initData(m_lists.encrypt, m_lists.decrypt, m_lists.folders, m_lists.media, nullptr,
                                 u"test-handoff-map::test-handoff-event::0::1"),
              plat::FALSE);
}

TEST_F(HandOff, NothingOfTheHandOffOutlivesTheCall) {
    share(kText, 4096);
    ASSERT_EQ(take(u"test-handoff-map::test-handoff-event::0::1"), plat::TRUE);
    plat::CloseHandle(m_hMapping);
    m_hMapping = nullptr;
    EXPECT_EQ(plat::OpenFileMappingW(plat::FILE_MAP_READ, plat::FALSE, u"test-handoff-map"), nullptr)
        << "the program kept the mapping open";
}

// A second start of a hand-off that is still being worked on: it releases the sender all the same, then
// ends at the guard without a word, before the gate.
TEST_F(HandOff, SecondStartOfTheSameHandOffEndsAtTheGuard) {
    const char16_t* line = u"test-handoff-map::test-handoff-event::0::1";
    share(kText, 4096);
    auto first = std::make_unique<app_test::GuardHolder>(line);
    ASSERT_TRUE(first->started());
    EXPECT_FALSE(first->sawOther());

    ScopedEnv noSensor("VELQ_WINBIO", "none");
    {
        app_test::ScopedRecordingBackend ui;
        EXPECT_EQ(_doMultiFilesProcess(line), plat::E_FAIL);
        EXPECT_TRUE(signalled());
        EXPECT_TRUE(ui->boxes.empty());
        EXPECT_TRUE(ui->cursors.empty());
    }
    first.reset();
    {
        // With the first start gone the same hand-off goes on to the gate.
        app_test::ScopedRecordingBackend ui;
        _doMultiFilesProcess(line);
        EXPECT_TRUE(signalled());
        EXPECT_FALSE(ui->boxes.empty() && ui->cursors.empty());
    }
}

class TurnEvent : public testing::Test {
protected:
    TempDir m_dir;
    ScopedEnv m_runtime{"VELQ_RUNTIME_DIR", m_dir.path() + "/run"};
};

TEST_F(TurnEvent, FirstCreatesUnsignalledLaterOnesFindIt) {
    bool bOtherFirst = true;
    plat::HANDLE hFirst = VELQAssistant::_openAssistantEvent(&bOtherFirst);
    ASSERT_NE(hFirst, nullptr);
    EXPECT_FALSE(bOtherFirst);
    EXPECT_EQ(plat::WaitForSingleObject(hFirst, 0), static_cast<plat::DWORD>(plat::WAIT_TIMEOUT));

    plat::HANDLE hSecond = VELQAssistant::_openAssistantEvent(&bOtherFirst);
    ASSERT_NE(hSecond, nullptr);
    EXPECT_TRUE(bOtherFirst);
    // One object: a signal through the first handle releases exactly one wait through the second.
    plat::SetEvent(hFirst);
    EXPECT_EQ(plat::WaitForSingleObject(hSecond, 0), plat::WAIT_OBJECT_0);
    EXPECT_EQ(plat::WaitForSingleObject(hSecond, 0), static_cast<plat::DWORD>(plat::WAIT_TIMEOUT));
    plat::CloseHandle(hSecond);
    plat::CloseHandle(hFirst);
}

TEST_F(TurnEvent, NameHeldByAnotherKindGivesNoEvent) {
    plat::HANDLE hMutex = plat::CreateMutexW(nullptr, plat::FALSE, u"VELQAssistantEvent");
    ASSERT_NE(hMutex, nullptr);
    bool bOtherFirst = true;
    EXPECT_EQ(VELQAssistant::_openAssistantEvent(&bOtherFirst), nullptr);
    EXPECT_FALSE(bOtherFirst);
    plat::CloseHandle(hMutex);
}

}  // namespace
