// The verification road of the engine on the simulated sensor: session, worker, identification callback
// and client, as the gate drives them.
#include <gtest/gtest.h>

#include "bio/bio_engine_fixture.h"
#include "common/VELQBioOperation.h"

using namespace plat;

namespace biotest {
namespace {

class VerificationTest : public SimSensorTest {
protected:
    // Opens the session, registers the recorder and starts the verification worker.
    void start(AsynBioOperation& op, Recorder& recorder) {
        ASSERT_EQ(op.openSession(BIO_APP_TYPE_VERIFY), 0);
        ASSERT_NE(op.getSessionHandle(), 0u);
        op.setClient(recordingClient, &recorder);
        ASSERT_EQ(op.verifyUser(true), 0);
    }
    // The owner's part after the wait: the worker has ended, then cancel and close.
    void finish(AsynBioOperation& op) {
        waitForWorker(op);
        EXPECT_EQ(op.closeSession(), 0);
        EXPECT_EQ(op.getSessionHandle(), 0u);
    }
};

TEST_F(VerificationTest, OwnersFingerIsIdentifiedAndEndsTheWait) {
    useSim("enrolled self 2\ntouch self\n");
    AsynBioOperation op;
    Recorder recorder;
    recorder.endOnSid = ownerSid();
    start(op, recorder);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].type, OP_TYPE_VERIFYUSER_END);
    EXPECT_EQ(notes[0].result, 0);
    EXPECT_EQ(notes[0].userSid, ownerSid());
    EXPECT_EQ(op.getUserInfo()->getVELQSID(), ownerSid());
    // The client ended the wait from inside the sample: nothing was pending any more to be cancelled.
    EXPECT_EQ(op.getResult(), 0);
}

TEST_F(VerificationTest, RefusedSamplesKeepTheWaitGoingUntilTheOwnersFinger) {
    const std::u16string other = otherUserSid();
    if (other.empty()) {
        GTEST_SKIP() << "this machine has no account besides the process owner";
    }
    std::string script = "enrolled self 1\n";
    for (int i = 0; i < 12; ++i) {
        script += "touch unknown\ntouch nomatch\n";
    }
    script += "touch bad\ntouch " + toUtf8(other) + "\ntouch S-1-22-1-4000000000\ntouch self\n";
    useSim(script);
    AsynBioOperation op;
    Recorder recorder;
    recorder.endOnSid = ownerSid();
    start(op, recorder);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    ASSERT_EQ(notes.size(), 28u);
    for (std::size_t i = 0; i < 25; ++i) {
        EXPECT_EQ(notes[i].type, OP_TYPE_VERIFYUSER_END) << i;
        EXPECT_EQ(notes[i].result, BIO_E_NOT_IDENTIFIED) << i;
        EXPECT_TRUE(notes[i].userSid.empty()) << i;
    }
    EXPECT_EQ(notes[24].feedBack, WINBIO_FP_POOR_QUALITY) << "the bad capture's reject detail is kept";
    // Another account's finger is identified as that account; refusing it is the client's business.
    EXPECT_EQ(notes[25].result, 0);
    EXPECT_EQ(notes[25].userSid, other);
    // A SID of no account on the machine identifies nobody, and clears the user found before.
    EXPECT_EQ(notes[26].result, BIO_E_NOT_IDENTIFIED);
    EXPECT_TRUE(notes[26].userSid.empty());
    EXPECT_EQ(notes[27].result, 0);
    EXPECT_EQ(notes[27].userSid, ownerSid());
}

TEST_F(VerificationTest, DeviceFailuresEndTheWorkerWithoutTellingTheClient) {
    struct Case {
        const char* name;
        const char* script;
    };
    const Case cases[] = {
        {"failure during the wait", "enrolled self 1\ntouch unknown\ntouch error 0x80098036\ntouch self\n"},
        {"identification cannot start", "enrolled self 1\nfail WinBioIdentifyWithCallback 0x80098036\n"},
        {"wait fails", "enrolled self 1\nfail WinBioWait 0x80070006\ntouch self\n"},
    };
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        useSim(testCase.script);
        AsynBioOperation op;
        Recorder recorder;
        recorder.endOnSid = ownerSid();
        start(op, recorder);
        finish(op);
        EXPECT_EQ(op.getResult(), BIO_E_DEVICE);
        for (const Note& note : recorder.snapshot()) {
            EXPECT_NE(note.result, 0) << "no sample may have matched";
        }
        restoreBackend();
    }
}

TEST_F(VerificationTest, AWaitNobodyAnswersEndsFromAnotherThreadAndTheClientHearsNothingMore) {
    useSim("enrolled self 1\ntouch unknown\n");
    AsynBioOperation op;
    Recorder recorder;
    start(op, recorder);
    ASSERT_TRUE(recorder.waitFor(1));
    // As the wait window's close handler does it, from a thread of its own.
    EXPECT_EQ(op.setThreadAutoEnd(), 0);
    finish(op);
    EXPECT_EQ(recorder.snapshot().size(), 1u);
    EXPECT_NE(op.getResult(), 0);
}

TEST_F(VerificationTest, AnEndAskedForBeforeTheWorkerArmsItsSampleIsNotLost) {
    // No touch at all: only the end can finish the wait. Asked for again right after the start, as an
    // owner does whose window went away while the worker was being started.
    useSim("enrolled self 1\n");
    for (int round = 0; round < 20; ++round) {
        AsynBioOperation op;
        Recorder recorder;
        start(op, recorder);
        op.setThreadAutoEnd();
        finish(op);
        EXPECT_TRUE(recorder.snapshot().empty());
    }
}

