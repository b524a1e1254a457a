#include "ui/gtk_rules.h"

#include <cstdio>

#include "plat/resources.h"
#include "ui/messagebox_rules.h"
#include "ui/transfer_kinds.h"

namespace plat::ui {

std::u16string tableText(UINT id) {
    LPCWSTR text = nullptr;
    const int length = LoadStringW(nullptr, id, reinterpret_cast<LPWSTR>(&text), 0);
    if (length <= 0 || text == nullptr) {
        return {};
    }
    return std::u16string(text, static_cast<std::size_t>(length));
}

std::u16string fillText(std::u16string_view pattern, const std::vector<std::u16string>& arguments) {
    std::u16string out;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const bool isMarker =
            pattern[i] == u'%' && i + 1 < pattern.size() && pattern[i + 1] >= u'1' && pattern[i + 1] <= u'9';
        const std::size_t index = isMarker ? static_cast<std::size_t>(pattern[i + 1] - u'1') : 0;
        if (isMarker && index < arguments.size()) {
            out += arguments[index];
            ++i;
        } else {
            out += pattern[i];
        }
    }
    return out;
}

std::vector<BoxButton> boxButtons(UINT flags) {
    switch (flags & MB_TYPEMASK) {
        case MB_OK:
            return {{IDOK, kTextOk}};
        case MB_OKCANCEL:
            return {{IDOK, kTextOk}, {IDCANCEL, kTextCancel}};
        case MB_YESNOCANCEL:
            return {{IDYES, kTextYes}, {IDNO, kTextNo}, {IDCANCEL, kTextCancel}};
        case MB_YESNO:
            return {{IDYES, kTextYes}, {IDNO, kTextNo}};
        default:
            return {};
    }
}

int escapeAnswer(UINT flags) {
    // The same answer as a person who confirms nothing: Cancel where there is one, No for Yes/No.
    return noConfirmationAnswer(flags);
}

BoxIcon boxIcon(UINT flags) {
    switch (flags & MB_ICONMASK) {
        case MB_ICONERROR:
            return BoxIcon::kError;
        case MB_ICONQUESTION:
            return BoxIcon::kQuestion;
        case MB_ICONWARNING:
            return BoxIcon::kWarning;
        case MB_ICONINFORMATION:
            return BoxIcon::kInformation;
        default:
            return BoxIcon::kNone;
    }
}

namespace {
std::u16string withoutMiddle(std::u16string_view text, std::size_t kept) {
    const std::size_t head = kept / 2;
    const std::size_t tail = kept - head;
    return std::u16string(text.substr(0, head)) + u"..." + std::u16string(text.substr(text.size() - tail));
}
}  // namespace

std::u16string compactMiddle(std::u16string_view text, int maxWidth,
                             const std::function<int(std::u16string_view)>& measure) {
    if (measure(text) <= maxWidth) {
        return std::u16string(text);
    }
    // The most units kept that still fit; widths grow with the units kept, so a binary search finds it.
    std::size_t low = 0;
    std::size_t high = text.size() - 1;
    while (low < high) {
        const std::size_t middle = (low + high + 1) / 2;
        if (measure(withoutMiddle(text, middle)) <= maxWidth) {
            low = middle;
        } else {
            high = middle - 1;
        }
    }
    return withoutMiddle(text, low);
}

std::u16string clockText(DWORD seconds) {
    char text[32];
    if (seconds >= 3600) {
        std::snprintf(text, sizeof(text), "%u:%02u:%02u", seconds / 3600, seconds / 60 % 60, seconds % 60);
    } else {
        std::snprintf(text, sizeof(text), "%u:%02u", seconds / 60, seconds % 60);
    }
    return std::u16string(text, text + std::char_traits<char>::length(text));
}

UINT keyFileProblem(const KeyFileRequest& request, std::u16string_view path, std::u16string_view password,
                    std::u16string_view confirmation) {
    if (path.empty()) {
        return kTextChooseKeyFile;
    }
    if (!passwordFits(request, password)) {
        return request.nMaxPassword == 0 ? kTextPasswordAtLeast : kTextPasswordRange;
    }
    if (request.bExport && password != confirmation) {
        return kTextPasswordsDiffer;
    }
    return 0;
}

std::u16string keyFileProblemText(const KeyFileRequest& request, UINT problem) {
    const auto number = [](std::size_t value) {
        const std::string digits = std::to_string(value);
        return std::u16string(digits.begin(), digits.end());
    };
    return fillText(tableText(problem), {number(request.nMinPassword), number(request.nMaxPassword)});
}

std::vector<std::u16string> foldersOf(const std::vector<std::u16string>& paths) {
    std::vector<std::u16string> folders;
    for (const std::u16string& path : paths) {
        const std::size_t slash = path.find_last_of(u'/');
        std::u16string folder = slash == std::u16string::npos ? u"." : path.substr(0, slash == 0 ? 1 : slash);
        bool known = false;
        for (const std::u16string& seen : folders) {
            known = known || seen == folder;
        }
        if (!known) {
            folders.push_back(std::move(folder));
        }
    }
    return folders;
}

}  // namespace plat::ui
