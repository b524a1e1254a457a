// The progress dialog, the error list and the clipboard of the scripted UI. Each writes its transcript
// lines (AUTOMATION.md):
//   {"ui":"progress","op":"title"|"line"|"cancelmsg"|"start"|"stop"|"set", ...}
//   {"ui":"errorlist","op":"row","text":…,"count":N}  {"ui":"errorlist","op":"show"}
//   {"ui":"errorlist","op":"copy","text":…}           {"ui":"errorlist","op":"close","default":B}
// Cancel: from the moment the file named by VELQ_UI_CANCEL_FILE exists, hasUserCancelled is true.
// The error list left open at the end of a batch takes the answers "copy" (then the next answer) and
// "close"; no answer left, or one that does not fit, closes it with "default":true.
#pragma once

#include <mutex>
#include <string>

#include "plat/ui.h"
#include "ui/list_turn.h"
#include "ui/script_answers.h"
#include "ui/transcript.h"

namespace plat::ui {

class ScriptProgress : public ProgressUi {
public:
    // `cancelFile`: UTF-8 path, empty for none. `turn` learns when a batch's progress opens and closes.
    ScriptProgress(Transcript& transcript, ListTurn& turn, std::string cancelFile);
    void opened() override;
    void closed() override;
    void started() override;
    void stopped() override;
    void title(std::u16string_view text) override;
    void line(DWORD number, std::u16string_view text, bool compactPath) override;
    void cancelMessage(std::u16string_view text) override;
    // A "set" line only when the values differ from the last ones written: a bar set twice to the same
    // value shows no change.
    void progress(DWORD completed, DWORD total) override;
    // Not written: a transcript must not depend on how fast the machine is.
    void timeLeft(DWORD seconds) override;
    bool cancelRequested() override;

private:
    void _op(const char* op);

    Transcript& m_transcript;
    ListTurn& m_turn;
    std::string m_szCancelFile;
    std::mutex m_mutex;
    long long m_nLastCompleted = -1;
    long long m_nLastTotal = -1;
};

class ScriptErrorList : public ErrorListUi {
public:
    ScriptErrorList(ScriptAnswers& answers, Transcript& transcript, std::mutex& answerTurn);
    void rowAdded(HWND dialog, std::u16string_view text, unsigned count) override;
    void shown(HWND dialog) override;
    void closed(HWND dialog) override;

    ListTurn& listTurn() { return m_listTurn; }

private:
    // The person's turn: the answers taken in order until the list is closed.
    void _personTurn(HWND dialog);

    ScriptAnswers& m_answers;
    Transcript& m_transcript;
    std::mutex& m_answerTurn;
    std::mutex m_mutex;
    HWND m_hClosingByDefault = nullptr;  // the list the person's turn closes without a fitting answer
    ListTurn m_listTurn;
};

class ScriptClipboard : public ClipboardUi {
public:
    explicit ScriptClipboard(Transcript& transcript);
    void setText(std::u16string_view text) override;

private:
    Transcript& m_transcript;
};

// The three kinds together, as ScriptBackend holds them.
class ScriptKinds {
public:
    ScriptKinds(ScriptAnswers& answers, Transcript& transcript, std::mutex& answerTurn);
    ScriptProgress& progress() { return m_progress; }
    ScriptErrorList& errorList() { return m_errorList; }
    ScriptClipboard& clipboard() { return m_clipboard; }

private:
    ScriptErrorList m_errorList;
    ScriptProgress m_progress;
    ScriptClipboard m_clipboard;
};

}  // namespace plat::ui
