// The guard between two starts of the same request: a named mutex that exists while a live process holds
// it. The holders here are other processes (guard_holder.h), so the test sees what a second start of the
// program sees.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "app/VELQAssistant.h"
#include "app_test_support.h"
#include "guard_holder.h"
#include "plat/handle.h"
#include "plat/sync.h"

namespace {

using app_test::GuardHolder;
using app_test::ScopedEnv;
using app_test::TempDir;

TEST(GuardName, ColonBackslashAndSlashBecomeDash) {
    EXPECT_EQ(VELQAssistant::guardName(u"C:\\a\\b.txt"), u"C--a-b.txt");
    EXPECT_EQ(VELQAssistant::guardName(u"/home/u/My File.TXT"), u"-home-u-My File.TXT");
    EXPECT_EQ(VELQAssistant::guardName(u"C:\\x"), VELQAssistant::guardName(u"C--x"));
    EXPECT_EQ(VELQAssistant::guardName(u""), u"");
}

TEST(GuardName, LongNamesStayInTheBufferAndApart) {
    const std::u16string stem(300, u'a');
    const std::u16string first = VELQAssistant::guardName(stem + u"1");
    const std::u16string second = VELQAssistant::guardName(stem + u"2");
    EXPECT_EQ(first.size(), 259u);
    EXPECT_EQ(second.size(), 259u);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.substr(0, 200), stem.substr(0, 200));
    EXPECT_EQ(first, VELQAssistant::guardName(stem + u"1"));
    // Exactly at the limit nothing is hashed.
    EXPECT_EQ(VELQAssistant::guardName(std::u16string(259, u'b')), std::u16string(259, u'b'));
    // Spellings that are equal after the replacement stay equal when long.
    EXPECT_EQ(VELQAssistant::guardName(u"C:" + stem), VELQAssistant::guardName(u"C-" + stem));
}

TEST(GetFilePathFromCmdLine, DropsEveryQuoteAndKeepsTheRest) {
    VELQAssistant assistant;
    EXPECT_EQ(assistant.getFilePathFromCmdLine(u"\"C:\\a b\\c.lqvz\""), u"C:\\a b\\c.lqvz");
    EXPECT_EQ(assistant.getFilePathFromCmdLine(u"/a\"b/c"), u"/ab/c");
    EXPECT_EQ(assistant.getFilePathFromCmdLine(u""), u"");
    EXPECT_EQ(assistant.getFilePathFromCmdLine(nullptr), u"");
    EXPECT_EQ(assistant.getFilePathFromCmdLine(std::u16string(400, u'p').c_str()).size(), 259u);
}

class Guard : public testing::Test {
protected:
    TempDir m_dir;
    ScopedEnv m_runtime{"VELQ_RUNTIME_DIR", m_dir.path() + "/run"};
};

TEST_F(Guard, SecondProcessWithTheSamePathSeesTheFirst) {
    GuardHolder holder(u"/home/u/a.txt");
    ASSERT_TRUE(holder.started());
    EXPECT_FALSE(holder.sawOther());
    VELQAssistant second;
    EXPECT_TRUE(second.isExistInstance(u"/home/u/a.txt"));
    VELQAssistant other;
    EXPECT_FALSE(other.isExistInstance(u"/home/u/b.txt"));
}

TEST_F(Guard, SameNameAfterReplacementIsTheSameRequest) {
    GuardHolder holder(u"C:\\a\\b.txt");
    ASSERT_TRUE(holder.started());
    VELQAssistant dashed;
    EXPECT_TRUE(dashed.isExistInstance(u"C--a-b.txt"));
    VELQAssistant slashed;
    EXPECT_TRUE(slashed.isExistInstance(u"C:/a/b.txt"));
}

TEST_F(Guard, LongNamesAreGuardedAndKeptApart) {
    const std::u16string stem = u"/" + std::u16string(400, u'd') + u"/";
    GuardHolder holder(stem + u"one.txt");
    ASSERT_TRUE(holder.started());
    VELQAssistant same;
    EXPECT_TRUE(same.isExistInstance(stem + u"one.txt"));
    VELQAssistant other;
    EXPECT_FALSE(other.isExistInstance(stem + u"two.txt"));
}

TEST_F(Guard, KilledHolderFreesTheName) {
    GuardHolder holder(u"/home/u/killed.txt");
    ASSERT_TRUE(holder.started());
    {
        VELQAssistant whileHeld;
        EXPECT_TRUE(whileHeld.isExistInstance(u"/home/u/killed.txt"));
    }
    holder.kill();
    VELQAssistant afterDeath;
    EXPECT_FALSE(afterDeath.isExistInstance(u"/home/u/killed.txt"));
}

TEST_F(Guard, ClosedGuardFreesTheNameWithinOneProcess) {
    {
        VELQAssistant first;
        EXPECT_FALSE(first.isExistInstance(u"/p/q.txt"));
        VELQAssistant second;
        EXPECT_TRUE(second.isExistInstance(u"/p/q.txt"));
    }
    VELQAssistant third;
    EXPECT_FALSE(third.isExistInstance(u"/p/q.txt"));
}

// The runtime folder of POSIX's named objects; Windows keeps them in the kernel, with no folder to break.
#ifndef _WIN32
TEST_F(Guard, MutexThatCannotBeCreatedLetsTheRequestGoOn) {
    // A runtime folder that cannot be made (its parent is a file) fails every named object.
    const std::string blocker = m_dir.file("not-a-folder");
    ScopedEnv broken("VELQ_RUNTIME_DIR", blocker + "/run");
    VELQAssistant assistant;
    EXPECT_FALSE(assistant.isExistInstance(u"/p/q.txt"));
}
#endif

TEST_F(Guard, NameTakenByAnotherKindOfObjectLetsTheRequestGoOn) {
    // An event under the guard's name: the mutex cannot be made, which must not refuse the request.
    const plat::HANDLE hEvent =
        plat::CreateEventW(nullptr, plat::TRUE, plat::FALSE, VELQAssistant::guardName(u"/p/q.txt").c_str());
    ASSERT_NE(hEvent, nullptr);
    VELQAssistant assistant;
    EXPECT_FALSE(assistant.isExistInstance(u"/p/q.txt"));
    plat::CloseHandle(hEvent);
}

}  // namespace
