// The operations beside verification, started by our own starters and driven by the simulated sensor:
// enrollment of a finger, repeated capture, identification through the event monitor.
#include <gtest/gtest.h>

#include "bio/bio_engine_fixture.h"

using namespace plat;

namespace biotest {
namespace {

class FurtherOperationsTest : public SimSensorTest {
protected:
    void open(AsynBioOperation& op, Recorder& recorder) {
        ASSERT_EQ(op.openSession(BIO_APP_TYPE_VERIFY), 0);
        op.setClient(recordingClient, &recorder);
    }
    void finish(AsynBioOperation& op) {
        waitForWorker(op);
        EXPECT_EQ(op.closeSession(), 0);
    }
};

TEST_F(FurtherOperationsTest, EnrollmentAsksAgainAfterABadCaptureAndEndsWithTwoNotifications) {
    useSim("touch bad\ntouch self\n");
    AsynBioOperation op;
    Recorder recorder;
    open(op, recorder);
    ASSERT_EQ(
        op.enrollFinger(VELQUserInfoManager::getCurrentProcessOwner(), WINBIO_ANSI_381_POS_RH_INDEX_FINGER),
        0);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    ASSERT_EQ(notes.size(), 4u);
    EXPECT_EQ(notes[0].type, OP_TYPE_ENROLL);
    EXPECT_EQ(notes[0].enrollDone, 0u);
    EXPECT_EQ(notes[0].feedBack, WINBIO_FP_POOR_QUALITY);
    EXPECT_EQ(notes[1].type, OP_TYPE_ENROLL);
    EXPECT_EQ(notes[1].enrollDone, 1u) << "the second sample completed the enrollment";
    EXPECT_EQ(notes[2].type, OP_TYPE_ENROLL);
    EXPECT_EQ(notes[3].type, OP_TYPE_ENROLL_END);
    EXPECT_EQ(op.getResult(), 0);
}

TEST_F(FurtherOperationsTest, EnrollmentRefusals) {
    struct Case {
        const char* script;
        HRESULT expected;
    };
    const Case cases[] = {
        {"enrolling\ntouch self\n", BIO_E_ENROLL_BUSY},
        {"fail WinBioEnrollBegin 0x80070005\n", BIO_E_ACCESS_DENIED},
        {"fail WinBioEnrollBegin 0x80098036\n", BIO_E_DEVICE},
        {"fail WinBioEnrollCaptureWithCallback 0x80098036\n", BIO_E_DEVICE},
        {"touch error 0x8009802B\n", BIO_E_DUPLICATE},
        {"touch error 0x80004005\n", BIO_E_ENROLL_FAILED},
        {"touch error 0x80098036\n", BIO_E_NOT_IDENTIFIED},
    };
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.script);
        useSim(testCase.script);
        AsynBioOperation op;
        Recorder recorder;
        open(op, recorder);
        ASSERT_EQ(op.enrollFinger(VELQUserInfoManager::getCurrentProcessOwner(), 2), 0);
        finish(op);
        EXPECT_EQ(op.getResult(), testCase.expected);
        const std::vector<Note> notes = recorder.snapshot();
        ASSERT_EQ(notes.size(), 2u) << "only the two notifications of the end";
        EXPECT_EQ(notes[1].type, OP_TYPE_ENROLL_END);
        restoreBackend();
    }
}

TEST_F(FurtherOperationsTest, EnrollmentWithoutAUserStartsNothing) {
    useSim("");
    AsynBioOperation op;
    Recorder recorder;
    open(op, recorder);
    EXPECT_EQ(op.enrollFinger(nullptr, 2), E_POINTER);
    EXPECT_EQ(op.getThreadHandle(), nullptr);
    EXPECT_EQ(op.closeSession(), 0);
}

TEST_F(FurtherOperationsTest, CaptureReportsEverySampleUntilTheClientEndsIt) {
    useSim("touch bad\ntouch unknown\ntouch self\ntouch self\n");
    AsynBioOperation op;
    Recorder recorder;
    recorder.endAfter = 2;
    open(op, recorder);
    ASSERT_EQ(op.captureImage(true), 0);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    // The bad capture asks for another sample; the failure of the second ends the capture in silence.
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].type, OP_TYPE_IMAGE);
    EXPECT_EQ(op.getResult(), BIO_E_NOT_IDENTIFIED);
}

