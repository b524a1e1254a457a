// The remover of a batch's files on its own: when it deletes at once, what it tells of a file waiting for
// its thread, and that a batch's end leaves nothing waiting. Its deletions are held by the test where the
// waiting has to be seen.
#include "engine/FileRemover.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>

#include "files_fixture.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/handle.h"
#include "plat/strings.h"

namespace files_test {
namespace {

// Deletions that wait until the test lets them go.
class HeldRemoval {
public:
    FileRemover::Removal removal() {
        return [this](const std::u16string& path, plat::DWORD attributes) {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_released.wait(lock, [this] { return m_bReleased; });
            lock.unlock();
            return FileRemover::removeNow(path, attributes);
        };
    }
    void release() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bReleased = true;
        }
        m_released.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_released;
    bool m_bReleased = false;
};

class FileRemoverTest : public FilesTest {
protected:
    // A file of a few bytes, read-only when asked, and its identity.
    FileRemover::Identity make(const std::string& name, bool bReadOnly = false) {
        writeAll(path(name), Bytes{'x'});
        const std::u16string wide = plat::fromUtf8(path(name));
        plat::HANDLE h = plat::CreateFileW(wide.c_str(), plat::GENERIC_READ, 0, nullptr, plat::OPEN_EXISTING,
                                           plat::FILE_ATTRIBUTE_NORMAL, nullptr);
        EXPECT_NE(h, plat::INVALID_HANDLE_VALUE) << name;
        const std::optional<FileRemover::Identity> identity = FileRemover::identityOf(h);
        plat::CloseHandle(h);
        EXPECT_TRUE(identity.has_value()) << name;
        if (bReadOnly) {
            plat::SetFileAttributesW(wide.c_str(), plat::FILE_ATTRIBUTE_READONLY);
        }
        return identity.value_or(FileRemover::Identity{});
    }
    std::u16string wpath(const std::string& name) const { return plat::fromUtf8(path(name)); }
    bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }
};

TEST_F(FileRemoverTest, OutsideABatchOrWithoutAnIdentityTheFileGoesAtOnce) {
    FileRemover remover;
    const FileRemover::Identity a = make("a", true);
    remover.remove(wpath("a"), plat::FILE_ATTRIBUTE_READONLY, a);
    EXPECT_FALSE(exists("a")) << "a read-only file stayed";

    remover.beginBatch();
    make("b");
    remover.remove(wpath("b"), 0, std::nullopt);
    EXPECT_FALSE(exists("b"));
    EXPECT_FALSE(remover.waitForPending()) << "nothing was handed to the thread";
    remover.endBatch();
    EXPECT_FALSE(remover.inBatch());
}

TEST_F(FileRemoverTest, InABatchAFileIsPendingUntilTheThreadHasDeletedIt) {
    HeldRemoval held;
    FileRemover remover(held.removal());
    const FileRemover::Identity a = make("a");
    const FileRemover::Identity other = make("other");
    remover.beginBatch();
    remover.remove(wpath("a"), 0, a);

    EXPECT_TRUE(remover.isPending(a));
    EXPECT_FALSE(remover.isPending(other));
    EXPECT_TRUE(exists("a"));
    held.release();
    EXPECT_TRUE(remover.waitForPending());
    EXPECT_FALSE(exists("a"));
    EXPECT_FALSE(remover.isPending(a));
    EXPECT_FALSE(remover.waitForPending());
    EXPECT_TRUE(exists("other"));
}

// More files than may wait at once, some read-only: the worker is held back at the bound, and the end of
// the batch returns only when every one is gone.
TEST_F(FileRemoverTest, EndOfBatchLeavesNothingWaiting) {
    FileRemover remover;
    remover.beginBatch();
    constexpr int kFiles = 150;
    for (int i = 0; i < kFiles; ++i) {
        const std::string name = "f" + std::to_string(i);
        const bool bReadOnly = i % 3 == 0;
        const FileRemover::Identity identity = make(name, bReadOnly);
        remover.remove(wpath(name), bReadOnly ? plat::FILE_ATTRIBUTE_READONLY : 0, identity);
    }
    remover.endBatch();
    EXPECT_TRUE(files().empty()) << files().size() << " files stayed, first " << *files().begin();

    make("after");
    remover.remove(wpath("after"), 0, FileRemover::Identity{});
    EXPECT_FALSE(exists("after")) << "after its batch the remover deletes at once";
}

// As late as the batch allows: a file stays until the worker waits for it.
TEST_F(FileRemoverTest, TheLatestScheduleDeletesOnlyWhenTheWorkerWaits) {
    FileRemover remover(&FileRemover::removeNow, FileRemover::Schedule::kLatest);
    remover.beginBatch();
    const FileRemover::Identity a = make("a");
    remover.remove(wpath("a"), 0, a);
    EXPECT_TRUE(remover.isPending(a));
    EXPECT_TRUE(exists("a"));
    EXPECT_TRUE(remover.waitForPending());
    EXPECT_FALSE(exists("a"));
    remover.remove(wpath("b"), 0, make("b"));
    remover.endBatch();
    EXPECT_TRUE(files().empty());
}

// A deletion refused for sharing (on Windows, the worker's handle on a source it is about to find
// waiting) is tried once more when the worker waits; refused again, it is given up.
TEST_F(FileRemoverTest, ADeletionRefusedForSharingIsTriedOnceMoreWhenTheWorkerWaits) {
    for (const bool bRefusedTwice : {false, true}) {
        std::atomic<int> nTries{0};
        FileRemover remover([&](const std::u16string& path, plat::DWORD attributes) -> plat::DWORD {
            if (nTries++ == 0 || bRefusedTwice) {
                return plat::ERROR_SHARING_VIOLATION;
            }
            return FileRemover::removeNow(path, attributes);
        });
        remover.beginBatch();
        const FileRemover::Identity a = make("a");
        remover.remove(wpath("a"), 0, a);
        EXPECT_TRUE(remover.isPending(a)) << "a refused deletion left the queue";
        EXPECT_TRUE(remover.waitForPending());
        EXPECT_EQ(nTries.load(), 2);
        EXPECT_EQ(exists("a"), bRefusedTwice);
        EXPECT_FALSE(remover.isPending(a));
        remover.endBatch();
        std::filesystem::remove(path("a"));
    }
}

TEST_F(FileRemoverTest, ADestroyedRemoverHasDeletedEverything) {
    HeldRemoval held;
    {
        FileRemover remover(held.removal());
        remover.beginBatch();
        remover.remove(wpath("a"), 0, make("a"));
        remover.remove(wpath("b"), 0, make("b"));
        held.release();
    }
    EXPECT_TRUE(files().empty());
}

}  // namespace
}  // namespace files_test
