#include "progress/progress_doubles.h"

#include <memory>
#include <utility>

#include "app/VELQShellExtProc.h"
#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "plat/dialogs.h"
#include "plat/strings.h"
#include "plat/threads.h"
#include "plat/ui.h"
#include "plat/windows.h"

namespace progress_test {

namespace {

World* g_pWorld = nullptr;

class NoBox : public plat::ui::MessageBoxUi {
public:
    int show(plat::HWND, std::u16string_view, std::u16string_view, plat::UINT) override { return plat::IDNO; }
};

class NoCursor : public plat::ui::CursorUi {
public:
    void show(plat::DWORD) override {}
};

class RecordingList : public plat::ui::ErrorListUi {
public:
    void rowAdded(plat::HWND, std::u16string_view text, unsigned count) override {
        record("row " + plat::toUtf8(text) + " #" + std::to_string(count));
    }
    void shown(plat::HWND) override { record("shown"); }
    void closed(plat::HWND) override { record("closed"); }
};

class RecordingClipboard : public plat::ui::ClipboardUi {
public:
    void setText(std::u16string_view text) override { record("clipboard " + plat::toUtf8(text)); }
};

class RecordingBackend : public plat::ui::Backend {
public:
    std::string_view name() const override { return "progress-test"; }
    plat::ui::MessageBoxUi& messageBox() override { return m_box; }
    plat::ui::CursorUi& cursor() override { return m_cursor; }
    plat::ui::ErrorListUi& errorList() override { return m_list; }
    plat::ui::ClipboardUi& clipboard() override { return m_clipboard; }

private:
    NoBox m_box;
    NoCursor m_cursor;
    RecordingList m_list;
    RecordingClipboard m_clipboard;
};

}  // namespace

FileScript script(std::vector<float> firstPass, std::vector<float> secondPass, int nResult,
                  bool bCancelBeforeBlocks, bool bCancelAfter) {
    FileScript made;
    made.firstPass = std::move(firstPass);
    made.secondPass = std::move(secondPass);
    made.nResult = nResult;
    made.bCancelBeforeBlocks = bCancelBeforeBlocks;
    made.bCancelAfter = bCancelAfter;
    return made;
}

World& world() {
    return *g_pWorld;
}

void reset() {
    static std::unique_ptr<plat::ui::Backend> previous =
        plat::ui::installBackend(std::make_unique<RecordingBackend>());
    delete g_pWorld;
    g_pWorld = new World;
}

unsigned long thisThread() {
    return plat::GetCurrentThreadId();
}

void record(const std::string& what) {
    std::lock_guard<std::mutex> lock(world().mutex);
    world().events.push_back(Event{what, thisThread()});
}

std::vector<Event> events() {
    std::lock_guard<std::mutex> lock(world().mutex);
    return world().events;
}

std::vector<std::string> eventsStartingWith(const std::string& prefix) {
    std::vector<std::string> kept;
    for (const Event& event : events()) {
        if (event.what.rfind(prefix, 0) == 0) {
            kept.push_back(event.what);
        }
    }
    return kept;
}

}  // namespace progress_test

using progress_test::record;
using progress_test::world;

void VELQCryptFileTestAccess::runFile(VELQCryptFile& engine, FileInfo* info, int& nResult) {
    progress_test::FileScript& script = world().files[info->m_szFilePath];
    if (script.onStart) {
        script.onStart(engine);
    }
    if (script.bCancelBeforeBlocks) {
        world().bCancelled = true;
    }
    nResult = script.nResult;
    for (const float percent : script.firstPass) {
        if (engine.m_progressDialog.hasUserCancelled()) {
            nResult = CRYPT_E_CANCELED;
            return;
        }
        info->m_fPercent = percent;
        engine._updateProgress();
    }
    // The verification pass of an encryption runs over the same record, in mode 3.
    if (!script.secondPass.empty()) {
        info->m_nCryptMode = CRYPT_MODE_VERIFY;
        for (const float percent : script.secondPass) {
            info->m_fPercent = percent;
            engine._updateProgress();
        }
    }
    if (script.bCancelAfter) {
        world().bCancelled = true;
    }
}

