// What the engine's tests share: a simulated sensor installed for one test, a private data home, and a
// client that records each notification and can end the wait as a verifying owner would.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "bio/AsynBioOperation.h"
#include "common/VELQUserInfo.h"
#include "common/data_home.h"
#include "plat/strings.h"
#include "plat/sync.h"
#include "winbio/backend.h"

namespace biotest {

// Only a guard against a hang: no test relies on how long anything takes.
inline constexpr plat::DWORD kHangGuardMs = 60000;

// One notification as the client saw it.
struct Note {
    int type = -1;
    plat::HRESULT result = 0;
    std::u16string userSid;  // empty when getUserInfo() was null
    plat::DWORD feedBack = 0;
    plat::DWORD enrollDone = 0;
};

// The client's record, and how it ends the wait.
struct Recorder {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Note> notes;
    // Ends the wait (setThreadAutoEnd) at an identified sample of this SID, if not empty.
    std::u16string endOnSid;
    // Ends the wait once this many notifications have come, if above 0.
    std::size_t endAfter = 0;

    // Waits until at least `count` notifications have come; false if the guard ran out.
    bool waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(kHangGuardMs),
                                [&] { return notes.size() >= count; });
    }
    std::vector<Note> snapshot() {
        std::lock_guard<std::mutex> lock(mutex);
        return notes;
    }
};

inline plat::HRESULT recordingClient(int type, AsynBioOperation* op, void* context) {
    auto* recorder = static_cast<Recorder*>(context);
    Note note;
    note.type = type;
    note.result = op->getResult();
    if (VELQUserInfo* user = op->getUserInfo()) {
        note.userSid = user->getVELQSID();
    }
    if (const BioNotifyData* data = op->getNotifyData()) {
        note.feedBack = data->m_feedBack;
        note.enrollDone = data->m_enrollDone;
    }
    bool end = false;
    {
        std::lock_guard<std::mutex> lock(recorder->mutex);
        recorder->notes.push_back(note);
        end = (!recorder->endOnSid.empty() && type == OP_TYPE_VERIFYUSER_END && note.result == 0 &&
               note.userSid == recorder->endOnSid) ||
              (recorder->endAfter > 0 && recorder->notes.size() >= recorder->endAfter);
    }
    recorder->changed.notify_all();
    if (end) {
        op->setThreadAutoEnd();
    }
    return 0;
}

// A test with the simulated sensor of `script` and a private data home.
class SimSensorTest : public ::testing::Test {
protected:
    void TearDown() override { restoreBackend(); }

    // Puts the backend of before useSim back; the simulated sensor goes with everything it still holds.
    void restoreBackend() {
        if (m_installed) {
            plat::winbio::installBackend(std::move(m_previous));
            m_installed = false;
        }
    }

    // Installs the simulated sensor; skips the test when it is not built in.
    void useSim(std::string_view text) {
        plat::winbio::SimScript script;
        std::string error;
        ASSERT_TRUE(plat::winbio::parseSimScript(text, script, error)) << error;
        std::unique_ptr<plat::winbio::Backend> sim = plat::winbio::makeSimBackend(script, error);
        if (!sim) {
            GTEST_SKIP() << error;
        }
        m_previous = plat::winbio::installBackend(std::move(sim));
        m_installed = true;
    }

    // Waits for the worker to end (the owner's part) and lets cancelOperation close its handle.
    static void waitForWorker(AsynBioOperation& op) {
        plat::HANDLE worker = op.getThreadHandle();
        ASSERT_NE(worker, nullptr) << "no worker was started";
        ASSERT_EQ(plat::WaitForSingleObject(worker, kHangGuardMs), plat::WAIT_OBJECT_0) << "worker hangs";
        EXPECT_EQ(op.cancelOperation(), 0);
        EXPECT_EQ(op.getThreadHandle(), nullptr);
    }

    // The SID text of an account other than the process owner, empty when the machine has none.
    static std::u16string otherUserSid() {
        VELQUserInfoManager::initUsers(1);
        for (VELQUserInfo* user : *VELQUserInfoManager::getAllUsers()) {
            if (user->getVELQSID() != ownerSid()) {
                return user->getVELQSID();
            }
        }
        return {};
    }

    static std::u16string ownerSid() { return plat::processOwnerSidText(); }

    ScopedDataHome m_dataHome;

private:
    std::unique_ptr<plat::winbio::Backend> m_previous;
    bool m_installed = false;
};

}  // namespace biotest
