// Stand-ins for the progress and error-list tests: the per-file work (a scripted series of percents per
// pass, a result, a cancel), the key scene, the recovery guide and the progress dialog (which records
// every call with its thread). The error list is the real one over the platform's dialog, shown through
// a recording UI backend.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "engine/VELQCryptFile.h"

namespace progress_test {

struct FileScript {
    std::vector<float> firstPass;   // percents written before each _updateProgress of the first pass
    std::vector<float> secondPass;  // encrypt batches: the verification pass (mode 3)
    int nResult = 0;
    bool bCancelBeforeBlocks = false;             // Cancel is pressed as the file starts; its blocks see it
    bool bCancelAfter = false;                    // Cancel is pressed once the file is done
    std::function<void(VELQCryptFile&)> onStart;  // runs on the worker before the file's blocks
};

// A file's script; written out as a call, since the struct's later members mostly keep their defaults.
FileScript script(std::vector<float> firstPass, std::vector<float> secondPass, int nResult = 0,
                  bool bCancelBeforeBlocks = false, bool bCancelAfter = false);

struct Event {
    std::string what;  // "setProgress 50", "setLine 2 ...", "start", "row ...", "shown", ...
    unsigned long thread;
};

struct World {
    std::map<std::u16string, FileScript> files;
    std::atomic<bool> bCancelled{false};
    std::atomic<bool> bWindowFound{true};
    // The person closes a showing error list as soon as the batch's progress stops.
    std::atomic<bool> bCloseListAtStop{true};
    std::mutex mutex;
    std::vector<Event> events;
};

World& world();
void reset();
void record(const std::string& what);
std::vector<Event> events();
// The events whose text starts with `prefix`, as texts.
std::vector<std::string> eventsStartingWith(const std::string& prefix);
unsigned long thisThread();

}  // namespace progress_test

class VELQCryptFileTestAccess {
public:
    static plat::HWND errorDialog(VELQCryptFile& engine) { return engine.m_hErrorDialog.load(); }
    static plat::HANDLE errorThread(VELQCryptFile& engine) { return engine.m_hErrorDialogThread; }
    static int startProgressBar(VELQCryptFile& engine, int mode) { return engine._startProgressBar(mode); }
    static void stopProgressBar(VELQCryptFile& engine) { engine._stopProgressBar(); }
    static void updateProgress(VELQCryptFile& engine) { engine._updateProgress(); }
    static plat::DWORD progressThreadId(VELQCryptFile& engine) { return engine.m_dwProgressThreadId; }
    static plat::HANDLE progressThread(VELQCryptFile& engine) { return engine.m_hProgressThread; }
    static plat::HRESULT showMessageDialog(VELQCryptFile& engine, const std::u16string& text) {
        return engine._showMessageDialog(text);
    }
    static plat::BOOL isErrorDialogVisible(VELQCryptFile& engine) { return engine._isErrorDialogVisible(); }
    static void runFile(VELQCryptFile& engine, FileInfo* info, int& nResult);
};
