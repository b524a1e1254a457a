// Test doubles of the crypt engine's concerns that the batch calls but that are not built yet (crypt
// scene, file access and the per-file work, progress, error list), of the key recovery guide and of the
// cipher's end-of-run call. They are joined to the batch at link time: the test program links the
// batch's own sources with doubles.cpp instead of the real concerns.
//
// Every double appends what it was asked to the log of the script, and answers as the script says.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "engine/VELQCryptFile.h"

namespace engine_test {

// What one call of _encryptFile or _decryptFile does.
struct FileStep {
    int nResult = 0;
    bool bCancel = false;       // the person presses Cancel during this file
    bool bOpenHandles = false;  // the file leaves its four handles open (probes, see ClosedProbe)
};

struct Script {
    // Results of _initCryptScene, in order; once used up, 0. A 0 binds a cipher, anything else drops it.
    std::deque<int> sceneResults;
    // Per path, the steps of its calls in order; once used up, a plain success.
    std::map<std::u16string, std::deque<FileStep>> fileSteps;
    // Results of VELQShellExtProc::recoverKeyGuide, in order; once used up, 0.
    std::deque<plat::LONG> recoverResults;
    // Answers of message boxes, in order; once used up, IDNO.
    std::deque<int> boxAnswers;
    // The person closes a visible error list as soon as the batch's progress has stopped.
    bool bCloseListAtStop = true;

    std::atomic<bool> bCancelled{false};
    std::atomic<bool> bListVisible{false};
    std::atomic<bool> bListClosed{false};
    std::atomic<int> nHandlesClosed{0};   // POSIX: probes that counted their own end
    std::vector<std::string> probeFiles;  // Windows: the files behind the probes made so far

    std::mutex logMutex;
    std::vector<std::string> log;  // "scene", "encrypt /a 0", "count 1/3", "row ...", "end 1", ...
};

// The script of the running test; reset() starts a new one.
Script& script();
void reset();
void record(const std::string& entry);
std::vector<std::string> logCopy();
// A handle whose end (its last CloseHandle) handlesClosed() counts.
plat::HANDLE newHandleProbe();
// How many handles of newHandleProbe() have been closed since reset().
int handlesClosed();

}  // namespace engine_test
