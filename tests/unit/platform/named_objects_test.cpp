// Named objects between processes. Other processes are this test program started again with a role in
// its environment (fork and exec, so that a child never runs on a copy of a threaded parent); each child
// reports through a pipe when it holds what the test needs.
#include "plat/named.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "plat/errors.h"
#include "plat/strings.h"
#include "plat/sync.h"

extern char** environ;

namespace plat {
namespace {

constexpr const char* kRoleVariable = "VELQ_NAMED_TEST_ROLE";
constexpr const char* kNameVariable = "VELQ_NAMED_TEST_NAME";
constexpr const char* kReportVariable = "VELQ_NAMED_TEST_FD";

void report(char what) {
    const int fd = std::atoi(std::getenv(kReportVariable));
    (void)::write(fd, &what, 1);
}

[[noreturn]] void holdForever() {
    for (;;) {
        ::pause();
    }
}

// The roles a child process plays; the exit code tells the test what the child saw.
int playRole(const std::string& role, const std::u16string& name) {
    if (role == "own-mutex") {
        if (CreateMutexW(nullptr, TRUE, name.c_str()) == nullptr) {
            return 2;
        }
        report('r');
        holdForever();
    }
    if (role == "hold-turn") {
        if (CreateEventW(nullptr, FALSE, FALSE, name.c_str()) == nullptr) {
            return 2;
        }
        report('r');
        holdForever();
    }
    if (role == "wait-event") {
        HANDLE event = OpenEventW(EVENT_ALL_ACCESS, FALSE, name.c_str());
        if (event == nullptr) {
            return 2;
        }
        report('r');
        if (WaitForSingleObject(event, INFINITE) != WAIT_OBJECT_0) {
            return 3;
        }
        report('w');
        holdForever();
    }
    if (role == "try-mutex") {
        HANDLE mutex = OpenMutexW(MUTEX_ALL_ACCESS, FALSE, name.c_str());
        const DWORD result = mutex == nullptr ? WAIT_FAILED : WaitForSingleObject(mutex, 0);
        return result == WAIT_TIMEOUT ? 10 : result == WAIT_OBJECT_0 ? 11 : 12;
    }
    if (role == "set-event") {
        HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str());
        return event != nullptr && SetEvent(event) == TRUE ? 0 : 2;
    }
    if (role == "rewrite-mapping") {
        HANDLE mapping = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str());
        auto* view = static_cast<char*>(mapping == nullptr ? nullptr
                                                           : MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
        MEMORY_BASIC_INFORMATION info{};
        if (view == nullptr || VirtualQuery(view, &info, sizeof(info)) == 0) {
            return 2;
        }
        if (info.RegionSize != 8192 || std::strcmp(view, "from the parent") != 0) {
            return 3;
        }
        std::strcpy(view + 5000, "from the child");
        return UnmapViewOfFile(view) == TRUE && CloseHandle(mapping) == TRUE ? 0 : 4;
    }
    return 100;
}

// Children enter here, before the tests are even listed.
const bool g_bIsChild = [] {
    const char* role = std::getenv(kRoleVariable);
    if (role == nullptr) {
        return false;
    }
    ::_exit(playRole(role, fromUtf8(std::getenv(kNameVariable))));
}();

class Child {
public:
    Child(const std::string& role, const std::u16string& name) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) {
            return;
        }
        const int childEnd = ::dup(fds[1]);  // without close-on-exec: the child reports on it
        std::vector<std::string> variables = {std::string(kRoleVariable) + "=" + role,
                                              std::string(kNameVariable) + "=" + toUtf8(name),
                                              std::string(kReportVariable) + "=" + std::to_string(childEnd)};
        std::vector<char*> environment;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            environment.push_back(*entry);
        }
        for (std::string& variable : variables) {
            environment.push_back(variable.data());
        }
        environment.push_back(nullptr);
        char program[] = "/proc/self/exe";
        char* arguments[] = {program, nullptr};
        m_nPid = ::fork();
        if (m_nPid == 0) {
            ::execve(program, arguments, environment.data());
            ::_exit(127);
        }
        ::close(childEnd);
        ::close(fds[1]);
        m_nReportFd = fds[0];
    }
    ~Child() {
        kill();
        if (m_nReportFd >= 0) {
            ::close(m_nReportFd);
        }
    }

    // The next report, waiting for it; 0 when the child has gone without one.
    char nextReport() {
        char what = 0;
        return ::read(m_nReportFd, &what, 1) == 1 ? what : 0;
    }
    int reportFd() const { return m_nReportFd; }
    bool hasReportWaiting() {
        const int flags = ::fcntl(m_nReportFd, F_GETFL);
        ::fcntl(m_nReportFd, F_SETFL, flags | O_NONBLOCK);
        char what = 0;
        const bool waiting = ::read(m_nReportFd, &what, 1) == 1;
        ::fcntl(m_nReportFd, F_SETFL, flags);
        return waiting;
    }
    int exitCode() {
        int status = 0;
        ::waitpid(m_nPid, &status, 0);
        m_nPid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void kill() {
        if (m_nPid > 0) {
            ::kill(m_nPid, SIGKILL);
            ::waitpid(m_nPid, nullptr, 0);
            m_nPid = -1;
        }
    }

private:
    pid_t m_nPid = -1;
    int m_nReportFd = -1;
};

