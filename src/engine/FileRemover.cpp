// The deletions of a crypt batch, at once or on a thread of their own (see FileRemover.h).
#include "engine/FileRemover.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "diag/DbgLog.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/handle.h"

namespace {

// Whether `path` must lose its read-only attribute before it can be deleted: by the attributes the record
// holds, or by those the file has now. A decrypted file gets the stored attributes, whose mode (carried in
// the high bits) may deny writing without the read-only bit among them.
bool isReadOnly(const std::u16string& path, plat::DWORD dwRecorded) {
    if ((dwRecorded & plat::FILE_ATTRIBUTE_READONLY) != 0) {
        return true;
    }
    const plat::DWORD dwNow = plat::GetFileAttributesW(path.c_str());
    return dwNow != plat::INVALID_FILE_ATTRIBUTES && (dwNow & plat::FILE_ATTRIBUTE_READONLY) != 0;
}

void logFailure(plat::DWORD dwError) {
    VELQ_LOG(DBG_LEVEL_TRC, u" (_deleteFiles)", u"Delete file failure! Error code: %d",
             static_cast<int>(dwError));
}

}  // namespace

FileRemover::FileRemover(Removal removal, Schedule schedule)
    : m_removal(std::move(removal)), m_schedule(schedule) {}

FileRemover::~FileRemover() {
    endBatch();
}

void FileRemover::beginBatch() {
    m_bInBatch = true;
}

void FileRemover::endBatch() {
    if (m_thread.joinable()) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bEnding = true;
        }
        m_work.notify_one();
        m_thread.join();
        m_bEnding = false;
    }
    m_bInBatch = false;
}

void FileRemover::remove(const std::u16string& path, plat::DWORD dwRecordedAttributes,
                         const std::optional<Identity>& identity) {
    bool bAtOnce = !m_bInBatch || !identity.has_value();
    if (!bAtOnce && !m_thread.joinable()) {
        try {
            m_thread = std::thread(&FileRemover::threadMain, this);
        } catch (const std::system_error&) {
            bAtOnce = true;  // no thread to be had: the batch deletes as it goes
        }
    }
    if (bAtOnce) {
        if (const plat::DWORD dwError = m_removal(path, dwRecordedAttributes); dwError != 0) {
            logFailure(dwError);
        }
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_pending.size() >= kMaxPending) {
        ++m_nWaiting;
        m_work.notify_one();
        m_done.wait(lock, [this] { return m_pending.size() < kMaxPending; });
        --m_nWaiting;
    }
    m_pending.push_back(Entry{path, dwRecordedAttributes, *identity, false});
    const bool bWake = m_pending.size() % kWakeEvery == 0;
    lock.unlock();
    if (bWake) {
        m_work.notify_one();
    }
}

bool FileRemover::isPending(const Identity& identity) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_pending.begin(), m_pending.end(),
                       [&identity](const Entry& entry) { return entry.identity == identity; });
}

bool FileRemover::waitForPending() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_pending.empty()) {
        return false;
    }
    ++m_nWaiting;
    m_work.notify_one();
    m_done.wait(lock, [this] { return m_pending.empty(); });
    --m_nWaiting;
    return true;
}

bool FileRemover::mayDelete() const {
    if (m_pending.empty()) {
        return false;
    }
    const bool bAtOnce = m_schedule == Schedule::kAtOnce && !m_pending.front().bRefusedForSharing;
    return bAtOnce || m_nWaiting > 0 || m_bEnding;
}

void FileRemover::threadMain() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_work.wait(lock, [this] { return mayDelete() || (m_bEnding && m_pending.empty()); });
        if (m_pending.empty()) {
            return;  // the batch ended and everything handed over is done with
        }
        deleteFront(lock);
    }
}

void FileRemover::deleteFront(std::unique_lock<std::mutex>& lock) {
    // The entry stays in the queue while it is tried: until its file is gone it is pending.
    const Entry entry = m_pending.front();
    lock.unlock();
    const plat::DWORD dwError = m_removal(entry.path, entry.dwRecordedAttributes);
    lock.lock();
    if (dwError == plat::ERROR_SHARING_VIOLATION && !entry.bRefusedForSharing && !m_bEnding) {
        // Maybe the worker's own handle, on a source it is about to find waiting (FileRemover.h).
        m_pending.front().bRefusedForSharing = true;
        return;
    }
    if (dwError != 0) {
        logFailure(dwError);
    }
    m_pending.pop_front();
    m_done.notify_all();
}

std::optional<FileRemover::Identity> FileRemover::identityOf(plat::HANDLE hFile) {
    plat::BY_HANDLE_FILE_INFORMATION info{};
    if (!plat::isUsableHandle(hFile) || !plat::GetFileInformationByHandle(hFile, &info)) {
        return std::nullopt;
    }
    return Identity{info.dwVolumeSerialNumber, info.nFileIndexHigh, info.nFileIndexLow};
}

plat::DWORD FileRemover::removeNow(const std::u16string& path, plat::DWORD dwRecordedAttributes) {
    if (isReadOnly(path, dwRecordedAttributes)) {
        plat::SetFileAttributesW(path.c_str(), plat::FILE_ATTRIBUTE_NORMAL);
    }
    return plat::DeleteFileW(path.c_str()) ? 0 : plat::GetLastError();
}
