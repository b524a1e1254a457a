// What every backend's message box agrees on: which button sets exist, which answer fits which set,
// which answer a person gives who confirms nothing, and the icon's word for text backends.
#pragma once

#include "plat/ui.h"

namespace plat::ui {

// The button sets we show: OK, OK/Cancel, Yes/No/Cancel, Yes/No. The others of the platform (abort/retry
// sets) are used by nothing in the program; a box asking for them fails with ERROR_INVALID_PARAMETER
// rather than showing buttons no script answer could press.
inline bool isSupportedButtonSet(UINT flags) {
    const UINT set = flags & MB_TYPEMASK;
    return set == MB_OK || set == MB_OKCANCEL || set == MB_YESNOCANCEL || set == MB_YESNO;
}

// True when `answer` is one of the box's buttons.
inline bool answerFits(UINT flags, int answer) {
    switch (flags & MB_TYPEMASK) {
        case MB_OK:
            return answer == IDOK;
        case MB_OKCANCEL:
            return answer == IDOK || answer == IDCANCEL;
        case MB_YESNOCANCEL:
            return answer == IDYES || answer == IDNO || answer == IDCANCEL;
        case MB_YESNO:
            return answer == IDYES || answer == IDNO;
        default:
            return false;
    }
}

// The answer of a person who confirms nothing: No for Yes/No, Cancel where there is a Cancel (closing
// such a box gives Cancel on the desktop too), OK for a box with only OK.
inline int noConfirmationAnswer(UINT flags) {
    switch (flags & MB_TYPEMASK) {
        case MB_YESNO:
            return IDNO;
        case MB_OKCANCEL:
        case MB_YESNOCANCEL:
            return IDCANCEL;
        default:
            return IDOK;
    }
}

// The first button, the one that Enter presses.
inline int firstButton(UINT flags) {
    const UINT set = flags & MB_TYPEMASK;
    return set == MB_YESNO || set == MB_YESNOCANCEL ? IDYES : IDOK;
}

// The icon as a word for text backends ("[Error]"), or empty without an icon.
inline const char* iconWord(UINT flags) {
    switch (flags & MB_ICONMASK) {
        case MB_ICONERROR:
            return "[Error]";
        case MB_ICONQUESTION:
            return "[Question]";
        case MB_ICONWARNING:
            return "[Warning]";
        case MB_ICONINFORMATION:
            return "[Information]";
        default:
            return "";
    }
}

}  // namespace plat::ui
