// The terminal UI (VELQ_UI=tty) for a person at a terminal. Questions are written to and answers read
// from the terminal itself (/dev/tty), never from stdin, which may be a pipe of file paths.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "plat/ui.h"
#include "ui/transfer_kinds.h"
#include "ui/wait_kinds.h"
#include "ui/tty_kinds.h"

namespace plat::ui {

// A message box on the terminal:
//   [Question] Information
//   Your key file cannot be found, do you want to recover it from the backup?
//   [Y]es / [N]o (Enter: Yes)?
// Answers: the key letter or the button's word, in any case; Enter alone presses the first button;
// anything else asks again. End of input or a terminal that cannot be read gives the answer of a person
// who confirms nothing (as in the scripted UI). Input typed before the question is discarded, so that
// keys pressed earlier never answer it. Control characters of the texts (other than line feeds and tabs)
// are shown as U+FFFD: a file name must not be able to drive the terminal.
// Questions of several threads are asked one after another.
class TtyMessageBox : public MessageBoxUi {
public:
    // `inFd` is -1 when there is no terminal to read; `outFd` is where questions are written.
    TtyMessageBox(int inFd, int outFd);
    // 0 with ERROR_INVALID_PARAMETER for a button set we do not show.
    int show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) override;

private:
    enum class ReadResult { kLine, kEnd };
    ReadResult _readLine(std::string& line);
    void _write(const std::string& text);

    std::mutex m_mutex;
    int m_nInFd;
    int m_nOutFd;
};

// A terminal has no pointer to show a busy cursor on: shown cursors are accepted and ignored.
class TtyCursor : public CursorUi {
public:
    void show(DWORD cursorId) override;
};

class TtyBackend : public Backend {
public:
    // Opens `terminalPath` (normally "/dev/tty") for reading and writing. When it cannot be opened,
    // questions go to `fallbackFd` (normally stderr, not owned) and get the no-confirmation answer.
    explicit TtyBackend(const std::string& terminalPath, int fallbackFd = 2);
    ~TtyBackend() override;
    TtyBackend(const TtyBackend&) = delete;
    TtyBackend& operator=(const TtyBackend&) = delete;

    std::string_view name() const override { return "tty"; }
    MessageBoxUi& messageBox() override { return *m_pMessageBox; }
    CursorUi& cursor() override { return m_cursor; }
    KeyFileDialogUi& keyFileDialog() override { return *m_pTransfer; }
    SearchWindowUi& searchWindow() override { return *m_pTransfer; }
    WaitUi& wait() override { return m_wait; }
    ProgressUi& progress() override { return *m_pKinds; }
    ErrorListUi& errorList() override { return *m_pKinds; }
    ClipboardUi& clipboard() override { return *m_pKinds; }

private:
    int m_nTerminalFd = -1;
    std::unique_ptr<TtyMessageBox> m_pMessageBox;
    TtyCursor m_cursor;
    std::unique_ptr<TtyTransfer> m_pTransfer;  // password dialogs and the search window
    TtyWait m_wait{2};  // the picture's line on stderr
    std::unique_ptr<TtyKinds> m_pKinds;  // progress on stderr, error list, clipboard
};

}  // namespace plat::ui
