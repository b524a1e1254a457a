// Message boxes with texts and captions from the string table (src/ui/strings/).
//
// Both forms show one box through plat::MessageBoxW, owned by `hWnd` (may be null), with the caption of
// `captionId` from `hInstance` (null: the program) and `flags` as MessageBoxW takes them. They return the
// button pressed (IDOK, IDCANCEL, IDYES, IDNO), or 0, or a negative code:
//   - a box that MessageBoxW refuses with ERROR_ACCESS_DENIED (an owner this process may not use) is
//     shown once more without owner, after the error-level log line
//     "Try one more time because of ACCESS_DENIED error.";
//   - a box that fails gives the last error as a code: 0 and values that are negative as a signed number
//     stay as they are, anything else becomes HRESULT_FROM_WIN32 of it. The code is logged at error level
//     as "Error Code: 0x%x".
// A box blocks only the calling thread.
#pragma once

#include "plat/types.h"

// Shows `text`. A null `text` shows nothing, logs "Error Code: 0x0" and returns 0.
int kelMsgBox(const plat::WCHAR* text, plat::UINT captionId, plat::UINT flags, plat::HWND hWnd,
              plat::HINSTANCE hInstance);

// Shows the text of `textId`, loaded with ResourceHelper::getStrFromRes (an id without a text shows an
// empty text).
int kelMsgBox(plat::UINT textId, plat::UINT captionId, plat::UINT flags, plat::HWND hWnd,
              plat::HINSTANCE hInstance);
