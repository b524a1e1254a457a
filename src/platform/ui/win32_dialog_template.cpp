#include "ui/win32_dialog_template.h"

namespace plat::ui {

namespace {
constexpr DWORD kSetFont = 0x40;       // DS_SETFONT
constexpr std::size_t kCountWord = 4;  // cdit: after the style and the extended style
}  // namespace

DialogTemplate::DialogTemplate(DWORD style, std::u16string_view title, short width, short height,
                               WORD pointSize, std::u16string_view fontName) {
    _dword(style | kSetFont);
    _dword(0);             // extended style
    m_words.push_back(0);  // number of items
    for (const short value : {short{0}, short{0}, width, height}) {
        m_words.push_back(static_cast<WORD>(value));
    }
    m_words.push_back(0);  // no menu
    m_words.push_back(0);  // the dialog's own class
    _text(title);
    m_words.push_back(pointSize);
    _text(fontName);
}

void DialogTemplate::add(WORD classAtom, std::u16string_view text, DWORD style, int id, short x, short y,
                         short width, short height) {
    _item(style, id, x, y, width, height);
    m_words.push_back(0xFFFF);
    m_words.push_back(classAtom);
    _text(text);
    m_words.push_back(0);  // no creation data
}

void DialogTemplate::add(std::u16string_view className, std::u16string_view text, DWORD style, int id,
                         short x, short y, short width, short height) {
    _item(style, id, x, y, width, height);
    _text(className);
    _text(text);
    m_words.push_back(0);
}

void DialogTemplate::_item(DWORD style, int id, short x, short y, short width, short height) {
    // Every item starts on a 4-byte boundary of the template.
    if (m_words.size() % 2 != 0) {
        m_words.push_back(0);
    }
    ++m_words[kCountWord];
    _dword(style);
    _dword(0);  // extended style
    for (const short value : {x, y, width, height}) {
        m_words.push_back(static_cast<WORD>(value));
    }
    m_words.push_back(static_cast<WORD>(id));
}

void DialogTemplate::_text(std::u16string_view text) {
    m_words.insert(m_words.end(), text.begin(), text.end());
    m_words.push_back(0);
}

void DialogTemplate::_dword(DWORD value) {
    m_words.push_back(static_cast<WORD>(value & 0xFFFF));
    m_words.push_back(static_cast<WORD>(value >> 16));
}

}  // namespace plat::ui
