// Stand-ins for the concerns that one file's work calls but that these tests do not exercise: progress
// (counted, with a Cancel that the test arms), the recovery guide, and message boxes answered from the
// test's queue; the rest of the screen is silent (silent_stand_ins.cpp). File format, scene, cipher, keys,
// users and files are the real ones.
#include <memory>

#include "app/VELQShellExtProc.h"
#include "files_fixture.h"
#include "plat/ui.h"

namespace files_test {

namespace {

class QueuedMessageBox : public plat::ui::MessageBoxUi {
public:
    int show(plat::HWND, std::u16string_view text, std::u16string_view caption, plat::UINT flags) override {
        Doubles& d = doubles();
        d.boxes.push_back(plat::toUtf8(text) + " | " + plat::toUtf8(caption) + " | " + std::to_string(flags));
        if (d.bCancelAtBox) {
            d.nCancelAfterPolls = 0;
        }
        if (d.boxAnswers.empty()) {
            return plat::IDCANCEL;
        }
        const int answer = d.boxAnswers.front();
        d.boxAnswers.pop_front();
        return answer;
    }
};

class NoCursor : public plat::ui::CursorUi {
public:
    void show(plat::DWORD) override {}
};

class TestBackend : public plat::ui::Backend {
public:
    std::string_view name() const override { return "files-test"; }
    plat::ui::MessageBoxUi& messageBox() override { return m_box; }
    plat::ui::CursorUi& cursor() override { return m_cursor; }

private:
    QueuedMessageBox m_box;
    NoCursor m_cursor;
};

}  // namespace

Doubles& doubles() {
    static Doubles instance;
    return instance;
}

void resetDoubles() {
    static std::unique_ptr<plat::ui::Backend> previous =
        plat::ui::installBackend(std::make_unique<TestBackend>());
    doubles() = Doubles{};
}

}  // namespace files_test

using files_test::doubles;

plat::LONG VELQShellExtProc::recoverKeyGuide() {
    return 0;
}

void VELQCryptFile::_updateProgress() {
    doubles().nProgressUpdates++;
    if (m_nCurrentFile < m_vFileInfos.size()) {
        doubles().percents.push_back(m_vFileInfos[m_nCurrentFile]->m_fPercent);
    }
    if (doubles().onProgress) {
        doubles().onProgress(doubles().nProgressUpdates);
    }
}
// Cancel is pressed once the armed number of polls has passed, and stays pressed.
plat::BOOL VELQProgressDialog::hasUserCancelled() {
    int& polls = doubles().nCancelAfterPolls;
    if (polls < 0) {
        return plat::FALSE;
    }
    if (polls == 0) {
        return plat::TRUE;
    }
    --polls;
    return plat::FALSE;
}
