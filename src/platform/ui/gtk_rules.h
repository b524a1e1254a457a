// What the desktop UI (VELQ_UI=gtk) decides without drawing: the buttons, default and Escape answer of a
// message box, the icon of its flags, paths shortened in the middle to fit a width, the time-left text,
// the checks of the password dialogs, and the texts of the string table it uses. Kept apart from the GTK
// code so that every rule can be tested without a display.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "plat/ui.h"

namespace plat::ui {

// Texts of the string table that only the desktop windows use (src/ui/strings, all languages).
inline constexpr UINT kTextOk = 1067;
inline constexpr UINT kTextCopy = 1068;
inline constexpr UINT kTextErrorListTitle = 1069;
inline constexpr UINT kTextTotalErrors = 1046;
inline constexpr UINT kTextYes = 1110;
inline constexpr UINT kTextNo = 1111;
inline constexpr UINT kTextCancel = 1112;
inline constexpr UINT kTextTimeLeft = 1113;  // "Time left: %1"
inline constexpr UINT kTextExportTitle = 1114;
inline constexpr UINT kTextImportTitle = 1115;
inline constexpr UINT kTextKeyFile = 1116;
inline constexpr UINT kTextPassword = 1117;
inline constexpr UINT kTextConfirmPassword = 1118;
inline constexpr UINT kTextBrowse = 1119;
inline constexpr UINT kTextPasswordsDiffer = 1120;
inline constexpr UINT kTextPasswordRange = 1121;    // "... %1 to %2 characters."
inline constexpr UINT kTextPasswordAtLeast = 1122;  // "... at least %1 characters."
inline constexpr UINT kTextChooseKeyFile = 1123;
inline constexpr UINT kTextSearchTitle = 1124;
inline constexpr UINT kTextOpenFolder = 1125;
inline constexpr UINT kTextDecrypt = 1126;
inline constexpr UINT kTextClose = 1127;
inline constexpr UINT kTextNothingFound = 1128;

// The text of `id` in the calling thread's language; empty when the table has none.
std::u16string tableText(UINT id);
// `pattern` with "%1", "%2" ... replaced by `arguments` in order; other text stays as it is.
std::u16string fillText(std::u16string_view pattern, const std::vector<std::u16string>& arguments);

// One button of a message box: the answer it gives and the text id of its label.
struct BoxButton {
    int answer;
    UINT textId;
};
// The buttons of `flags` from left to right as on Windows (OK; OK, Cancel; Yes, No, Cancel; Yes, No);
// empty for a set we do not show.
std::vector<BoxButton> boxButtons(UINT flags);
// The answer of Escape and of the close box: Cancel where the box has one, else No, else OK.
int escapeAnswer(UINT flags);

enum class BoxIcon { kNone, kError, kQuestion, kWarning, kInformation };
BoxIcon boxIcon(UINT flags);

// `text` shortened by leaving out its middle for "...", as much as needed for `measure` of the result to
// be at most `maxWidth` (the first and last parts kept as equal as the units allow, the last part,
// which holds the file's name, getting the odd one). A text that fits
// stays whole; when even "..." does not fit, "..." is the result.
std::u16string compactMiddle(std::u16string_view text, int maxWidth,
                             const std::function<int(std::u16string_view)>& measure);

// The time left as "m:ss", or "h:mm:ss" from an hour on.
std::u16string clockText(DWORD seconds);

// What the password dialog says about the person's entries, or 0 when they may be taken: the path must
// not be empty; the password must fit the request's limits; for an export the two entries must match.
UINT keyFileProblem(const KeyFileRequest& request, std::u16string_view path, std::u16string_view password,
                    std::u16string_view confirmation);
// The full text of a problem that keyFileProblem gave (the limits filled in).
std::u16string keyFileProblemText(const KeyFileRequest& request, UINT problem);

// The folders that hold `paths` (the part before the last '/'), each once, in the order first met.
std::vector<std::u16string> foldersOf(const std::vector<std::u16string>& paths);

}  // namespace plat::ui
