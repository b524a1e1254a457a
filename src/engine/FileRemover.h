// FileRemover: the deletions of a crypt batch. Most of a small file's cost is the kernel's work of creating
// and of freeing files. While a batch runs, the files it is done with (a proved source, the proof's plain
// copy, a failed destination) are deleted on a thread of the remover's own, beside the next file's work
// on the other core; outside a batch they are deleted at once, and so is a file whose identity is unknown.
//
// The batch must see what it would see if every deletion were done at once. A file waiting for deletion
// is known by its identity (volume and index), and the engine asks before it works a file:
// - a source that turns out to be one waiting (the same path twice, a path through a linked folder) is
//   closed and opened again once the deletions are done: the open then fails as it would have, or finds
//   the file's other name (a hard link) still there;
// - a name found taken where a new file is to be made may be one waiting: the engine waits for the
//   deletions and looks again (waitForPending).
// On Windows the worker's handle on such a source refuses the thread's deletion for sharing until it is
// closed; a deletion refused so is tried again when the worker next waits (its handle is closed then) or
// when the batch ends, and only then given up, as a deletion done at once would have been.
//
// Threads: the batch's worker calls everything; the remover's thread only deletes. endBatch (and the
// destructor) return once every deletion handed over is done and the thread has ended.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "plat/types.h"

class FileRemover {
public:
    // What names a file whatever path leads to it.
    struct Identity {
        plat::DWORD dwVolume = 0;
        plat::DWORD dwIndexHigh = 0;
        plat::DWORD dwIndexLow = 0;
        bool operator==(const Identity&) const = default;
    };
    // A deletion: 0 when the file is gone, else the error that kept it.
    using Removal = std::function<plat::DWORD(const std::u16string& path, plat::DWORD dwRecordedAttributes)>;

    // When the thread deletes a file handed over: at once, or as late as the batch allows, that is when
    // the worker waits for it (at a name found taken, a source found waiting, the bound, the batch's
    // end). Tests take the latter to see every wait of the worker happen.
    enum class Schedule { kAtOnce, kLatest };

    // `removal` is the deletion itself; tests give one that they can hold.
    explicit FileRemover(Removal removal = &removeNow, Schedule schedule = Schedule::kAtOnce);
    ~FileRemover();
    FileRemover(const FileRemover&) = delete;
    FileRemover& operator=(const FileRemover&) = delete;

    // Chooses the schedule of the batches to come; the engine keeps the one it was made with.
    void setSchedule(Schedule schedule) { m_schedule = schedule; }
    // From here deletions of files with a known identity are handed to the thread.
    void beginBatch();
    // Returns once every deletion handed over is done; later deletions are done at once again.
    void endBatch();
    bool inBatch() const { return m_bInBatch; }

    // Deletes `path` now, or inside a batch on the thread when `identity` is known. The file's handles
    // must be closed. A failure is logged, never reported.
    void remove(const std::u16string& path, plat::DWORD dwRecordedAttributes,
                const std::optional<Identity>& identity);
    // Whether the file of `identity` waits for its deletion.
    bool isPending(const Identity& identity);
    // Returns once nothing waits for deletion; true when something did. The caller holds no handle on a
    // file that waits.
    bool waitForPending();

    // The identity of an open file; none when the system cannot tell it.
    static std::optional<Identity> identityOf(plat::HANDLE hFile);
    // The deletion the remover does: the read-only attribute cleared (as recorded, or as the file has it
    // now), then the file deleted. 0, or the error of the deletion.
    static plat::DWORD removeNow(const std::u16string& path, plat::DWORD dwRecordedAttributes);

private:
    struct Entry {
        std::u16string path;
        plat::DWORD dwRecordedAttributes;
        Identity identity;
        bool bRefusedForSharing;  // its next try is its last
    };
    void threadMain();
    // Whether the thread may try the front entry now; with m_mutex held.
    bool mayDelete() const;
    // The front entry tried, with m_mutex held by `lock` before and after.
    void deleteFront(std::unique_lock<std::mutex>& lock);

    // Bounds the plain copies that wait for deletion and the worker's lead over the thread.
    static constexpr std::size_t kMaxPending = 64;
    // The thread is woken for a few files at a time, then deletes until none is left: waking it costs the
    // worker about as much as a file's deletion costs the thread (a wake-up per file was 5 % of the
    // worker's time in a folder of small files).
    static constexpr std::size_t kWakeEvery = 8;
    static_assert(kMaxPending % kWakeEvery == 0, "a full queue has woken the thread");

    const Removal m_removal;
    Schedule m_schedule;      // set outside a batch only
    bool m_bInBatch = false;  // the worker's own
    std::mutex m_mutex;
    std::condition_variable m_work;  // to the thread: an entry, a waiting worker, or the end of the batch
    std::condition_variable m_done;  // to the worker: an entry gone
    std::deque<Entry> m_pending;     // the front one is being tried; it leaves once it is done with
    int m_nWaiting = 0;              // the worker waits for an entry to go
    bool m_bEnding = false;
    std::thread m_thread;  // started at the batch's first deferred deletion
};
