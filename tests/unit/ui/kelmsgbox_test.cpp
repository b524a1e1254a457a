// kelMsgBox: texts and captions from the table, the one second try without owner after an access
// denial, and how a failed box becomes a result code.
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "log_capture.h"
#include "plat/errors.h"
#include "plat/ui.h"
#include "plat/windows.h"
#include "ui/KelMsgBox.h"

namespace {

struct ShownBox {
    plat::HWND owner;
    std::u16string text;
    std::u16string caption;
    plat::UINT flags;
};

// What the fake backend does for one call: the answer it gives, and the last error it sets when the
// answer is 0.
struct Outcome {
    int answer;
    plat::DWORD error;
};

class RecordingMessageBox : public plat::ui::MessageBoxUi {
public:
    int show(plat::HWND owner, std::u16string_view text, std::u16string_view caption,
             plat::UINT flags) override {
        shown.push_back({owner, std::u16string(text), std::u16string(caption), flags});
        Outcome outcome{plat::IDOK, 0};
        if (!outcomes.empty()) {
            outcome = outcomes.front();
            outcomes.pop_front();
        }
        if (outcome.answer == 0) {
            plat::SetLastError(outcome.error);
        }
        return outcome.answer;
    }

    std::vector<ShownBox> shown;
    std::deque<Outcome> outcomes;
};

class NoCursor : public plat::ui::CursorUi {
public:
    void show(plat::DWORD /*cursorId*/) override {}
};

class RecordingBackend : public plat::ui::Backend {
public:
    std::string_view name() const override { return "recording"; }
    plat::ui::MessageBoxUi& messageBox() override { return boxes; }
    plat::ui::CursorUi& cursor() override { return m_cursor; }

    RecordingMessageBox boxes;

private:
    NoCursor m_cursor;
};

class KelMsgBoxTest : public ::testing::Test {
protected:
    void SetUp() override {
        auto backend = std::make_unique<RecordingBackend>();
        m_pBackend = backend.get();
        m_pPrevious = plat::ui::installBackend(std::move(backend));
    }
    void TearDown() override { plat::ui::installBackend(std::move(m_pPrevious)); }

    RecordingMessageBox& boxes() { return m_pBackend->boxes; }

