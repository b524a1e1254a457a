// The desktop UI's rules that need no display: which backend is chosen with a desktop, the message
// boxes' buttons, Escape answers and icons, paths shortened in the middle, the time left, the password
// dialogs' checks and the search window's folders.
#include <gtest/gtest.h>

#include "plat/language.h"
#include "ui/backend_choice.h"
#include "ui/gtk_rules.h"

using namespace plat;
using namespace plat::ui;

namespace {

// A width of one per unit, as a fixed-width font would measure.
int unitsWide(std::u16string_view text) {
    return static_cast<int>(text.size());
}

std::vector<int> answersOf(UINT flags) {
    std::vector<int> answers;
    for (const BoxButton& button : boxButtons(flags)) {
        answers.push_back(button.answer);
    }
    return answers;
}

}  // namespace

TEST(GtkChoice, DesktopIsTheDefaultOnlyWithADisplayAndTheBuild) {
    std::string warning;
    EXPECT_EQ(chooseBackendName(nullptr, true, true, true, true, warning), "gtk");
    EXPECT_EQ(chooseBackendName("", false, false, true, true, warning), "gtk");
    EXPECT_EQ(chooseBackendName(nullptr, true, true, false, true, warning), "tty");
    EXPECT_EQ(chooseBackendName(nullptr, false, true, true, false, warning), "script");
    EXPECT_TRUE(warning.empty());
}

TEST(GtkChoice, AskedForByNameEvenWithoutADisplayOrInstead) {
    std::string warning;
    // Asked for: the desktop is tried, and its own failure to open the display falls back later.
    EXPECT_EQ(chooseBackendName("gtk", false, false, false, true, warning), "gtk");
    EXPECT_EQ(chooseBackendName("script", true, true, true, true, warning), "script");
    EXPECT_EQ(chooseBackendName("tty", false, false, true, true, warning), "tty");
    EXPECT_TRUE(warning.empty());
    EXPECT_EQ(chooseBackendName("gtk", true, true, true, false, warning), "tty");
    EXPECT_EQ(warning, "VELQ_UI=gtk is not available in this build; using tty.");
}

TEST(GtkChoice, DisplayNamedBySetAndNonEmptyVariables) {
    EXPECT_TRUE(displayNamed(":0", nullptr));
    EXPECT_TRUE(displayNamed(nullptr, "wayland-0"));
    EXPECT_TRUE(displayNamed("", "wayland-0"));
    EXPECT_FALSE(displayNamed("", ""));
    EXPECT_FALSE(displayNamed(nullptr, nullptr));
}

TEST(GtkMessageBoxRules, ButtonsLeftToRightAsOnWindows) {
    EXPECT_EQ(answersOf(MB_OK), (std::vector<int>{IDOK}));
    EXPECT_EQ(answersOf(MB_OKCANCEL | MB_ICONQUESTION | MB_TOPMOST), (std::vector<int>{IDOK, IDCANCEL}));
    EXPECT_EQ(answersOf(MB_YESNOCANCEL), (std::vector<int>{IDYES, IDNO, IDCANCEL}));
    EXPECT_EQ(answersOf(MB_YESNO | MB_ICONQUESTION), (std::vector<int>{IDYES, IDNO}));
    EXPECT_TRUE(boxButtons(0x2).empty());  // abort/retry/ignore is not shown
    EXPECT_EQ(boxButtons(MB_YESNO)[1].textId, kTextNo);
    EXPECT_EQ(boxButtons(MB_OK)[0].textId, kTextOk);
}

TEST(GtkMessageBoxRules, EscapeGivesCancelThenNoThenOk) {
    EXPECT_EQ(escapeAnswer(MB_OK | MB_ICONERROR), IDOK);
    EXPECT_EQ(escapeAnswer(0x40021), IDCANCEL);  // the replace question
    EXPECT_EQ(escapeAnswer(MB_YESNOCANCEL), IDCANCEL);
    EXPECT_EQ(escapeAnswer(0x40024), IDNO);  // the invalid-key question
    EXPECT_EQ(escapeAnswer(36), IDNO);
}

TEST(GtkMessageBoxRules, IconOfEachFlagInUse) {
    EXPECT_EQ(boxIcon(16), BoxIcon::kError);
    EXPECT_EQ(boxIcon(36), BoxIcon::kQuestion);
    EXPECT_EQ(boxIcon(48), BoxIcon::kWarning);
    EXPECT_EQ(boxIcon(64), BoxIcon::kInformation);
    EXPECT_EQ(boxIcon(0x40021), BoxIcon::kQuestion);
    EXPECT_EQ(boxIcon(MB_OK), BoxIcon::kNone);
}

