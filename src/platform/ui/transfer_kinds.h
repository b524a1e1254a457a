// The password dialogs of the key backup and recovery, and the search window, in the scripted UI and at
// a terminal.
//
// Scripted (AUTOMATION.md): the export dialog takes "export PATH<TAB>PASSWORD" or "cancel", the import
// dialog "import PATH<TAB>PASSWORD" or "cancel". No answer left, or one that does not fit (another verb,
// an empty path, a password outside the dialog's limits), cancels with "default":true. Transcript lines:
//   {"ui":"export","answer":"ok","path":"…"}   {"ui":"import","answer":"cancel"}
//   {"ui":"search","query":"…","results":["…"]}
// Passwords never reach the transcript.
//
// Terminal: the file is asked with its start value in brackets (Enter keeps it); the password is read
// with echo off, for the export twice, and asked again while the two differ or it is outside the limits.
// End of input (Ctrl-D) at any prompt cancels; without a terminal the dialog is cancelled. The search
// window is a list of the files found.
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "plat/ui.h"
#include "ui/script_answers.h"
#include "ui/transcript.h"

namespace plat::ui {

// `path` with "." and `extension` added when its file name (after the last '/') has no dot; an empty
// extension adds nothing.
std::u16string withDefaultExtension(const std::u16string& path, const std::u16string& extension);
// True when `password` fits the request's limits.
bool passwordFits(const KeyFileRequest& request, std::u16string_view password);

class ScriptKeyFileDialog : public KeyFileDialogUi {
public:
    ScriptKeyFileDialog(ScriptAnswers& answers, Transcript& transcript, std::mutex& turn);
    int ask(HWND owner, const KeyFileRequest& request, KeyFileAnswer& answer) override;

private:
    ScriptAnswers& m_answers;
    Transcript& m_transcript;
    std::mutex& m_turn;
};

class ScriptSearchWindow : public SearchWindowUi {
public:
    explicit ScriptSearchWindow(Transcript& transcript);
    void show(std::u16string_view query, const std::vector<std::u16string>& results) override;

private:
    Transcript& m_transcript;
};

class TtyTransfer : public KeyFileDialogUi, public SearchWindowUi {
public:
    // `inFd`: the terminal to read, -1 for none; `outFd`: where prompts and lists go. Neither is owned.
    TtyTransfer(int inFd, int outFd);
    int ask(HWND owner, const KeyFileRequest& request, KeyFileAnswer& answer) override;
    void show(std::u16string_view query, const std::vector<std::u16string>& results) override;

private:
    // Shows `prompt` and reads a line typed at the terminal (without its end); nothing at the end of input.
    std::optional<std::string> _readLine(const std::string& prompt, bool bEcho);
    void _write(const std::string& text);
    std::optional<std::u16string> _askPath(const KeyFileRequest& request);
    std::optional<std::u16string> _askPassword(const KeyFileRequest& request);

    std::mutex m_mutex;
    int m_nInFd;
    int m_nOutFd;
};

}  // namespace plat::ui
