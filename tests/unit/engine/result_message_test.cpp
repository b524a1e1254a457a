// The texts of error rows: every result code of the engine's table, and the cutting of long paths.
#include <gtest/gtest.h>

#include "engine_access.h"
#include "engine_doubles.h"
#include "plat/strings.h"

namespace {

struct RowCase {
    int nResult;
    const char* message;
};

// The whole table; values without a text of their own show "Operation failed!".
const RowCase kRows[] = {
    {-1, "Failed to open file!"},
    {-2, "Unknown errors!"},
    {-3, "The operation is canceled."},
    {-4, "Operation failed!"},
    {-5, "Failed to encrypt file!"},
    {-6, "Operation failed!"},
    {-7, "Failed to decrypt file!"},
    {-8, "Operation failed!"},
    {-9, "The key is invalid!"},
    {-10, "The file is invalid!"},
    {-11, "Operation failed!"},
    {-100, "Failed to decrypt file!"},
    {-101, "Failed to encrypt file!"},
    {2, "File is not found."},
    {3, "The destination file path may be too long or invalid."},
    {5, "You have insufficient priviledges to perform this operation."},
    {19, "The media is write protected."},
    {32, "The program cannot access the file because it is being used by another program."},
    {112, "There is not enough space on the target disk."},
    {6, "Operation failed!"},
    {80, "Operation failed!"},
    {static_cast<int>(0x80004005), "Operation failed!"},
    {static_cast<int>(0x80070002), "Operation failed!"},
};

class ResultMessageTest : public ::testing::Test {
protected:
    void SetUp() override { engine_test::reset(); }

    std::string row(int nResult, const std::u16string& path) {
        return plat::toUtf8(
            engine_test::VELQCryptFileTestAccess::buildResultMessage(*m_pEngine, nResult, path));
    }

    std::unique_ptr<VELQCryptFile> m_pEngine =
        std::make_unique<VELQCryptFile>(std::vector<std::u16string>{}, 1);
};

TEST_F(ResultMessageTest, EveryCodeOfTheTableHasItsText) {
    for (const RowCase& entry : kRows) {
        EXPECT_EQ(row(entry.nResult, u"/a/b.txt"), std::string("/a/b.txt: ") + entry.message)
            << "result " << entry.nResult;
    }
}

TEST_F(ResultMessageTest, SuccessReplacesThePath) {
    EXPECT_EQ(row(0, u"/a/b.txt"), "Operation successful!");
}

TEST_F(ResultMessageTest, EmptyPathGivesTheMessageAlone) {
    EXPECT_EQ(row(-10, u""), "The file is invalid!");
}

TEST_F(ResultMessageTest, PathOf128StandsWhole) {
    const std::u16string path(128, u'p');
    EXPECT_EQ(row(-3, path), std::string(128, 'p') + ": The operation is canceled.");
}

TEST_F(ResultMessageTest, PathOf129IsCutAfter128) {
    const std::u16string path = std::u16string(128, u'p') + u"X";
    EXPECT_EQ(row(-3, path), std::string(128, 'p') + "... : The operation is canceled.");
}

}  // namespace
