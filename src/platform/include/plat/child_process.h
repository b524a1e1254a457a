// A program started by ours (the velq tool starts VELQFileEncrypt), and where our own program lies.
#pragma once

#include <string>

#include "plat/types.h"

namespace plat {

// One started program. The destructor does not wait for it and does not end it.
class ChildProcess {
public:
    ChildProcess();
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts `program` (a path, or on POSIX a name looked up in PATH) with one argument, passed as it is,
    // blanks and quotes included; the program inherits our environment and standard streams. false with
    // a text that says why in `failure`.
    bool start(const std::u16string& program, const std::u16string& argument, std::string& failure);

    // Waits at most `milliseconds` (INFINITE: until it ends) for the program's end. true when it has
    // ended, with its exit status in `status` (on POSIX 128 + the signal of a program ended by a signal).
    // false while it runs, and for a program that was never started.
    bool ended(DWORD milliseconds, int& status);

    // The signal that ended the program (POSIX); 0 while it runs, after a normal end, and on Windows.
    int endingSignal() const;

private:
    struct State;
    State* m_pState;
};

// The folder of the running program, without a trailing separator; empty when unknown.
std::u16string programFolder();

// The name of a program file as the system needs it: "VELQFileEncrypt" on POSIX,
// "VELQFileEncrypt.exe" on Windows.
std::u16string programFileName(const std::u16string& stem);

// Whether `path` is the root of a mounted volume (POSIX: "/" or a folder on another device than its
// parent; Windows: a drive's or share's root, or a mounted folder). false for a path that does not exist.
bool isVolumeRoot(const std::u16string& path);

// The process's id (for unique names).
DWORD currentProcessId();

}  // namespace plat
