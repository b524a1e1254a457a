#include "ui/script_kinds.h"

#include "plat/dialogs.h"
#include "plat/files.h"
#include "plat/strings.h"
#include "plat/system.h"
#include "plat/windows.h"

namespace plat::ui {

ScriptProgress::ScriptProgress(Transcript& transcript, ListTurn& turn, std::string cancelFile)
    : m_transcript(transcript), m_turn(turn), m_szCancelFile(std::move(cancelFile)) {}

void ScriptProgress::opened() {
    m_turn.progressOpened();
}

void ScriptProgress::closed() {
    m_turn.progressClosed();
}

void ScriptProgress::_op(const char* op) {
    m_transcript.write(JsonLine().addUtf8("ui", "progress").addUtf8("op", op));
}

void ScriptProgress::started() {
    _op("start");
}

void ScriptProgress::stopped() {
    _op("stop");
}

void ScriptProgress::title(std::u16string_view text) {
    m_transcript.write(JsonLine().addUtf8("ui", "progress").addUtf8("op", "title").add("text", text));
}

void ScriptProgress::line(DWORD number, std::u16string_view text, bool) {
    if (!m_transcript.enabled()) {
        return;  // the line changes with every file of a batch: nothing is built for no reader
    }
    m_transcript.write(JsonLine()
                           .addUtf8("ui", "progress")
                           .addUtf8("op", "line")
                           .add("line", static_cast<long long>(number))
                           .add("text", text));
}

void ScriptProgress::cancelMessage(std::u16string_view text) {
    m_transcript.write(JsonLine().addUtf8("ui", "progress").addUtf8("op", "cancelmsg").add("text", text));
}

void ScriptProgress::progress(DWORD completed, DWORD total) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nLastCompleted == completed && m_nLastTotal == total) {
            return;
        }
        m_nLastCompleted = completed;
        m_nLastTotal = total;
    }
    m_transcript.write(JsonLine()
                           .addUtf8("ui", "progress")
                           .addUtf8("op", "set")
                           .add("completed", static_cast<long long>(completed))
                           .add("total", static_cast<long long>(total)));
}

void ScriptProgress::timeLeft(DWORD) {}

bool ScriptProgress::cancelRequested() {
    return !m_szCancelFile.empty() &&
           GetFileAttributesW(fromUtf8(m_szCancelFile).c_str()) != INVALID_FILE_ATTRIBUTES;
}

ScriptErrorList::ScriptErrorList(ScriptAnswers& answers, Transcript& transcript, std::mutex& answerTurn)
    : m_answers(answers),
      m_transcript(transcript),
      m_answerTurn(answerTurn),
      m_listTurn([this](HWND dialog) { _personTurn(dialog); }) {}

void ScriptErrorList::rowAdded(HWND, std::u16string_view text, unsigned count) {
    m_transcript.write(JsonLine()
                           .addUtf8("ui", "errorlist")
                           .addUtf8("op", "row")
                           .add("text", text)
                           .add("count", static_cast<long long>(count)));
}

void ScriptErrorList::shown(HWND dialog) {
    m_transcript.write(JsonLine().addUtf8("ui", "errorlist").addUtf8("op", "show"));
    m_listTurn.listShown(dialog);
}

void ScriptErrorList::closed(HWND dialog) {
    bool byDefault = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        byDefault = m_hClosingByDefault == dialog;
    }
    m_transcript.write(
        JsonLine().addUtf8("ui", "errorlist").addUtf8("op", "close").add("default", byDefault));
    m_listTurn.listClosed(dialog);
}

void ScriptErrorList::_personTurn(HWND dialog) {
    while (IsWindow(dialog)) {
        std::optional<std::string> answer;
        {
            std::lock_guard<std::mutex> lock(m_answerTurn);
            answer = m_answers.next();
        }
        if (answer && *answer == "copy") {
            SendMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(IDC_ERROR_COPY), 0);
            continue;
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_hClosingByDefault = !answer || *answer != "close" ? dialog : nullptr;
        }
        SendMessageW(dialog, WM_CLOSE, 0, 0);
        return;
    }
}

ScriptClipboard::ScriptClipboard(Transcript& transcript) : m_transcript(transcript) {}

void ScriptClipboard::setText(std::u16string_view text) {
    m_transcript.write(JsonLine().addUtf8("ui", "errorlist").addUtf8("op", "copy").add("text", text));
}

ScriptKinds::ScriptKinds(ScriptAnswers& answers, Transcript& transcript, std::mutex& answerTurn)
    : m_errorList(answers, transcript, answerTurn),
      m_progress(transcript, m_errorList.listTurn(),
                 environmentValue("VELQ_UI_CANCEL_FILE").value_or(std::string())),
      m_clipboard(transcript) {}

}  // namespace plat::ui
