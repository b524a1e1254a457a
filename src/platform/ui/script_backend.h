// The scripted UI (VELQ_UI=script): answers come from VELQ_UI_SCRIPT, every interaction is recorded in
// VELQ_UI_TRANSCRIPT (when set). Nothing is shown and nothing waits for a person. Later interaction kinds
// add their own parts to ScriptBackend and use its answers, transcript and turn.
#pragma once

#include <memory>
#include <mutex>

#include "plat/ui.h"
#include "ui/script_answers.h"
#include "ui/script_kinds.h"
#include "ui/transcript.h"
#include "ui/transfer_kinds.h"
#include "ui/wait_kinds.h"

namespace plat::ui {

// Message boxes: the next answer is taken; one that does not fit the buttons, or none at all, gives the
// answer of a person who confirms nothing. The transcript line is
//   {"ui":"messagebox","text":…,"caption":…,"flags":N,"owner":B,"answer":N,"default":B}
// with "default" true whenever that default was taken, for either reason.
class ScriptMessageBox : public MessageBoxUi {
public:
    ScriptMessageBox(ScriptAnswers& answers, Transcript& transcript, std::mutex& turn);
    // 0 with ERROR_INVALID_PARAMETER for a button set we do not show; no answer is taken then.
    int show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) override;

private:
    ScriptAnswers& m_answers;
    Transcript& m_transcript;
    std::mutex& m_turn;
};

// The cursor: only recorded, {"ui":"cursor","id":N}.
class ScriptCursor : public CursorUi {
public:
    explicit ScriptCursor(Transcript& transcript);
    void show(DWORD cursorId) override;

private:
    Transcript& m_transcript;
};

class ScriptBackend : public Backend {
public:
    // `scriptPath` and `transcriptPath` are UTF-8 paths; an empty one means none.
    ScriptBackend(std::string scriptPath, std::string transcriptPath);
    ~ScriptBackend() override;
    ScriptBackend(const ScriptBackend&) = delete;
    ScriptBackend& operator=(const ScriptBackend&) = delete;

    // The paths from VELQ_UI_SCRIPT and VELQ_UI_TRANSCRIPT.
    static std::unique_ptr<ScriptBackend> fromEnvironment();

    std::string_view name() const override { return "script"; }
    MessageBoxUi& messageBox() override { return m_messageBox; }
    CursorUi& cursor() override { return m_cursor; }
    KeyFileDialogUi& keyFileDialog() override { return m_keyFileDialog; }
    SearchWindowUi& searchWindow() override { return m_searchWindow; }
    WaitUi& wait() override { return m_wait; }
    ProgressUi& progress() override { return m_kinds.progress(); }
    ErrorListUi& errorList() override { return m_kinds.errorList(); }
    ClipboardUi& clipboard() override { return m_kinds.clipboard(); }

    ScriptAnswers& answers() { return m_answers; }
    Transcript& transcript() { return m_transcript; }
    // Held by an interaction from taking its answer to writing its line, so that the transcript shows
    // answers in the order in which they were taken.
    std::mutex& turn() { return m_turn; }

private:
    ScriptAnswers m_answers;
    Transcript m_transcript;
    std::mutex m_turn;
    ScriptMessageBox m_messageBox;
    ScriptCursor m_cursor;
    ScriptKeyFileDialog m_keyFileDialog{m_answers, m_transcript, m_turn};
    ScriptSearchWindow m_searchWindow{m_transcript};
    ScriptWait m_wait{m_transcript};
    ScriptKinds m_kinds{m_answers, m_transcript, m_turn};  // progress, error list, clipboard
};

}  // namespace plat::ui