TEST(GtkCompactMiddle, KeepsHeadAndTailAroundTheDots) {
    const std::u16string path = u"/home/person/Documents/projects/2026/report.txt";
    EXPECT_EQ(compactMiddle(path, 100, unitsWide), path);
    EXPECT_EQ(compactMiddle(path, static_cast<int>(path.size()), unitsWide), path);
    const std::u16string shortened = compactMiddle(path, 21, unitsWide);
    EXPECT_EQ(shortened, u"/home/per...eport.txt");
    EXPECT_EQ(compactMiddle(path, 20, unitsWide), u"/home/pe...eport.txt");  // the end keeps the odd unit
}

TEST(GtkCompactMiddle, TinyWidthsAndWideCharacters) {
    EXPECT_EQ(compactMiddle(u"abcdef", 3, unitsWide), u"...");
    EXPECT_EQ(compactMiddle(u"abcdef", 1, unitsWide), u"...");
    // A measure where 'W' is three times as wide: the result still fits the width.
    const auto wide = [](std::u16string_view text) {
        int width = 0;
        for (char16_t unit : text) {
            width += unit == u'W' ? 3 : 1;
        }
        return width;
    };
    const std::u16string shortened = compactMiddle(u"WWWWabcdefWWWW", 12, wide);
    EXPECT_LE(wide(shortened), 12);
    EXPECT_EQ(shortened, u"W...WW");
}

TEST(GtkProgressRules, ClockText) {
    EXPECT_EQ(clockText(0), u"0:00");
    EXPECT_EQ(clockText(42), u"0:42");
    EXPECT_EQ(clockText(3599), u"59:59");
    EXPECT_EQ(clockText(3600 + 61), u"1:01:01");
}

TEST(GtkTexts, FillTextReplacesNumberedMarkersOnly) {
    EXPECT_EQ(fillText(u"from %1 to %2, %1 again", {u"3", u"50"}), u"from 3 to 50, 3 again");
    EXPECT_EQ(fillText(u"100% sure %3 %", {u"x"}), u"100% sure %3 %");
}

TEST(GtkTexts, NewTextsComeInTheThreadsLanguage) {
    SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, u"de-DE\0", nullptr);
    EXPECT_EQ(tableText(kTextYes), u"Ja");
    EXPECT_EQ(tableText(kTextTimeLeft), u"Verbleibende Zeit: %1");
    SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, nullptr, nullptr);
    EXPECT_EQ(tableText(kTextCancel), u"Cancel");
    EXPECT_EQ(tableText(kTextNothingFound), u"No encrypted files were found.");
}

TEST(GtkKeyFileRules, ExportChecksPathLimitsThenTheMatch) {
    KeyFileRequest request;
    request.bExport = true;
    request.nMinPassword = 1;
    request.nMaxPassword = 50;
    EXPECT_EQ(keyFileProblem(request, u"", u"secret", u"secret"), kTextChooseKeyFile);
    EXPECT_EQ(keyFileProblem(request, u"/k.key", u"", u""), kTextPasswordRange);
    EXPECT_EQ(keyFileProblem(request, u"/k.key", std::u16string(51, u'x'), std::u16string(51, u'x')),
              kTextPasswordRange);
    EXPECT_EQ(keyFileProblem(request, u"/k.key", u"secret", u"secreT"), kTextPasswordsDiffer);
    EXPECT_EQ(keyFileProblem(request, u"/k.key", u"secret", u"secret"), 0U);
    EXPECT_EQ(keyFileProblemText(request, kTextPasswordRange), u"The password must have 1 to 50 characters.");
    EXPECT_EQ(keyFileProblemText(request, kTextPasswordsDiffer), u"The passwords do not match.");
}

TEST(GtkKeyFileRules, ImportHasNoConfirmationAndOpenLimits) {
    KeyFileRequest request;
    request.nMinPassword = 4;
    EXPECT_EQ(keyFileProblem(request, u"/b.key", u"long enough", u""), 0U);
    EXPECT_EQ(keyFileProblem(request, u"/b.key", u"abc", u""), kTextPasswordAtLeast);
    EXPECT_EQ(keyFileProblemText(request, kTextPasswordAtLeast),
              u"The password must have at least 4 characters.");
}

TEST(GtkSearchRules, FoldersOfTheChosenFilesEachOnce) {
    EXPECT_EQ(foldersOf({u"/a/b/x.lqvz", u"/a/y.lqvz", u"/a/b/z.lqvz", u"/top.lqvz", u"plain.lqvz"}),
              (std::vector<std::u16string>{u"/a/b", u"/a", u"/", u"."}));
    EXPECT_TRUE(foldersOf({}).empty());
}