TEST_F(VerificationTest, AWorkerWithoutKeepRunningLocksAndUnlocksWithoutARead) {
    useSim("enrolled self 1\ntouch self\n");
    AsynBioOperation op;
    Recorder recorder;
    ASSERT_EQ(op.openSession(BIO_APP_TYPE_VERIFY), 0);
    op.setClient(recordingClient, &recorder);
    ASSERT_EQ(op.verifyUser(false), 0);
    waitForWorker(op);
    EXPECT_TRUE(recorder.snapshot().empty());
    EXPECT_EQ(op.getResult(), 0);
    // The unit was unlocked while the engine's session stays open: another session can take it.
    WINBIO_SESSION_HANDLE other = 0;
    ASSERT_EQ(WinBioOpenSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, WINBIO_FLAG_DEFAULT, nullptr, 0,
                                WINBIO_DB_DEFAULT, &other),
              S_OK);
    EXPECT_EQ(WinBioLockUnit(other, 1), S_OK);
    WinBioCloseSession(other);
    EXPECT_EQ(op.closeSession(), 0);
}

TEST_F(VerificationTest, OpenSessionRefusesWhatTheSensorCannotDo) {
    struct Case {
        const char* script;
        HRESULT expected;
    };
    const Case cases[] = {
        {"enabled 0\n", BIO_E_FAILED},
        {"units 0\n", BIO_E_DEVICE},
        {"fail WinBioEnumBiometricUnits 0x80098036\n", BIO_E_DEVICE},
        {"fail WinBioOpenSession 0x80098034\n", BIO_E_DEVICE},
    };
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.script);
        useSim(testCase.script);
        AsynBioOperation op;
        EXPECT_EQ(op.openSession(BIO_APP_TYPE_VERIFY), testCase.expected);
        EXPECT_EQ(op.getSessionHandle(), 0u);
        // The service object is there in any case: the count refresh of a disabled sensor needs it.
        EXPECT_NE(op.getBioOperation(), nullptr);
        EXPECT_EQ(op.cancelOperation(), 0);
        EXPECT_EQ(op.closeSession(), 0);
        restoreBackend();
    }
}

TEST_F(VerificationTest, ADisabledSensorRefreshesTheOwnersStoredCount) {
    useSim("enabled 0\nenrolled self 3\n");
    VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner();
    ASSERT_NE(owner, nullptr);
    owner->setFingerprintCount(0);
    AsynBioOperation op;
    EXPECT_EQ(op.openSession(BIO_APP_TYPE_VERIFY), BIO_E_FAILED);
    EXPECT_EQ(owner->getFingerprintCount(), 3u);
    VELQUserInfo reloaded(*owner);
    reloaded.setFingerprintCount(0);
    EXPECT_EQ(reloaded.load(0), 0);
    EXPECT_EQ(reloaded.getFingerprintCount(), 3u) << "the refreshed count is saved";
}

TEST_F(VerificationTest, TheLastUnitOfSeveralIsTheSensor) {
    useSim("units 3\nenrolled self 1\n");
    AsynBioOperation op;
    ASSERT_EQ(op.openSession(BIO_APP_TYPE_VERIFY), 0);
    EXPECT_EQ(op.getUnitId(), 3u);
    EXPECT_EQ(op.closeSession(), 0);
}

TEST_F(VerificationTest, CancelOnAnIdleObjectOnlyCancels) {
    useSim("enrolled self 1\n");
    AsynBioOperation op;
    EXPECT_EQ(op.cancelOperation(), 0);
    EXPECT_EQ(op.getThreadHandle(), nullptr);
    EXPECT_EQ(op.verifyUser(true), E_POINTER) << "no service object before openSession";
    EXPECT_EQ(op.getThreadHandle(), nullptr);
}

TEST_F(VerificationTest, EnrolledFingersComeFromTheBackend) {
    struct Case {
        const char* script;
        HRESULT expected;
        ULONG count;
    };
    const Case cases[] = {
        {"enrolled self 4\n", S_OK, 4},
        {"enrolled S-1-22-1-4000000000 2\n", S_OK, 0},
        {"enrolled self 2\nenrolling\n", WINBIO_E_ENROLLMENT_IN_PROGRESS, 0},
        {"enrolled self 2\nfail WinBioEnumEnrollments 0x80098036\n", WINBIO_E_DEVICE_FAILURE, 0},
    };
    VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner();
    ASSERT_NE(owner, nullptr);
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.script);
        useSim(testCase.script);
        AsynBioOperation op;
        ASSERT_EQ(op.openSession(BIO_APP_TYPE_VERIFY), 0);
        ULONG fingers[10] = {};
        ULONG count = 77;
        EXPECT_EQ(op.getBioOperation()->getEnrolledFingers(owner, 10, fingers, &count), testCase.expected);
        EXPECT_EQ(count, testCase.count);
        EXPECT_EQ(op.closeSession(), 0);
        restoreBackend();
    }
}

TEST_F(VerificationTest, EnrolledFingersWithoutAnAttachedSessionUseAShortOneOfTheirOwn) {
    useSim("enrolled self 2\n");
    std::unique_ptr<VELQBioOperation> service(VELQBioOperation::createBioOperation(BIO_APP_TYPE_VERIFY));
    ASSERT_NE(service, nullptr);
    ULONG fingers[10] = {};
    ULONG count = 0;
    EXPECT_EQ(service->getEnrolledFingers(VELQUserInfoManager::getCurrentProcessOwner(), 10, fingers, &count),
              S_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_NE(fingers[0], 0u);
    EXPECT_EQ(service->getEnrolledFingers(nullptr, 10, fingers, &count), E_POINTER);
    EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace biotest
