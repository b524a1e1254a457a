// Dialog templates made in memory (a DLGTEMPLATE and its items), for the dialogs of the native UI that
// are not in the program's resources.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "plat/types.h"

namespace plat::ui {

// The system's predefined control classes by their atoms.
inline constexpr WORD kButtonClass = 0x0080;
inline constexpr WORD kEditClass = 0x0081;
inline constexpr WORD kStaticClass = 0x0082;

class DialogTemplate {
public:
    // A dialog of `style` (DS_SETFONT is added: the font is `fontName` at `pointSize`), placed at 0, 0 with
    // the size `width` by `height` in dialog units.
    DialogTemplate(DWORD style, std::u16string_view title, short width, short height, WORD pointSize = 9,
                   std::u16string_view fontName = u"Segoe UI");
    // A control of a predefined class (`classAtom`, above) or of a class by name.
    void add(WORD classAtom, std::u16string_view text, DWORD style, int id, short x, short y, short width,
             short height);
    void add(std::u16string_view className, std::u16string_view text, DWORD style, int id, short x, short y,
             short width, short height);
    // The template for CreateDialogIndirectParamW and DialogBoxIndirectParamW; valid until the next add.
    const void* data() const { return m_words.data(); }

private:
    void _item(DWORD style, int id, short x, short y, short width, short height);
    void _text(std::u16string_view text);
    void _dword(DWORD value);

    std::vector<WORD> m_words;
};

}  // namespace plat::ui