// Every test gets a runtime folder of its own.
class NamedObjects : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/velq-named-test-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        m_szRoot = pattern;
        m_szFolder = m_szRoot + "/run";
        ::setenv("VELQ_RUNTIME_DIR", m_szFolder.c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv("VELQ_RUNTIME_DIR");
        std::filesystem::remove_all(m_szRoot);
    }

    std::string m_szRoot;
    std::string m_szFolder;
};

TEST(NamedObjectNames, PlainNamesStayAndNamespacesAreDropped) {
    EXPECT_EQ(namedObjectFileName(u"VELQAssistantEvent"), u"VELQAssistantEvent");
    EXPECT_EQ(namedObjectFileName(u"Local\\Backup_Key_Mutex"), u"Backup_Key_Mutex");
    EXPECT_EQ(namedObjectFileName(u"Global\\C--a-b.txt"), u"C--a-b.txt");
    EXPECT_EQ(namedObjectFileName(u".hidden/50%"), u"%2Ehidden%2F50%25");
    SetLastError(0);
    EXPECT_EQ(namedObjectFileName(u"Other\\name"), u"");
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST(NamedObjectNames, LongNamesAreCutAndStayApart) {
    const std::u16string stem(300, u'\u00e9');  // two UTF-8 bytes each
    const std::string first = toUtf8(namedObjectFileName(stem + u"1"));
    const std::string second = toUtf8(namedObjectFileName(stem + u"2"));
    EXPECT_LE(first.size(), 255u);
    EXPECT_NE(first, second);
    ASSERT_GT(first.size(), 18u);
    EXPECT_EQ(first.substr(first.size() - 18, 2), "%h");
    EXPECT_EQ(fromUtf8(first.substr(0, first.size() - 18)), stem.substr(0, (255 - 18) / 2));
}

TEST_F(NamedObjects, NameExistsWhileHeldAndIsFreeAfterTheLastClose) {
    HANDLE first = CreateMutexW(nullptr, FALSE, u"Backup_Key_Mutex");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    HANDLE second = CreateMutexW(nullptr, FALSE, u"Backup_Key_Mutex");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    CloseHandle(first);
    HANDLE opened = OpenMutexW(MUTEX_ALL_ACCESS, FALSE, u"Backup_Key_Mutex");
    EXPECT_NE(opened, nullptr);
    CloseHandle(opened);
    CloseHandle(second);
    SetLastError(0);
    EXPECT_EQ(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, u"Backup_Key_Mutex"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    HANDLE again = CreateMutexW(nullptr, FALSE, u"Backup_Key_Mutex");
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    CloseHandle(again);
    EXPECT_FALSE(std::filesystem::exists(m_szFolder + "/Backup_Key_Mutex"));
}

TEST_F(NamedObjects, ANameOfAnotherKindOrWithABackslashIsRefused) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, u"Shared");
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, u"Shared"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(OpenFileMappingW(FILE_MAP_READ, FALSE, u"Shared"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    CloseHandle(mutex);
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, u"a\\b"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(NamedObjects, TheRuntimeFolderIsMadePrivateAndAForeignOneIsRefused) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, u"m");
    ASSERT_NE(mutex, nullptr);
    struct stat st {};
    ASSERT_EQ(::stat(m_szFolder.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    CloseHandle(mutex);

    ASSERT_EQ(::chmod(m_szFolder.c_str(), 0755), 0);
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, u"m"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);

    const std::string link = m_szRoot + "/link";
    ASSERT_EQ(::chmod(m_szFolder.c_str(), 0700), 0);
    ASSERT_EQ(::symlink(m_szFolder.c_str(), link.c_str()), 0);
    ::setenv("VELQ_RUNTIME_DIR", link.c_str(), 1);
    EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, u"e"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(NamedObjects, ANameHeldByAnotherProcessExistsUntilThatProcessDies) {
    Child holder("own-mutex", u"C--a-b.txt");
    ASSERT_EQ(holder.nextReport(), 'r');
    HANDLE seen = CreateMutexW(nullptr, FALSE, u"C--a-b.txt");
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    CloseHandle(seen);
    holder.kill();
    HANDLE fresh = CreateMutexW(nullptr, FALSE, u"C--a-b.txt");
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    CloseHandle(fresh);
}

TEST_F(NamedObjects, MutexOwnershipIsRecursiveAndExcludesOtherProcesses) {
    HANDLE mutex = CreateMutexW(nullptr, TRUE, u"owned");
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);  // the owner takes it again
    {
        Child other("try-mutex", u"owned");
        EXPECT_EQ(other.exitCode(), 10);  // timed out
    }
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    EXPECT_EQ(ReleaseMutex(mutex), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
    {
        Child other("try-mutex", u"owned");
        EXPECT_EQ(other.exitCode(), 11);  // free now
    }
    CloseHandle(mutex);
}

TEST_F(NamedObjects, AMutexWhoseOwnerDiedIsAbandoned) {
    Child owner("own-mutex", u"abandoned");
    ASSERT_EQ(owner.nextReport(), 'r');
    HANDLE mutex = OpenMutexW(MUTEX_ALL_ACCESS, FALSE, u"abandoned");
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_TIMEOUT);
    owner.kill();
    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), WAIT_ABANDONED_0);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);  // the abandoned mutex is ours now
    CloseHandle(mutex);
}

