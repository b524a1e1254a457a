// Fuzzes the reading of a hand-off: the same bytes, widened to UTF-16, as a hand-off line and as a
// hand-off text. A line gives its four fields or a refusal; a text gives four lists whose items hold no
// ";" and together never outnumber the text's ";", with the fourth list filled only when the first three
// are empty, or a refusal that leaves every list empty.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "app/VELQAssistant.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void checkLine(const std::u16string& line) {
    VELQAssistant::HandOffFields fields{};
    if (!VELQAssistant::_parseHandOffCmdLine(line, fields)) {
        return;
    }
    check(fields.szMapping.find(u':') == std::u16string::npos);
    check(fields.szEvent.find(u':') == std::u16string::npos);
    check(fields.szMapping.size() + fields.szEvent.size() + 4 <= line.size());
}

void checkText(const std::u16string& text) {
    std::vector<std::u16string> lists[4];
    const bool bAccepted = VELQAssistant::parseHandOffText(text, lists[0], lists[1], lists[2], lists[3]);
    std::size_t items = 0;
    for (const auto& list : lists) {
        items += list.size();
        for (const auto& item : list) {
            check(item.find(u';') == std::u16string::npos);
            check(item.size() <= text.size());
        }
    }
    if (!bAccepted) {
        check(items == 0);
        return;
    }
    check(items <= static_cast<std::size_t>(std::count(text.begin(), text.end(), u';')));
    check(lists[3].empty() || (lists[0].empty() && lists[1].empty() && lists[2].empty()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::u16string widened;
    widened.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        widened.push_back(static_cast<char16_t>(data[i]));
    }
    checkLine(widened);
    checkText(widened);
    // Pairs of bytes as UTF-16LE units reach characters beyond Latin-1, as a real mapping holds them.
    std::u16string units;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        units.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    }
    checkText(units);
    return 0;
}
