// Loading texts of the string table (src/ui/strings/) for the calling thread's language.
//
// Both loaders give the text of an id, or an empty string when the id has no text; neither fails in
// another way. They keep no state and may run on any thread.
#pragma once

#include <string>

#include "plat/types.h"

// The program's module handle, stored by wWinMain before any text is loaded. Null names the program
// itself, which on POSIX is the only module with texts, so null is also the right value before then.
extern plat::HINSTANCE g_hInstance;

class ResourceHelper {
public:
    // The whole text of `id` from `hInstance` (null: the program), however long: a text that fills the
    // buffer is loaded again into one of twice the size. An id without a text gives an empty string and
    // the error-level log line "ASSERT( nRet > 0 )"; so does a failed allocation.
    static std::u16string getStrFromRes(plat::UINT id, plat::HINSTANCE hInstance);
};

// The text of `id` from g_hInstance, cut at 1,023 characters (its buffer holds 1,024 and never grows). An
// id without a text gives an empty string, without a log line.
std::u16string loadResString(plat::UINT id);