TEST_F(NamedObjects, AnAutoResetEventReleasesOneWaitingProcessPerSignal) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, u"VELQAssistantEvent");
    ASSERT_NE(event, nullptr);
    Child first("wait-event", u"VELQAssistantEvent");
    Child second("wait-event", u"VELQAssistantEvent");
    ASSERT_EQ(first.nextReport(), 'r');
    ASSERT_EQ(second.nextReport(), 'r');
    ASSERT_EQ(SetEvent(event), TRUE);
    // Whichever child took the signal reports it; the event is then unsignalled again.
    struct pollfd reports[] = {{first.reportFd(), POLLIN, 0}, {second.reportFd(), POLLIN, 0}};
    ASSERT_GT(::poll(reports, 2, -1), 0);
    const bool firstWent = (reports[0].revents & POLLIN) != 0;
    EXPECT_EQ(firstWent ? first.nextReport() : second.nextReport(), 'w');
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    ASSERT_EQ(SetEvent(event), TRUE);
    EXPECT_EQ(firstWent ? second.nextReport() : first.nextReport(), 'w');
    first.kill();
    second.kill();
    EXPECT_FALSE(first.hasReportWaiting());
    EXPECT_FALSE(second.hasReportWaiting());
    CloseHandle(event);
}

TEST_F(NamedObjects, ADeadHolderOfTheTurnDoesNotBlockTheNextProcess) {
    Child holder("hold-turn", u"VELQAssistantEvent");
    ASSERT_EQ(holder.nextReport(), 'r');
    HANDLE turn = CreateEventW(nullptr, FALSE, FALSE, u"VELQAssistantEvent");
    ASSERT_NE(turn, nullptr);
    ASSERT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(WaitForSingleObject(turn, 0), WAIT_TIMEOUT);  // a live holder keeps its turn
    holder.kill();
    EXPECT_EQ(WaitForSingleObject(turn, INFINITE), WAIT_OBJECT_0);
    // The turn is ours now: a second waiter must wait for our SetEvent.
    EXPECT_EQ(WaitForSingleObject(turn, 0), WAIT_TIMEOUT);
    EXPECT_EQ(SetEvent(turn), TRUE);
    EXPECT_EQ(WaitForSingleObject(turn, 0), WAIT_OBJECT_0);
    CloseHandle(turn);
}

