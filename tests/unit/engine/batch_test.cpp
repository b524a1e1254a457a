// The batch of VELQCryptFile with its per-file work, key binding, progress and error list replaced by the
// recording doubles of doubles.cpp.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine_access.h"
#include "engine_doubles.h"

namespace {

using engine_test::FileStep;
using engine_test::script;
using Log = std::vector<std::string>;

const std::string kRecoverBox =
    "box The key is invalid.\nRecover the key and try again? | Information | 262180";

class BatchTest : public ::testing::Test {
protected:
    void SetUp() override { engine_test::reset(); }

    int run(const std::vector<std::u16string>& paths, int mode) {
        VELQCryptFile engine(paths, 1);
        m_nResult = engine.beginCryptFiles(mode);
        m_bListClosedAtReturn = script().bListClosed;
        return m_nResult;
    }

    // The log without the entries that every batch has, for short expectations.
    static Log filesAndRows() {
        Log kept;
        for (const std::string& entry : engine_test::logCopy()) {
            if (entry.rfind("count", 0) != 0 && entry != "scene" && entry.rfind("start", 0) != 0 &&
                entry != "stop") {
                kept.push_back(entry);
            }
        }
        return kept;
    }

    static std::vector<std::string> counts() {
        Log kept;
        for (const std::string& entry : engine_test::logCopy()) {
            if (entry.rfind("count", 0) == 0) {
                kept.push_back(entry);
            }
        }
        return kept;
    }

