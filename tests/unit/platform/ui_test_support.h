// Support for the UI backends' tests. A small strict JSON reader: one transcript line must be exactly one
// flat object whose values are strings, integers, booleans or arrays of strings, with no raw control
// characters, valid UTF-8, and nothing after it but the line end. Strings come back decoded, as UTF-8.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "plat/strings.h"
#include "temp_folder.h"

namespace velq_test {

using JsonValue = std::variant<std::string, long long, bool, std::vector<std::string>>;

struct JsonObject {
    std::vector<std::string> keys;  // in the order written
    std::map<std::string, JsonValue> values;

    const std::string& text(const std::string& key) const { return std::get<std::string>(values.at(key)); }
    long long number(const std::string& key) const { return std::get<long long>(values.at(key)); }
    bool flag(const std::string& key) const { return std::get<bool>(values.at(key)); }
};

class StrictJsonReader {
public:
    explicit StrictJsonReader(std::string_view text) : m_text(text) {}

    std::optional<JsonObject> object() {
        JsonObject result;
        if (!eat('{')) {
            return std::nullopt;
        }
        if (!eat('}')) {
            do {
                std::string key;
                if (!string(key) || !eat(':') || result.values.count(key) != 0) {
                    return std::nullopt;
                }
                std::optional<JsonValue> item = value();
                if (!item) {
                    return std::nullopt;
                }
                result.keys.push_back(key);
                result.values.emplace(key, *item);
            } while (eat(','));
            if (!eat('}')) {
                return std::nullopt;
            }
        }
        if (m_pos != m_text.size() || !validUtf8(m_text)) {
            return std::nullopt;
        }
        return result;
    }

private:
    static bool validUtf8(std::string_view text) { return plat::toUtf8(plat::fromUtf8(text)) == text; }

    bool eat(char c) {
        if (m_pos < m_text.size() && m_text[m_pos] == c) {
            ++m_pos;
            return true;
        }
        return false;
    }

    std::optional<JsonValue> value() {
        if (m_pos >= m_text.size()) {
            return std::nullopt;
        }
        const char c = m_text[m_pos];
        if (c == '"') {
            std::string s;
            return string(s) ? std::optional<JsonValue>(s) : std::nullopt;
        }
        if (m_text.substr(m_pos, 4) == "true") {
            m_pos += 4;
            return JsonValue(true);
        }
        if (m_text.substr(m_pos, 5) == "false") {
            m_pos += 5;
            return JsonValue(false);
        }
        if (c == '[') {
            ++m_pos;
            std::vector<std::string> items;
            if (!eat(']')) {
                do {
                    std::string s;
                    if (!string(s)) {
                        return std::nullopt;
                    }
                    items.push_back(s);
                } while (eat(','));
                if (!eat(']')) {
                    return std::nullopt;
                }
            }
            return JsonValue(items);
        }
        return number();
    }

    std::optional<JsonValue> number() {
        const std::size_t start = m_pos;
        eat('-');
        const std::size_t digits = m_pos;
        while (m_pos < m_text.size() && m_text[m_pos] >= '0' && m_text[m_pos] <= '9') {
            ++m_pos;
        }
        if (m_pos == digits || (m_text[digits] == '0' && m_pos - digits > 1)) {
            return std::nullopt;
        }
        return JsonValue(std::stoll(std::string(m_text.substr(start, m_pos - start))));
    }

    bool hex4(unsigned& unit) {
        if (m_pos + 4 > m_text.size()) {
            return false;
        }
        unit = 0;
        for (int i = 0; i < 4; ++i) {
            const char h = m_text[m_pos++];
            unit <<= 4;
            if (h >= '0' && h <= '9') {
                unit |= static_cast<unsigned>(h - '0');
            } else if (h >= 'a' && h <= 'f') {
                unit |= static_cast<unsigned>(h - 'a' + 10);
            } else if (h >= 'A' && h <= 'F') {
                unit |= static_cast<unsigned>(h - 'A' + 10);
            } else {
                return false;
            }
        }
        return true;
    }

    // Decodes a string; escaped surrogates must come in valid pairs.
    bool string(std::string& out) {
        if (!eat('"')) {
            return false;
        }
        std::u16string units;
        while (m_pos < m_text.size()) {
            const char c = m_text[m_pos++];
            if (c == '"') {
                out = plat::toUtf8(units);
                return plat::fromUtf8(out) == units;  // no lone surrogates
            }
            if (static_cast<unsigned char>(c) < 0x20) {
                return false;
            }
            if (c != '\\') {
                // Copy a raw UTF-8 sequence as it stands.
                std::size_t end = m_pos;
                while (end < m_text.size() && (static_cast<unsigned char>(m_text[end]) & 0xC0) == 0x80) {
                    ++end;
                }
                units += plat::fromUtf8(m_text.substr(m_pos - 1, end - m_pos + 1));
                m_pos = end;
                continue;
            }
            if (m_pos >= m_text.size()) {
                return false;
            }
            const char e = m_text[m_pos++];
            static constexpr std::string_view kSimple = "\"\\/bfnrt";
            static constexpr std::u16string_view kMeaning = u"\"\\/\b\f\n\r\t";
            if (const std::size_t at = kSimple.find(e); at != std::string_view::npos) {
                units.push_back(kMeaning[at]);
            } else if (e == 'u') {
                unsigned unit = 0;
                if (!hex4(unit)) {
                    return false;
                }
                units.push_back(static_cast<char16_t>(unit));
            } else {
                return false;
            }
        }
        return false;
    }

    std::string_view m_text;
    std::size_t m_pos = 0;
};

// Parses one transcript line (which must end in exactly one '\n').
inline std::optional<JsonObject> parseTranscriptLine(std::string_view line) {
    if (line.empty() || line.back() != '\n') {
        return std::nullopt;
    }
    line.remove_suffix(1);
    if (line.find('\n') != std::string_view::npos) {
        return std::nullopt;
    }
    return StrictJsonReader(line).object();
}

// Splits a file's text into lines, each with its '\n' (a last piece without one is kept as it is).
inline std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        const std::size_t stop = end == std::string::npos ? text.size() : end + 1;
        lines.push_back(text.substr(start, stop - start));
        start = stop;
    }
    return lines;
}

// A private folder for one test, removed with what it holds. Paths are UTF-8 in the system's own form, as
// the backends take them.
class TempDir {
public:
    TempDir() = default;
    bool ok() const { return !m_folder.path().empty(); }
    std::string file(const std::string& name) const { return utf8Path(m_folder.path() / name); }

private:
    static std::string utf8Path(std::filesystem::path path) {
        const std::u8string text = path.make_preferred().u8string();
        return std::string(text.begin(), text.end());
    }
    velq_test::TempFolder m_folder{"velq-ui-"};
};

// The path named by UTF-8 `path`, whatever the system's narrow code page.
inline std::filesystem::path fileSystemPath(const std::string& path) {
    return std::filesystem::path(std::u8string(path.begin(), path.end()));
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(fileSystemPath(path), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeFile(const std::string& path, const std::string& text, bool append = false) {
    std::ofstream out(fileSystemPath(path), std::ios::binary | (append ? std::ios::app : std::ios::trunc));
    out << text;
}

}  // namespace velq_test
