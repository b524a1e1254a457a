// velqmsg: shows one of the program's messages the way the program shows it -- text and caption from the
// string table in the user's language, through the chosen UI backend -- and prints the answer. Useful to
// check a translation, a UI backend, or the debug log set-up, without running a whole request.
//
//   velqmsg TEXT-ID [CAPTION-ID [FLAGS]]     e.g.  velqmsg 1064 1017 36
//
// Exit status: 0 when the box was shown (the answer is printed as OK, Cancel, Yes or No), 2 for bad
// arguments, 1 when the box could not be shown.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "diag/DbgLog.h"
#include "plat/ui.h"
#include "ui/KelMsgBox.h"
#include "ui/Language.h"

namespace {

bool parseNumber(const char* text, unsigned long& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtoul(text, &end, 0);
    return errno == 0 && end != text && *end == '\0' && value <= 0xFFFFFFFFul;
}

const char* answerName(int answer) {
    switch (answer) {
        case plat::IDOK:
            return "OK";
        case plat::IDCANCEL:
            return "Cancel";
        case plat::IDYES:
            return "Yes";
        case plat::IDNO:
            return "No";
        default:
            return nullptr;
    }
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long textId = 0;
    unsigned long captionId = 1017;  // "Information"
    unsigned long flags = plat::MB_OK | plat::MB_ICONINFORMATION;
    if (argc < 2 || argc > 4 || !parseNumber(argv[1], textId) || (argc > 2 && !parseNumber(argv[2], captionId)) ||
        (argc > 3 && !parseNumber(argv[3], flags))) {
        std::fprintf(stderr, "usage: velqmsg TEXT-ID [CAPTION-ID [FLAGS]]\n");
        return 2;
    }
    initThreadLanguage();
    VELQ_LOG(DBG_LEVEL_INF, u" (velqmsg)", u"Showing message %u with caption %u, flags 0x%x.",
             static_cast<unsigned>(textId), static_cast<unsigned>(captionId), static_cast<unsigned>(flags));
    const int answer = kelMsgBox(static_cast<plat::UINT>(textId), static_cast<plat::UINT>(captionId),
                                 static_cast<plat::UINT>(flags), nullptr, nullptr);
    const char* name = answerName(answer);
    if (name == nullptr) {
        std::fprintf(stderr, "velqmsg: the message could not be shown (0x%x)\n", static_cast<unsigned>(answer));
        return 1;
    }
    std::printf("%s\n", name);
    return 0;
}