// The cipher: only the end of a run is asked for by the batch.
namespace {
const unsigned char kZeroKey[VELQStreamCipher::kKeyBytes] = {};
}  // namespace

VELQCrypt::VELQCrypt(VELQKey&, long& result) : m_cipher(kZeroKey) {
    result = 0;
}

long VELQCrypt::endCryptProcess(bool) {
    return 0;
}

plat::LONG VELQShellExtProc::recoverKeyGuide() {
    return 0;
}

plat::DWORD VELQCryptFile::_getIdentityHeaderSize() {
    return 32;
}

plat::DWORD VELQCryptFile::_getEncryptedHeaderSize() {
    return 1088;
}

int VELQCryptFile::_initCryptScene() {
    delete m_pCrypt;
    VELQKey* key = nullptr;
    VELQKey::createKey(&key);
    long created = 0;
    m_pCrypt = new VELQCrypt(*key, created);
    VELQKey::freeVELQKey(&key);
    return 0;
}

int VELQCryptFile::_encryptFile(FileInfo* lpFileInfos) {
    int nResult = 0;
    VELQCryptFileTestAccess::runFile(*this, lpFileInfos, nResult);
    return nResult;
}

int VELQCryptFile::_decryptFile(FileInfo* lpFileInfos) {
    int nResult = 0;
    VELQCryptFileTestAccess::runFile(*this, lpFileInfos, nResult);
    return nResult;
}

// The progress dialog: every call recorded with its thread; the window is "found" unless the world says
// otherwise.
VELQProgressDialog::VELQProgressDialog()
    : m_hWnd(nullptr), m_bTopMost(plat::TRUE), m_pProgressDialog(nullptr) {}
VELQProgressDialog::~VELQProgressDialog() = default;
plat::BOOL VELQProgressDialog::start() {
    record("start");
    if (world().bWindowFound) {
        m_hWnd = reinterpret_cast<plat::HWND>(static_cast<std::uintptr_t>(0x5150));
    }
    return plat::TRUE;
}
plat::BOOL VELQProgressDialog::stop() {
    record("stop");
    if (world().bCloseListAtStop) {
        plat::HWND list = plat::FindWindowW(nullptr, u"Message");
        if (plat::IsWindowVisible(list)) {
            plat::PostMessageW(list, plat::WM_CLOSE, 0, 0);
            // The list's thread ends its loop and destroys the window on its own time; the batch may return
            // before that. Waiting here for the window's end makes its "closed" come before the batch's end
            // (bounded, so that a list that never closes fails the test instead of hanging it).
            for (int i = 0; i < 1000 && plat::IsWindow(list); ++i) {
                plat::Sleep(10);
            }
        }
    }
    return plat::TRUE;
}
plat::BOOL VELQProgressDialog::setProgress(plat::DWORD completed, plat::DWORD total) {
    record("setProgress " + std::to_string(completed) + "/" + std::to_string(total));
    return plat::TRUE;
}
plat::BOOL VELQProgressDialog::hasUserCancelled() {
    return world().bCancelled ? plat::TRUE : plat::FALSE;
}
plat::BOOL VELQProgressDialog::setLine(plat::DWORD number, const plat::WCHAR* text) {
    record("setLine " + std::to_string(number) + " " + plat::toUtf8(text));
    return plat::TRUE;
}
plat::BOOL VELQProgressDialog::setTitle(const plat::WCHAR* text) {
    record("setTitle " + plat::toUtf8(text));
    return plat::TRUE;
}
plat::BOOL VELQProgressDialog::setCancelMessage(const plat::WCHAR* text) {
    record("setCancelMessage " + plat::toUtf8(text));
    return plat::TRUE;
}
plat::HWND VELQProgressDialog::getWindow() {
    return m_hWnd;
}
