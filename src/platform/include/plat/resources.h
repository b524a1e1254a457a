// The program's string resources: one table of numbered texts in several languages, generated at build
// time from src/ui/strings/<langid>.txt into the library velq_strings (which velq_platform links).
//
// Language matching. A text is looked up for the calling thread's preferred UI languages in order (see
// plat/language.h); for each, the table language is the first of:
//   1. the language itself, when the table holds it (1046 Portuguese (Brazil), 2052, 3076, 1031 ...);
//   2. Chinese: zh-CN, zh-SG and neutral zh give 2052; zh-TW, zh-HK, zh-MO and zh-Hant give 3076;
//   3. its neutral language, when the table holds that (de-AT gives 7, pt-PT gives 22, nb-NO gives 20).
// A thread without a preferred language, or whose languages all miss, gets English (United States), 1033.
#pragma once

#include <span>
#include <string_view>

#include "plat/types.h"

namespace plat {

struct StringTableEntry {
    LANGID wLanguage;
    UINT uId;
    std::u16string_view text;  // never empty; the data is NUL-terminated
};

// Every text of every language, sorted by language, then id. Defined by the generated source of
// velq_strings; the same ids exist in every language (the generator refuses anything else).
std::span<const StringTableEntry> stringTable();

// Makes the loaders read `table` (sorted like stringTable()) in place of the generated one; an empty span
// goes back to the generated table. For tests that need texts of particular lengths. The caller keeps
// the entries alive while they are in use.
void useStringTable(std::span<const StringTableEntry> table);

// The text of `id` in table language `language`, exactly (no matching); null when there is none.
const StringTableEntry* findTableText(LANGID language, UINT id);

// The table language that the matching rule above gives for `wanted`, or 0 when it gives none.
LANGID tableLanguageFor(LANGID wanted);

// The table language that the calling thread's texts come from, by the rule above.
LANGID threadTableLanguage();

// Loads the text of `uID` for the calling thread's language. On POSIX `hInstance` is ignored: the program
// is the only module with texts, and null names it. On Windows the texts are the string resources of
// `hInstance` (null: the program), in the table language above; a table set by useStringTable stands in.
//   - `cchBufferMax` > 0: copies at most cchBufferMax - 1 units and a NUL into `lpBuffer` and returns
//     the units copied (a longer text is cut).
//   - `cchBufferMax` 0: stores a read-only pointer to the whole text in *reinterpret_cast<LPCWSTR*>
//     (lpBuffer) and returns the text's length (on Windows a pointer into the resource, without a NUL).
// Returns 0 with ERROR_RESOURCE_NAME_NOT_FOUND when `uID` has no text (the buffer then holds an empty
// text, or the pointer is null); 0 with ERROR_INVALID_PARAMETER for a null buffer or a negative capacity.
int LoadStringW(HINSTANCE hInstance, UINT uID, LPWSTR lpBuffer, int cchBufferMax);

}  // namespace plat
