// The password dialogs of the key backup (export) and recovery (import): a dialog made in memory, with
// the system's file choosers behind its Browse button. Its texts and the rules of its entries are the
// desktop's password dialog's (gtk_rules.h, which has no GTK in it).
#include <string>

#include "plat/errors.h"
#include "ui/gtk_rules.h"
#include "ui/win32_dialog_template.h"
#include "ui/win32_kinds.h"
#include "win32/wide.h"
// After wide.h: the common dialogs' and the shell's light headers need <windows.h> first.
#include <commdlg.h>
#include <shlwapi.h>

namespace plat::ui {

namespace {

using win32::units;
using win32::wide;

enum ControlId : int {
    kPathId = 201,
    kBrowseId = 202,
    kPasswordId = 203,
    kConfirmationId = 204,
    kProblemId = 205,
};

// One showing of the dialog: what was asked and where the answer goes.
struct KeyFileQuestion {
    const KeyFileRequest* request;
    KeyFileAnswer* answer;
};

void wipe(std::u16string& secret) {
    volatile char16_t* unit = secret.data();
    for (std::size_t i = 0; i < secret.size(); ++i) {
        unit[i] = 0;
    }
    secret.clear();
}

std::u16string itemText(::HWND dialog, int id) {
    const ::HWND item = ::GetDlgItem(dialog, id);
    if (item == nullptr) {
        return {};
    }
    std::u16string text(static_cast<std::size_t>(::GetWindowTextLengthW(item)) + 1, u'\0');
    text.resize(
        static_cast<std::size_t>(::GetWindowTextW(item, wide(text.data()), static_cast<int>(text.size()))));
    return text;
}

// Overwrites an edit's text before it goes, so that a password does not linger in the control's memory.
void wipeItem(::HWND dialog, int id) {
    const std::u16string blanks(static_cast<std::size_t>(::GetWindowTextLengthW(::GetDlgItem(dialog, id))),
                                u' ');
    ::SetDlgItemTextW(dialog, id, wide(blanks.c_str()));
    ::SetDlgItemTextW(dialog, id, L"");
}

// A chosen file name without an extension gets the request's.
std::u16string withExtension(std::u16string path, const std::u16string& extension) {
    if (!path.empty() && !extension.empty() && *::PathFindExtensionW(wide(path.c_str())) == L'\0') {
        path += u'.';
        path += extension;
    }
    return path;
}

// The system's chooser: save for an export (with the question before replacing a file), open for an
// import. Its answer replaces the path in the dialog; a cancelled chooser leaves it.
void browse(::HWND dialog, const KeyFileRequest& request) {
    std::u16string pattern = u"*." + request.defaultExtension;
    // The filter: the kind's name, NUL, its pattern, NUL NUL.
    std::u16string filter = request.typeName.empty() ? pattern : request.typeName;
    filter += u'\0';
    filter += pattern;
    filter += u'\0';
    std::u16string file = itemText(dialog, kPathId);
    file.resize(MAX_PATH * 4, u'\0');
    ::OPENFILENAMEW chooser{};
    chooser.lStructSize = sizeof(chooser);
    chooser.hwndOwner = dialog;
    chooser.lpstrFilter = request.defaultExtension.empty() ? nullptr : wide(filter.c_str());
    chooser.lpstrFile = wide(file.data());
    chooser.nMaxFile = static_cast<::DWORD>(file.size());
    chooser.lpstrDefExt = request.defaultExtension.empty() ? nullptr : wide(request.defaultExtension.c_str());
    const std::u16string title = tableText(kTextKeyFile);
    chooser.lpstrTitle = wide(title.c_str());
    chooser.Flags = OFN_PATHMUSTEXIST | OFN_NOCHANGEDIR | OFN_HIDEREADONLY |
                    (request.bExport ? OFN_OVERWRITEPROMPT : OFN_FILEMUSTEXIST);
    const ::BOOL chosen = request.bExport ? ::GetSaveFileNameW(&chooser) : ::GetOpenFileNameW(&chooser);
    if (chosen) {
        ::SetDlgItemTextW(dialog, kPathId, chooser.lpstrFile);
    }
}

// OK: the entries are taken when they fit, else the problem line says why not and the dialog stays.
void confirm(::HWND dialog, const KeyFileQuestion& question) {
    const KeyFileRequest& request = *question.request;
    const std::u16string path = withExtension(itemText(dialog, kPathId), request.defaultExtension);
    std::u16string password = itemText(dialog, kPasswordId);
    std::u16string confirmation = request.bExport ? itemText(dialog, kConfirmationId) : std::u16string();
    const UINT problem = keyFileProblem(request, path, password, confirmation);
    wipe(confirmation);
    if (problem != 0) {
        wipe(password);
        ::SetDlgItemTextW(dialog, kProblemId, wide(keyFileProblemText(request, problem).c_str()));
        return;
    }
    question.answer->path = path;
    question.answer->password = std::move(password);
    ::EndDialog(dialog, IDOK);
}

::INT_PTR CALLBACK keyFileProcedure(::HWND dialog, ::UINT message, ::WPARAM wParam, ::LPARAM lParam) {
    auto* question = reinterpret_cast<KeyFileQuestion*>(::GetWindowLongPtrW(dialog, DWLP_USER));
    switch (message) {
        case WM_INITDIALOG: {
            question = reinterpret_cast<KeyFileQuestion*>(lParam);
            ::SetWindowLongPtrW(dialog, DWLP_USER, lParam);
            ::SetDlgItemTextW(dialog, kPathId, wide(question->request->startPath.c_str()));
            return TRUE;  // the focus goes to the first control, the path
        }
        case WM_COMMAND:
            if (question == nullptr) {
                break;
            }
            switch (LOWORD(wParam)) {
                case kBrowseId:
                    browse(dialog, *question->request);
                    return TRUE;
                case IDOK:
                    confirm(dialog, *question);
                    return TRUE;
                case IDCANCEL:
                    ::EndDialog(dialog, IDCANCEL);
                    return TRUE;
                default:
                    break;
            }
            break;
        case WM_DESTROY:
            wipeItem(dialog, kPasswordId);
            wipeItem(dialog, kConfirmationId);
            break;
        default:
            break;
    }
    return FALSE;
}

// The dialog's layout in dialog units: label and entry rows, the problem line, OK and Cancel.
DialogTemplate keyFileTemplate(const KeyFileRequest& request) {
    constexpr DWORD kDialogStyle = DS_MODALFRAME | DS_CENTER | WS_POPUP | WS_CAPTION | WS_SYSMENU;
    constexpr DWORD kLabel = WS_CHILD | WS_VISIBLE | SS_LEFT;
    constexpr DWORD kEntry = WS_CHILD | WS_VISIBLE | WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL;
    const DWORD secret = kEntry | (request.bShowPassword ? 0 : ES_PASSWORD);
    const short height = request.bExport ? 140 : 114;
    DialogTemplate layout(kDialogStyle, tableText(request.bExport ? kTextExportTitle : kTextImportTitle), 260,
                          height);
    layout.add(kStaticClass, tableText(kTextKeyFile), kLabel, -1, 7, 7, 246, 9);
    layout.add(kEditClass, u"", kEntry, kPathId, 7, 18, 190, 14);
    layout.add(kButtonClass, tableText(kTextBrowse), WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON,
               kBrowseId, 201, 18, 52, 14);
    layout.add(kStaticClass, tableText(kTextPassword), kLabel, -1, 7, 38, 246, 9);
    layout.add(kEditClass, u"", secret, kPasswordId, 7, 49, 246, 14);
    short next = 69;
    if (request.bExport) {
        layout.add(kStaticClass, tableText(kTextConfirmPassword), kLabel, -1, 7, next, 246, 9);
        layout.add(kEditClass, u"", secret, kConfirmationId, 7, static_cast<short>(next + 11), 246, 14);
        next = static_cast<short>(next + 31);
    }
    layout.add(kStaticClass, u"", kLabel, kProblemId, 7, next, 246, 18);
    const auto buttonsY = static_cast<short>(height - 21);
    layout.add(kButtonClass, tableText(kTextOk), WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_DEFPUSHBUTTON, IDOK,
               147, buttonsY, 50, 14);
    layout.add(kButtonClass, tableText(kTextCancel), WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON,
               IDCANCEL, 203, buttonsY, 50, 14);
    return layout;
}

}  // namespace

int Win32KeyFileDialog::ask(HWND owner, const KeyFileRequest& request, KeyFileAnswer& answer) {
    const DialogTemplate layout = keyFileTemplate(request);
    KeyFileAnswer taken;
    KeyFileQuestion question{&request, &taken};
    const ::INT_PTR result = ::DialogBoxIndirectParamW(
        ::GetModuleHandleW(nullptr), static_cast<const ::DLGTEMPLATE*>(layout.data()), win32::native(owner),
        &keyFileProcedure, reinterpret_cast<::LPARAM>(&question));
    if (result == IDOK) {
        answer = std::move(taken);
        return IDOK;
    }
    wipe(taken.password);
    // -1 or 0: the dialog could not be made; the system's last error says why.
    return result == IDCANCEL ? IDCANCEL : 0;
}

}  // namespace plat::ui
