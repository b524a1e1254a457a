// The string table's loader pieces that both platforms' LoadStringW share (see plat/resources.h). No
// system call in them: POSIX reads every text from the generated table, Windows from the program's
// resources unless a test has put a table of its own in place.
#pragma once

#include <cstddef>
#include <string_view>

#include "plat/types.h"

namespace plat {

// True while useStringTable() has a table standing in for the program's own texts.
bool stringTableReplaced();

// LoadStringW over the table in use (the replacement or the generated one) for the calling thread's
// language, with LoadStringW's whole contract, its checks of the arguments included.
int loadStringFromTable(UINT uID, LPWSTR lpBuffer, int cchBufferMax);

// The end of LoadStringW once the text is known: `text` null when `uID` has none, else its units (not
// empty, NUL-terminated). Fills the buffer or stores the pointer (capacity 0) and sets the last error as
// LoadStringW promises. The arguments have been checked.
int deliverLoadedString(const WCHAR* text, std::size_t length, LPWSTR lpBuffer, int cchBufferMax);

}  // namespace plat
