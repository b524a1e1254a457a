#include "ui/script_backend.h"

#include "plat/errors.h"
#include "plat/system.h"
#include "ui/messagebox_rules.h"

namespace plat::ui {

ScriptMessageBox::ScriptMessageBox(ScriptAnswers& answers, Transcript& transcript, std::mutex& turn)
    : m_answers(answers), m_transcript(transcript), m_turn(turn) {}

int ScriptMessageBox::show(HWND owner, std::u16string_view text, std::u16string_view caption, UINT flags) {
    if (!isSupportedButtonSet(flags)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::lock_guard<std::mutex> lock(m_turn);
    const std::optional<std::string> line = m_answers.next();
    int answer = line ? messageBoxAnswerOf(*line) : 0;
    const bool tookDefault = !answerFits(flags, answer);
    if (tookDefault) {
        answer = noConfirmationAnswer(flags);
    }
    // A misfit answer is marked by "default":true alone, with no field of its own holding what was given:
    // consumers compare these lines field by field, and the misfit line may be a dialog answer that
    // carries a password, which must never reach the transcript.
    m_transcript.write(JsonLine()
                           .addUtf8("ui", "messagebox")
                           .add("text", text)
                           .add("caption", caption)
                           .add("flags", static_cast<long long>(flags))
                           .add("owner", owner != nullptr)
                           .add("answer", static_cast<long long>(answer))
                           .add("default", tookDefault));
    return answer;
}

ScriptCursor::ScriptCursor(Transcript& transcript) : m_transcript(transcript) {}

void ScriptCursor::show(DWORD cursorId) {
    m_transcript.write(JsonLine().addUtf8("ui", "cursor").add("id", static_cast<long long>(cursorId)));
}

ScriptBackend::ScriptBackend(std::string scriptPath, std::string transcriptPath)
    : m_answers(std::move(scriptPath)),
      m_transcript(std::move(transcriptPath)),
      m_messageBox(m_answers, m_transcript, m_turn),
      m_cursor(m_transcript) {}

ScriptBackend::~ScriptBackend() = default;

std::unique_ptr<ScriptBackend> ScriptBackend::fromEnvironment() {
    return std::make_unique<ScriptBackend>(environmentValue("VELQ_UI_SCRIPT").value_or(std::string()),
                                           environmentValue("VELQ_UI_TRANSCRIPT").value_or(std::string()));
}

}  // namespace plat::ui