    velq_test::LogCapture m_log;
    RecordingBackend* m_pBackend = nullptr;
    std::unique_ptr<plat::ui::Backend> m_pPrevious;
};

TEST_F(KelMsgBoxTest, ShowsTheTextWithTheCaptionOfItsIdAndGivesTheAnswer) {
    boxes().outcomes = {{plat::IDYES, 0}};
    EXPECT_EQ(kelMsgBox(u"Proceed?", 1019, 36, nullptr, nullptr), plat::IDYES);
    ASSERT_EQ(boxes().shown.size(), 1u);
    EXPECT_EQ(boxes().shown[0].text, u"Proceed?");
    EXPECT_EQ(boxes().shown[0].caption, u"Warning");
    EXPECT_EQ(boxes().shown[0].flags, 36u);
    EXPECT_EQ(boxes().shown[0].owner, nullptr);
    EXPECT_EQ(m_log.text(), "");
}

TEST_F(KelMsgBoxTest, TheIdFormTakesItsTextFromTheTable) {
    boxes().outcomes = {{plat::IDNO, 0}};
    EXPECT_EQ(kelMsgBox(1023u, 1017, 36, nullptr, nullptr), plat::IDNO);
    ASSERT_EQ(boxes().shown.size(), 1u);
    EXPECT_EQ(boxes().shown[0].text,
              u"Your key file cannot be found, do you want to recover it from the backup?");
    EXPECT_EQ(boxes().shown[0].caption, u"Information");

    EXPECT_EQ(kelMsgBox(1052u, 1018, 0x40024, nullptr, nullptr), plat::IDOK);
    EXPECT_EQ(boxes().shown[1].text, u"The key is invalid.\nRecover the key and try again?");
    EXPECT_EQ(boxes().shown[1].caption, u"Error");
}

TEST_F(KelMsgBoxTest, AnIdWithoutTextShowsAnEmptyTextAndLogsTheAssertion) {
    EXPECT_EQ(kelMsgBox(4242u, 4243, 16, nullptr, nullptr), plat::IDOK);
    ASSERT_EQ(boxes().shown.size(), 1u);
    EXPECT_EQ(boxes().shown[0].text, u"");
    EXPECT_EQ(boxes().shown[0].caption, u"");
    EXPECT_EQ(m_log.count("ASSERT( nRet > 0 )"), 2) << m_log.text();
}

TEST_F(KelMsgBoxTest, ANullTextShowsNoBoxAndGivesZero) {
    EXPECT_EQ(kelMsgBox(static_cast<const char16_t*>(nullptr), 1018, 16, nullptr, nullptr), 0);
    EXPECT_TRUE(boxes().shown.empty());
    EXPECT_EQ(m_log.count("[ERR] (kelMsgBox): Error Code: 0x0"), 1) << m_log.text();
}

TEST_F(KelMsgBoxTest, AnAccessDenialIsTriedOnceMoreWithoutOwner) {
    boxes().outcomes = {{0, plat::ERROR_ACCESS_DENIED}, {plat::IDOK, 0}};
    EXPECT_EQ(kelMsgBox(u"Saved.", 1017, 64, nullptr, nullptr), plat::IDOK);
    ASSERT_EQ(boxes().shown.size(), 2u);
    EXPECT_EQ(boxes().shown[1].owner, nullptr);
    EXPECT_EQ(boxes().shown[1].text, u"Saved.");
    EXPECT_EQ(boxes().shown[1].caption, u"Information");
    EXPECT_EQ(boxes().shown[1].flags, 64u);
    EXPECT_EQ(m_log.count("Try one more time because of ACCESS_DENIED error."), 1) << m_log.text();
    EXPECT_EQ(m_log.count("Error Code"), 0) << m_log.text();
}

plat::LRESULT plainWindowProc(plat::HWND hWnd, plat::UINT msg, plat::WPARAM wParam, plat::LPARAM lParam) {
    return plat::DefWindowProcW(hWnd, msg, wParam, lParam);
}

TEST_F(KelMsgBoxTest, TheSecondTryDropsARealOwner) {
    plat::WNDCLASSW wc{};
    wc.lpfnWndProc = plainWindowProc;
    wc.lpszClassName = u"VelqKelMsgBoxTestOwner";
    plat::RegisterClassW(&wc);  // may already exist from an earlier run of this test in the process
    const plat::HWND owner = plat::CreateWindowExW(0, wc.lpszClassName, u"owner", 0, 0, 0, 10, 10, nullptr,
                                                   nullptr, nullptr, nullptr);
    if (owner == nullptr) {
        GTEST_SKIP() << "no window could be created here (error " << plat::GetLastError() << ")";
    }
    boxes().outcomes = {{0, plat::ERROR_ACCESS_DENIED}, {plat::IDCANCEL, 0}};
    EXPECT_EQ(kelMsgBox(u"Replace?", 1019, 0x40021, owner, nullptr), plat::IDCANCEL);
    ASSERT_EQ(boxes().shown.size(), 2u);
    EXPECT_EQ(boxes().shown[0].owner, owner);
    EXPECT_EQ(boxes().shown[1].owner, nullptr);
    plat::DestroyWindow(owner);
}

TEST_F(KelMsgBoxTest, ThereIsOnlyOneSecondTry) {
    boxes().outcomes = {{0, plat::ERROR_ACCESS_DENIED}, {0, plat::ERROR_ACCESS_DENIED}};
    EXPECT_EQ(kelMsgBox(u"x", 1018, 16, nullptr, nullptr), static_cast<int>(0x80070005));
    EXPECT_EQ(boxes().shown.size(), 2u);
    EXPECT_EQ(m_log.count("Error Code: 0x80070005"), 1) << m_log.text();
}

TEST_F(KelMsgBoxTest, AFailedBoxGivesItsLastErrorAsACode) {
    struct Case {
        plat::DWORD error;
        int result;
        const char* logged;
    };
    const Case cases[] = {
        {plat::ERROR_INVALID_WINDOW_HANDLE, static_cast<int>(0x80070578), "Error Code: 0x80070578"},
        {0, 0, "Error Code: 0x0"},                                              // no error: 0, not a code
        {0x80004005u, static_cast<int>(0x80004005), "Error Code: 0x80004005"},  // already a code
        {0x0001FFFFu, static_cast<int>(0x8007FFFF), "Error Code: 0x8007ffff"},  // low 16 bits only
    };
    for (const Case& c : cases) {
        boxes().shown.clear();
        boxes().outcomes = {{0, c.error}};
        EXPECT_EQ(kelMsgBox(u"x", 1018, 16, nullptr, nullptr), c.result) << c.error;
        EXPECT_EQ(boxes().shown.size(), 1u) << "no second try for " << c.error;
        EXPECT_EQ(m_log.count(c.logged), 1) << m_log.text();
    }
    EXPECT_EQ(m_log.count("Try one more time"), 0) << m_log.text();
}

}  // namespace
