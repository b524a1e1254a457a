#include <algorithm>

#include "plat/errors.h"
#include "ui/transfer_kinds.h"

namespace plat::ui {

namespace {

class UnavailableKeyFileDialog : public KeyFileDialogUi {
public:
    int ask(HWND, const KeyFileRequest&, KeyFileAnswer&) override {
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
};

class SilentSearchWindow : public SearchWindowUi {
public:
    void show(std::u16string_view, const std::vector<std::u16string>&) override {}
};

// Overwrites a password's units before the text goes, so that it does not linger in freed memory.
void wipe(std::u16string& secret) {
    volatile char16_t* unit = secret.data();
    for (std::size_t i = 0; i < secret.size(); ++i) {
        unit[i] = 0;
    }
    secret.clear();
}

}  // namespace

KeyFileDialogUi& unavailableKeyFileDialog() {
    static UnavailableKeyFileDialog dialog;
    return dialog;
}

SearchWindowUi& silentSearchWindow() {
    static SilentSearchWindow window;
    return window;
}

std::u16string withDefaultExtension(const std::u16string& path, const std::u16string& extension) {
    const std::size_t nameStart = path.find_last_of(u'/');
    const std::u16string_view name =
        std::u16string_view(path).substr(nameStart == std::u16string::npos ? 0 : nameStart + 1);
    if (extension.empty() || name.empty() || name.find(u'.') != std::u16string_view::npos) {
        return path;
    }
    return path + u"." + extension;
}

bool passwordFits(const KeyFileRequest& request, std::u16string_view password) {
    if (request.nMinPassword != 0 && password.size() < request.nMinPassword) {
        return false;
    }
    return request.nMaxPassword == 0 || password.size() <= request.nMaxPassword;
}

ScriptKeyFileDialog::ScriptKeyFileDialog(ScriptAnswers& answers, Transcript& transcript, std::mutex& turn)
    : m_answers(answers), m_transcript(transcript), m_turn(turn) {}

int ScriptKeyFileDialog::ask(HWND, const KeyFileRequest& request, KeyFileAnswer& answer) {
    const char* verb = request.bExport ? "export" : "import";
    std::lock_guard<std::mutex> lock(m_turn);
    std::optional<std::string> line = m_answers.next();
    bool bCancel = false;
    std::optional<PathPasswordAnswer> given;
    if (line) {
        bCancel = *line == "cancel";
        given = pathPasswordAnswerOf(*line, verb);
        // The raw line may hold the password: it is not left behind.
        std::fill(line->begin(), line->end(), '\0');
    }
    JsonLine json;
    json.addUtf8("ui", verb);
    if (given && passwordFits(request, given->password)) {
        answer.path =
            request.bExport ? withDefaultExtension(given->path, request.defaultExtension) : given->path;
        answer.password = given->password;
        wipe(given->password);
        m_transcript.write(json.addUtf8("answer", "ok").add("path", answer.path));
        return IDOK;
    }
    if (given) {
        wipe(given->password);
    }
    json.addUtf8("answer", "cancel");
    if (!bCancel) {
        json.add("default", true);
    }
    m_transcript.write(json);
    return IDCANCEL;
}

ScriptSearchWindow::ScriptSearchWindow(Transcript& transcript) : m_transcript(transcript) {}

void ScriptSearchWindow::show(std::u16string_view query, const std::vector<std::u16string>& results) {
    m_transcript.write(JsonLine().addUtf8("ui", "search").add("query", query).add("results", results));
}

}  // namespace plat::ui
