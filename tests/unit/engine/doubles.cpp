#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "app/VELQShellExtProc.h"
#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "engine_doubles.h"
#include "plat/files.h"
#include "plat/handle.h"
#include "plat/messages.h"
#include "plat/strings.h"
#include "plat/threads.h"
#include "plat/ui.h"
#include "plat/windows.h"

namespace engine_test {

namespace {

#ifndef _WIN32
// A kernel object that counts its own end, standing in for a file or mapping handle of a record.
class ClosedProbe : public plat::KernelObject {
protected:
    ~ClosedProbe() override { script().nHandlesClosed.fetch_add(1); }
};
#endif

class RecordingMessageBox : public plat::ui::MessageBoxUi {
public:
    int show(plat::HWND, std::u16string_view text, std::u16string_view caption, plat::UINT flags) override {
        record("box " + plat::toUtf8(text) + " | " + plat::toUtf8(caption) + " | " + std::to_string(flags));
        std::deque<int>& answers = script().boxAnswers;
        if (answers.empty()) {
            return plat::IDNO;
        }
        const int answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

class NoCursor : public plat::ui::CursorUi {
public:
    void show(plat::DWORD) override {}
};

class RecordingBackend : public plat::ui::Backend {
public:
    std::string_view name() const override { return "engine-test"; }
    plat::ui::MessageBoxUi& messageBox() override { return m_box; }
    plat::ui::CursorUi& cursor() override { return m_cursor; }

private:
    RecordingMessageBox m_box;
    NoCursor m_cursor;
};

Script* g_pScript = nullptr;

template <typename T, typename Default>
T popOr(std::deque<T>& queue, Default fallback) {
    if (queue.empty()) {
        return static_cast<T>(fallback);
    }
    T value = queue.front();
    queue.pop_front();
    return value;
}

FileStep nextStep(const std::u16string& path) {
    std::deque<FileStep>& steps = script().fileSteps[path];
    return popOr(steps, FileStep{});
}

int runFile(const char* direction, FileInfo* info) {
    record(std::string(direction) + " " + plat::toUtf8(info->m_szFilePath) + " " +
           std::to_string(info->m_nCryptMode));
    const FileStep step = nextStep(info->m_szFilePath);
    if (step.bOpenHandles) {
        info->m_hFile = newHandleProbe();
        info->m_hMapFile = newHandleProbe();
        info->m_sDestFileInfo.m_hDestFile = newHandleProbe();
        info->m_sDestFileInfo.m_hDestMapFile = newHandleProbe();
    }
    if (step.bCancel) {
        script().bCancelled = true;
    }
    return step.nResult;
}

// The error list's window: WM_CLOSE ends its thread's loop, as the real dialog does.
plat::LRESULT listWindowProc(plat::HWND hwnd, plat::UINT message, plat::WPARAM wParam, plat::LPARAM lParam) {
    if (message == plat::WM_CLOSE) {
        plat::PostQuitMessage(0);
        return 0;
    }
    return plat::DefWindowProcW(hwnd, message, wParam, lParam);
}

void registerListClass() {
    static const bool registered = [] {
        plat::WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = listWindowProc;
        windowClass.lpszClassName = u"EngineTestErrorList";
        return plat::RegisterClassW(&windowClass) != 0;
    }();
    (void)registered;
}

}  // namespace

Script& script() {
    return *g_pScript;
}

void reset() {
    static std::unique_ptr<plat::ui::Backend> previous =
        plat::ui::installBackend(std::make_unique<RecordingBackend>());
    delete g_pScript;
    g_pScript = new Script;
}

void record(const std::string& entry) {
    std::lock_guard<std::mutex> lock(script().logMutex);
    script().log.push_back(entry);
}

#ifdef _WIN32
// Windows handles are the system's: a probe is a file of its own held without sharing, and a closed probe
// is a file that opens again (a handle's value may be reused, a file's name is not). A file seen closed is
// deleted, and one that is gone counts as closed.
plat::HANDLE newHandleProbe() {
    static const unsigned nRun = std::random_device{}();
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() /
        ("velq-probe-" + std::to_string(nRun) + "-" + std::to_string(script().probeFiles.size()));
    script().probeFiles.push_back(file.string());
    return plat::CreateFileW(file.u16string().c_str(), plat::GENERIC_READ | plat::GENERIC_WRITE, 0, nullptr,
                             plat::CREATE_ALWAYS, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
}

int handlesClosed() {
    int nClosed = 0;
    for (const std::string& file : script().probeFiles) {
        const plat::HANDLE again =
            plat::CreateFileW(plat::fromUtf8(file).c_str(), plat::GENERIC_READ, 0, nullptr,
                              plat::OPEN_EXISTING, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
        if (again != plat::INVALID_HANDLE_VALUE) {
            plat::CloseHandle(again);
            std::filesystem::remove(file);
        }
        nClosed += std::filesystem::exists(file) ? 0 : 1;
    }
    return nClosed;
}
#else
plat::HANDLE newHandleProbe() {
    return new ClosedProbe;
}

int handlesClosed() {
    return script().nHandlesClosed.load();
}
#endif

std::vector<std::string> logCopy() {
    std::lock_guard<std::mutex> lock(script().logMutex);
    return script().log;
}

}  // namespace engine_test

using engine_test::record;
using engine_test::script;

// Cipher: only the end of a run is asked for by the batch.
namespace {
const unsigned char kZeroKey[VELQStreamCipher::kKeyBytes] = {};
}  // namespace

VELQCrypt::VELQCrypt(VELQKey&, long& result) : m_cipher(kZeroKey) {
    result = 0;
}

long VELQCrypt::endCryptProcess(bool bEncrypt) {
    record(std::string("end ") + (bEncrypt ? "1" : "0"));
    return 0;
}

plat::LONG VELQShellExtProc::recoverKeyGuide() {
    record("guide");
    return engine_test::popOr(script().recoverResults, 0);
}

// File format: the sizes the constructor needs for its header buffer.
plat::DWORD VELQCryptFile::_getIdentityHeaderSize() {
    return 32;
}
plat::DWORD VELQCryptFile::_getEncryptedHeaderSize() {
    return 1088;
}

int VELQCryptFile::_initCryptScene() {
    record("scene");
    const int nResult = engine_test::popOr(script().sceneResults, 0);
    delete m_pCrypt;
    m_pCrypt = nullptr;
    if (nResult == 0) {
        VELQKey* key = nullptr;
        VELQKey::createKey(&key);
        long created = 0;
        m_pCrypt = new VELQCrypt(*key, created);
        VELQKey::freeVELQKey(&key);
    }
    return nResult;
}

int VELQCryptFile::_encryptFile(FileInfo* lpFileInfos) {
    return engine_test::runFile("encrypt", lpFileInfos);
}
int VELQCryptFile::_decryptFile(FileInfo* lpFileInfos) {
    return engine_test::runFile("decrypt", lpFileInfos);
}

int VELQCryptFile::_startProgressBar(int mode) {
    record("start " + std::to_string(mode));
    return 0;
}

void VELQCryptFile::_stopProgressBar() {
    record("stop");
    if (script().bCloseListAtStop && script().bListVisible && m_hErrorDialog.load() != nullptr) {
        plat::PostMessageW(m_hErrorDialog.load(), plat::WM_CLOSE, 0, 0);
    }
}

void VELQCryptFile::_updateFileCountLine(plat::DWORD index, int mode) {
    record("count " + std::to_string(index) + "/" + std::to_string(m_vFileInfos.size()) + " " +
           std::to_string(mode));
}

plat::HRESULT VELQCryptFile::_showMessageDialog(const std::u16string& text) {
    record("row " + plat::toUtf8(text));
    // The real list waits until its dialog takes rows; so does this one, before it shows.
    _waitForErrorDialogOrItsEnd();
    script().bListVisible = true;
    return 0;
}

plat::BOOL VELQCryptFile::_isErrorDialogVisible() {
    return script().bListVisible ? plat::TRUE : plat::FALSE;
}

unsigned VELQCryptFile::_ThreadProcShowMessage(void* object) {
    auto* self = static_cast<VELQCryptFile*>(object);
    engine_test::registerListClass();
    plat::HWND hwnd = plat::CreateWindowExW(0, u"EngineTestErrorList", u"Message", 0, 0, 0, 0, 0, nullptr,
                                            nullptr, nullptr, nullptr);
    self->m_hErrorDialog = hwnd;
    plat::MSG msg{};
    while (plat::GetMessageW(&msg, nullptr, 0, 0) > 0) {
        plat::DispatchMessageW(&msg);
    }
    // Leaves the worker time to return too early, should it not wait for the list.
    plat::Sleep(20);
    script().bListClosed = true;
    plat::DestroyWindow(hwnd);
    self->m_hErrorDialog = nullptr;
    return 0;
}

// The progress dialog (silent_progress_dialog.cpp): only the cancel is asked for by the batch.
plat::BOOL VELQProgressDialog::hasUserCancelled() {
    return script().bCancelled ? plat::TRUE : plat::FALSE;
}
