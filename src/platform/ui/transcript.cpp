#include "ui/transcript.h"

#include <cstdio>

#include "plat/streams.h"
#include "plat/strings.h"

namespace plat::ui {

namespace {
constexpr char16_t kReplacement = 0xFFFD;

bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendEscapedUnit(std::string& out, char16_t unit) {
    static constexpr char kHex[] = "0123456789abcdef";
    switch (unit) {
        case u'"':
            out += "\\\"";
            return;
        case u'\\':
            out += "\\\\";
            return;
        case u'\b':
            out += "\\b";
            return;
        case u'\f':
            out += "\\f";
            return;
        case u'\n':
            out += "\\n";
            return;
        case u'\r':
            out += "\\r";
            return;
        case u'\t':
            out += "\\t";
            return;
        default:
            break;
    }
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        out.push_back(kHex[(unit >> shift) & 0xF]);
    }
}

bool needsEscape(char16_t unit) {
    return unit < 0x20 || unit == u'"' || unit == u'\\' || unit == 0x2028 || unit == 0x2029;
}
}  // namespace

void appendJsonString(std::string& out, std::u16string_view text) {
    out.push_back('"');
    std::size_t i = 0;
    while (i < text.size()) {
        const char16_t unit = text[i];
        if (needsEscape(unit)) {
            appendEscapedUnit(out, unit);
            ++i;
        } else if (isHighSurrogate(unit) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
            out += toUtf8(text.substr(i, 2));
            i += 2;
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            out += toUtf8(std::u16string_view(&kReplacement, 1));
            ++i;
        } else {
            out += toUtf8(text.substr(i, 1));
            ++i;
        }
    }
    out.push_back('"');
}

JsonLine::JsonLine() : m_szBody("{") {}

void JsonLine::_key(std::string_view key) {
    if (m_szBody.size() > 1) {
        m_szBody.push_back(',');
    }
    appendJsonString(m_szBody, fromUtf8(key));
    m_szBody.push_back(':');
}

JsonLine& JsonLine::add(std::string_view key, std::u16string_view text) {
    _key(key);
    appendJsonString(m_szBody, text);
    return *this;
}

JsonLine& JsonLine::addUtf8(std::string_view key, std::string_view text) {
    return add(key, fromUtf8(text));
}

JsonLine& JsonLine::add(std::string_view key, long long number) {
    _key(key);
    m_szBody += std::to_string(number);
    return *this;
}

JsonLine& JsonLine::_addFlag(std::string_view key, bool flag) {
    _key(key);
    m_szBody += flag ? "true" : "false";
    return *this;
}

JsonLine& JsonLine::add(std::string_view key, const std::vector<std::u16string>& texts) {
    _key(key);
    m_szBody.push_back('[');
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i != 0) {
            m_szBody.push_back(',');
        }
        appendJsonString(m_szBody, texts[i]);
    }
    m_szBody.push_back(']');
    return *this;
}

std::string JsonLine::line() const {
    return m_szBody + "}\n";
}

Transcript::Transcript(std::string utf8Path) : m_szPath(std::move(utf8Path)) {}

Transcript::~Transcript() = default;

bool Transcript::write(const std::string& line) {
    if (!enabled()) {
        return true;
    }
    std::string failure;
    const bool whole = appendWhole(fromUtf8(m_szPath), line, failure);
    if (!whole && !m_bWarned.exchange(true)) {
        std::fprintf(stderr, "VELQ_UI_TRANSCRIPT: cannot append to %s: %s\n", m_szPath.c_str(),
                     failure.c_str());
    }
    return whole;
}

}  // namespace plat::ui