TEST_F(NamedObjects, AManualEventSetByAnotherProcessWakesAnEndlessWait) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, u"VELQCryptEvent");
    ASSERT_NE(event, nullptr);
    HANDLE local = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Child setter("set-event", u"VELQCryptEvent");
    const HANDLE both[] = {local, event};
    EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, INFINITE), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(setter.exitCode(), 0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);  // a manual event stays set
    EXPECT_EQ(ResetEvent(event), TRUE);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    SetEvent(local);
    SetEvent(event);
    EXPECT_EQ(WaitForMultipleObjects(2, both, TRUE, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(local, 0), WAIT_TIMEOUT);  // the auto-reset one was taken with the other
    CloseHandle(local);
    CloseHandle(event);
}

TEST_F(NamedObjects, OpeningANameNobodyHoldsFailsAndClearsWhatTheDeadLeft) {
    EXPECT_EQ(OpenEventW(EVENT_ALL_ACCESS, FALSE, u"handoff-event"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    {
        Child holder("hold-turn", u"handoff-event");
        ASSERT_EQ(holder.nextReport(), 'r');
    }  // killed: its file stays behind, held by nobody
    EXPECT_TRUE(std::filesystem::exists(m_szFolder + "/handoff-event"));
    EXPECT_EQ(OpenEventW(EVENT_ALL_ACCESS, FALSE, u"handoff-event"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(m_szFolder + "/handoff-event"));
}

// The hand-off's two sides let go of the event at about the same moment; whichever closes last, the name
// must go. Two handles of one process are as separate as two processes' (each has its own lock).
TEST_F(NamedObjects, TheLastTwoHandlesClosedTogetherTakeTheNameAway) {
    const std::string path = m_szFolder + "/handoff-event";
    for (int round = 0; round < 5000; ++round) {
        HANDLE mine = CreateEventW(nullptr, FALSE, FALSE, u"handoff-event");
        HANDLE theirs = OpenEventW(EVENT_ALL_ACCESS, FALSE, u"handoff-event");
        ASSERT_NE(mine, nullptr);
        ASSERT_NE(theirs, nullptr);
        std::atomic<int> ready{0};
        std::thread other([&] {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            CloseHandle(theirs);
        });
        ready.fetch_add(1);
        while (ready.load() < 2) {
        }
        CloseHandle(mine);
        other.join();
        ASSERT_FALSE(std::filesystem::exists(path)) << "left behind in round " << round;
    }
}

TEST_F(NamedObjects, AMappingSharesItsBytesAndItsSizeWithAnotherProcess) {
    HANDLE mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 6000, u"handoff-map");
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    auto* view = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view[5999], 0);  // a new mapping is zero-filled
    std::strcpy(view, "from the parent");
    Child reader("rewrite-mapping", u"handoff-map");
    EXPECT_EQ(reader.exitCode(), 0);
    EXPECT_STREQ(view + 5000, "from the child");
    EXPECT_EQ(UnmapViewOfFile(view), TRUE);
    EXPECT_EQ(UnmapViewOfFile(view), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
    CloseHandle(mapping);
}

TEST_F(NamedObjects, AViewStaysWithinItsMappingAndItsHandlesAccess) {
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 70000, u"map");
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 4096, 0), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MAPPED_ALIGNMENT);
    EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 65536, 4465), nullptr);  // one byte too many
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    void* tail = MapViewOfFile(mapping, FILE_MAP_READ, 0, 65536, 0);
    MEMORY_BASIC_INFORMATION info{};
    ASSERT_EQ(VirtualQuery(static_cast<char*>(tail) + 10, &info, sizeof(info)), sizeof(info));
    EXPECT_EQ(info.AllocationBase, tail);
    EXPECT_EQ(info.RegionSize, 8192u);  // 4464 bytes, in whole pages
    EXPECT_EQ(info.Protect, PAGE_READONLY);

    HANDLE reader = OpenFileMappingW(FILE_MAP_READ, FALSE, u"map");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(MapViewOfFile(reader, FILE_MAP_WRITE, 0, 0, 0), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    CloseHandle(reader);

    CloseHandle(mapping);  // the view keeps the name
    HANDLE again = OpenFileMappingW(FILE_MAP_READ, FALSE, u"map");
    EXPECT_NE(again, nullptr);
    CloseHandle(again);
    EXPECT_EQ(UnmapViewOfFile(tail), TRUE);
    EXPECT_EQ(OpenFileMappingW(FILE_MAP_READ, FALSE, u"map"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0, u"empty"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

}  // namespace
}  // namespace plat
