// Fuzzes the reading of scripted answers (VELQ_UI_SCRIPT) and their interpretation by every interaction
// kind, and the JSON escaping of whatever an answer holds.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "plat/strings.h"
#include "ui/script_answers.h"
#include "ui/transcript.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::vector<std::string> answersOf(std::string pending) {
    std::vector<std::string> answers;
    while (auto line = plat::ui::takeAnswerLine(pending, true)) {
        answers.push_back(*line);
    }
    check(pending.empty());
    return answers;
}

// The same bytes arriving in pieces (as from a FIFO) must give the same answers.
std::vector<std::string> answersInPieces(const std::string& data, std::size_t piece) {
    std::vector<std::string> answers;
    std::string pending;
    for (std::size_t at = 0; at < data.size(); at += piece) {
        pending.append(data, at, piece);
        while (auto line = plat::ui::takeAnswerLine(pending, false)) {
            answers.push_back(*line);
        }
    }
    while (auto line = plat::ui::takeAnswerLine(pending, true)) {
        answers.push_back(*line);
    }
    return answers;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::vector<std::string> answers = answersOf(text);
    const std::size_t piece = size == 0 ? 1 : 1 + data[0] % 7;
    check(answersInPieces(text, piece) == answers);

    for (const std::string& answer : answers) {
        check(answer.find('\n') == std::string::npos);
        check(answer.empty() || answer.front() != '#');
        check(answer.find_first_not_of(" \t") != std::string::npos);

        const int box = plat::ui::messageBoxAnswerOf(answer);
        check(box == 0 || box == 1 || box == 2 || box == 6 || box == 7);
        for (const char* verb : {"export", "import"}) {
            if (const auto pathPassword = plat::ui::pathPasswordAnswerOf(answer, verb)) {
                check(!pathPassword->path.empty());
                check(pathPassword->path.find(u'\t') == std::u16string::npos);
            }
        }

        std::string json;
        plat::ui::appendJsonString(json, plat::fromUtf8(answer));
        for (const char c : json) {
            check(static_cast<unsigned char>(c) >= 0x20);
        }
        check(plat::toUtf8(plat::fromUtf8(json)) == json);  // valid UTF-8
    }
    return 0;
}