    int m_nResult = 0;
    bool m_bListClosedAtReturn = false;
};

TEST_F(BatchTest, FailureInFileOneOfThreeGoesOnAndWaitsForTheList) {
    script().fileSteps[u"/a"] = {FileStep{5}};
    EXPECT_EQ(run({u"/a", u"/b", u"/c"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(),
              (Log{"encrypt /a 0", "row /a: You have insufficient priviledges to perform this operation.",
                   "end 1", "encrypt /b 0", "encrypt /c 0"}));
    EXPECT_EQ(engine_test::logCopy().front(), "scene");
    EXPECT_EQ(engine_test::logCopy().back(), "stop");
    EXPECT_TRUE(m_bListClosedAtReturn) << "the call returned before the person closed the list";
}

TEST_F(BatchTest, DecryptBatchEndsTheDecryptRunAfterARow) {
    script().fileSteps[u"/a.lqvz"] = {FileStep{-10}};
    EXPECT_EQ(run({u"/a.lqvz", u"/b"}, CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(filesAndRows(),
              (Log{"decrypt /a.lqvz 1", "row /a.lqvz: The file is invalid!", "end 0", "decrypt /b 1"}));
}

TEST_F(BatchTest, InvalidKeyAnsweredNoGivesUpTheFileWithoutARow) {
    script().fileSteps[u"/b"] = {FileStep{-9}};
    script().fileSteps[u"/c"] = {FileStep{-9}};
    EXPECT_EQ(run({u"/a", u"/b", u"/c"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(),
              (Log{"encrypt /a 0", "encrypt /b 0", kRecoverBox, "encrypt /c 0", kRecoverBox}));
    EXPECT_FALSE(script().bListVisible);
}

TEST_F(BatchTest, InvalidKeyAnsweredYesRunsTheSameFileAgain) {
    script().fileSteps[u"/b"] = {FileStep{-9}};
    script().boxAnswers = {6};
    script().recoverResults = {1};
    EXPECT_EQ(run({u"/a", u"/b", u"/c"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(),
              (Log{"encrypt /a 0", "encrypt /b 0", kRecoverBox, "guide", "encrypt /b 0", "encrypt /c 0"}));
    EXPECT_EQ(counts(), (Log{"count 1/3 0", "count 2/3 0", "count 2/3 0", "count 3/3 0"}));
}

TEST_F(BatchTest, RecoveryThatFailsAgainAsksAgain) {
    script().fileSteps[u"/a"] = {FileStep{-9}};
    script().sceneResults = {0, -9, 0};  // the batch's start, then two recoveries
    script().boxAnswers = {6, 6};
    script().recoverResults = {1, 1};
    EXPECT_EQ(run({u"/a"}, CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(engine_test::logCopy(),
              (Log{"scene", "start 1", "count 1/1 1", "decrypt /a 1", kRecoverBox, "guide", "scene",
                   kRecoverBox, "guide", "scene", "count 1/1 1", "decrypt /a 1", "stop"}));
}

TEST_F(BatchTest, RecoveryGuideThatFailsGivesTheFileUp) {
    script().fileSteps[u"/a"] = {FileStep{-9}};
    script().boxAnswers = {6};
    script().recoverResults = {0};
    EXPECT_EQ(run({u"/a", u"/b"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(), (Log{"encrypt /a 0", kRecoverBox, "guide", "encrypt /b 0"}));
}

TEST_F(BatchTest, CancelBetweenFilesEndsTheBatchWithoutARow) {
    script().fileSteps[u"/a"] = {FileStep{0, true}};
    EXPECT_EQ(run({u"/a", u"/b", u"/c"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(), (Log{"encrypt /a 0"}));
    EXPECT_EQ(counts(), (Log{"count 1/3 0", "count 2/3 0"}));
    EXPECT_FALSE(script().bListVisible);
}

TEST_F(BatchTest, CancelWithinAFileGivesItsRowAndTouchesNoFurtherFile) {
    script().fileSteps[u"/b"] = {FileStep{-3, true}};
    EXPECT_EQ(run({u"/a", u"/b", u"/c"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(),
              (Log{"encrypt /a 0", "encrypt /b 0", "row /b: The operation is canceled.", "end 1"}));
    EXPECT_TRUE(m_bListClosedAtReturn);
}

TEST_F(BatchTest, ModeTwoIsRefusedBeforeAnythingHappens) {
    EXPECT_EQ(run({u"/a"}, CRYPT_MODE_REJECTED), CRYPT_E_GENERAL);
    EXPECT_TRUE(engine_test::logCopy().empty());
}

TEST_F(BatchTest, EncryptBatchLeavesOutAndCountsOutEncryptedFiles) {
    EXPECT_EQ(run({u"/a.txt", u"/b.LQVZ", u"/x/c.lqvz", u"/d.lqvz.txt"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(), (Log{"encrypt /a.txt 0", "encrypt /d.lqvz.txt 0"}));
    EXPECT_EQ(counts(), (Log{"count 1/2 0", "count 2/2 0"}));
}

TEST_F(BatchTest, EncryptBatchOfEncryptedFilesOnlyRunsEmpty) {
    EXPECT_EQ(run({u"/b.lqvz"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(engine_test::logCopy(), (Log{"scene", "start 0", "stop"}));
}

TEST_F(BatchTest, DecryptBatchKeepsEveryPathAndDuplicates) {
    EXPECT_EQ(run({u"/a.txt", u"/b.lqvz", u"/b.lqvz"}, CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(filesAndRows(), (Log{"decrypt /a.txt 1", "decrypt /b.lqvz 1", "decrypt /b.lqvz 1"}));
}

TEST_F(BatchTest, NoKeyAtTheStartAndNoRecoveryGivesMinusEleven) {
    script().sceneResults = {-9};
    EXPECT_EQ(run({u"/a"}, CRYPT_MODE_ENCRYPT), CRYPT_E_GENERAL);
    EXPECT_EQ(engine_test::logCopy(), (Log{"scene", kRecoverBox}));
}

TEST_F(BatchTest, NullCipherFailsEachFileWithoutTouchingIt) {
    // No owner: the scene gives -11; the key is recovered, but the scene stays without a cipher.
    script().sceneResults = {-11, -11};
    script().boxAnswers = {6};
    script().recoverResults = {1};
    EXPECT_EQ(run({u"/a", u"/b"}, CRYPT_MODE_ENCRYPT), 0);
    EXPECT_EQ(filesAndRows(),
              (Log{kRecoverBox, "guide", "row /a: Operation failed!", "row /b: Operation failed!"}));
}

TEST_F(BatchTest, HandlesAreClosedAfterEveryFileWhateverItsResult) {
    script().fileSteps[u"/a"] = {FileStep{0, false, true}};
    script().fileSteps[u"/b"] = {FileStep{-7, false, true}};
    script().fileSteps[u"/c"] = {FileStep{-9, false, true}};
    EXPECT_EQ(run({u"/a", u"/b", u"/c"}, CRYPT_MODE_DECRYPT), 0);
    EXPECT_EQ(engine_test::handlesClosed(), 12);
}

TEST_F(BatchTest, CloseFileHandlesResetsFieldsAndMayRunAgain) {
    VELQCryptFile engine({}, 1);
    FileInfo info;
    info.m_hFile = engine_test::newHandleProbe();
    info.m_hMapFile = engine_test::newHandleProbe();
    info.m_sDestFileInfo.m_hDestFile = engine_test::newHandleProbe();
    info.m_sDestFileInfo.m_hDestMapFile = engine_test::newHandleProbe();
    VELQCryptFileTestAccess::closeFileHandles(engine, &info);
    EXPECT_EQ(engine_test::handlesClosed(), 4);
    EXPECT_EQ(info.m_hFile, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(info.m_hMapFile, nullptr);
    EXPECT_EQ(info.m_sDestFileInfo.m_hDestFile, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(info.m_sDestFileInfo.m_hDestMapFile, nullptr);
    VELQCryptFileTestAccess::closeFileHandles(engine, &info);
    VELQCryptFileTestAccess::closeFileHandles(engine, nullptr);
    EXPECT_EQ(engine_test::handlesClosed(), 4);
}

TEST_F(BatchTest, ConstructorTakesGranularityAndAllocatesBothBuffers) {
    VELQCryptFile engine({u"/a"}, 1);
    EXPECT_EQ(VELQCryptFileTestAccess::allocationGranularity(engine), 65536u);
    const CryptBuffer& header = VELQCryptFileTestAccess::headerBuffer(engine);
    const CryptBuffer& data = VELQCryptFileTestAccess::dataBuffer(engine);
    ASSERT_NE(header.m_pData, nullptr);
    EXPECT_EQ(header.m_dwSize, 1120u);
    ASSERT_NE(data.m_pData, nullptr);
    EXPECT_EQ(data.m_dwSize, 65584u);
    EXPECT_TRUE(std::all_of(data.m_pData, data.m_pData + data.m_dwSize, [](plat::BYTE b) { return b == 0; }));
    EXPECT_EQ(VELQCryptFileTestAccess::crypt(engine), nullptr);
}

}  // namespace