TEST_F(FurtherOperationsTest, CaptureOfGoodSamplesGoesOnUntilEnded) {
    useSim("touch self\ntouch self\ntouch self\n");
    AsynBioOperation op;
    Recorder recorder;
    recorder.endAfter = 3;
    open(op, recorder);
    ASSERT_EQ(op.captureImage(true), 0);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    ASSERT_EQ(notes.size(), 3u);
    for (const Note& note : notes) {
        EXPECT_EQ(note.type, OP_TYPE_IMAGE);
        EXPECT_EQ(note.result, 0);
    }
}

TEST_F(FurtherOperationsTest, CaptureThatCannotBeginTellsTheEnd) {
    useSim("enrolling\n");
    AsynBioOperation op;
    Recorder recorder;
    open(op, recorder);
    ASSERT_EQ(op.captureImage(true), 0);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].type, OP_TYPE_IMAGE_END);
    EXPECT_EQ(op.getResult(), BIO_E_ENROLL_BUSY);
}

TEST_F(FurtherOperationsTest, EventMonitorReportsTheOwnerAndUnknownFingersOnly) {
    const std::u16string other = otherUserSid();
    std::string script = "touch bad\ntouch unknown\n";
    if (!other.empty()) {
        script += "touch " + toUtf8(other) + "\n";
    }
    script += "touch self\n";
    useSim(script);
    AsynBioOperation op;
    Recorder recorder;
    recorder.endOnSid = ownerSid();
    open(op, recorder);
    ASSERT_EQ(op.identifyByEvent(), 0);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    // The bad capture and another user's finger are not reported.
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[0].type, OP_TYPE_VERIFYUSER_END);
    EXPECT_EQ(notes[0].result, BIO_E_NOT_IDENTIFIED);
    EXPECT_EQ(notes[1].type, OP_TYPE_VERIFYUSER_END);
    EXPECT_EQ(notes[1].result, 0);
    EXPECT_EQ(notes[1].userSid, ownerSid());
}

TEST_F(FurtherOperationsTest, EventMonitorThatCannotRegisterTellsTheClient) {
    useSim("fail WinBioRegisterEventMonitor 0x80098039\n");
    AsynBioOperation op;
    Recorder recorder;
    open(op, recorder);
    ASSERT_EQ(op.identifyByEvent(), 0);
    finish(op);
    const std::vector<Note> notes = recorder.snapshot();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].result, BIO_E_DEVICE);
}

TEST_F(FurtherOperationsTest, EventMonitorCallbackWithoutAnEventTouchesNothing) {
    AsynBioOperation op;
    AsynBioOperation::EventMonitorCallback(&op, WINBIO_E_UNKNOWN_ID, nullptr);
    EXPECT_EQ(op.getNotifyData(), nullptr);
    EXPECT_EQ(op.getResult(), 0);
}

TEST_F(FurtherOperationsTest, EnrollCallbackTakesAPoorQualitySuccessAsAskingForMore) {
    // No session: capturing again fails, which for "more data" leaves the result at 0.
    AsynBioOperation op;
    std::atomic<int> calls{0};
    op.setClient(
        [](int type, AsynBioOperation*, void* context) -> HRESULT {
            EXPECT_EQ(type, OP_TYPE_ENROLL);
            static_cast<std::atomic<int>*>(context)->fetch_add(1);
            return 0;
        },
        &calls);
    AsynBioOperation::EnrollCallback(&op, S_OK, WINBIO_FP_POOR_QUALITY);
    ASSERT_NE(op.getNotifyData(), nullptr);
    EXPECT_EQ(op.getNotifyData()->m_enrollDone, 0u);
    EXPECT_EQ(op.getResult(), 0);
    AsynBioOperation::EnrollCallback(&op, S_OK, 0);
    EXPECT_EQ(op.getNotifyData()->m_enrollDone, 1u);
    EXPECT_EQ(calls.load(), 2);
    // A capture whose re-arming fails after a bad sample is a device failure.
    AsynBioOperation::EnrollCallback(&op, WINBIO_E_BAD_CAPTURE, WINBIO_FP_TOO_FAST);
    EXPECT_EQ(op.getResult(), BIO_E_DEVICE);
    EXPECT_EQ(op.getNotifyData()->m_feedBack, WINBIO_FP_TOO_FAST);
}

}  // namespace
}  // namespace biotest
