// The error list's dialog (template 51 of the program's resources) with the core's dialog procedure.
// Like the dialogs of the other systems it tells the UI backend what a person would see: each row the
// core adds, the moment the list is shown, and its end once shown. The system's own UI shows the dialog
// and ignores these reports; the scripted UI records them and answers through the dialog's messages.
#include "ui/win32_dialogs.h"

#include "plat/ui.h"
#include "ui/win32_resource_name.h"

#include "win32/wide.h"
// After wide.h: the common controls' header needs <windows.h> first.
#include <commctrl.h>

namespace plat {

namespace {

// Where a dialog keeps the core's procedure: a property of the window, so that the core keeps the user
// words (DWLP_USER, GWLP_USERDATA) for itself.
constexpr wchar_t kProcedureProperty[] = L"VELQ.DialogProcedure";

// The core's procedure of the dialog being created on this thread: the system sends messages (the font,
// WM_INITDIALOG) before it tells the caller the dialog's handle.
thread_local DLGPROC t_creating = nullptr;

DLGPROC procedureOf(::HWND dialog) {
    auto procedure = reinterpret_cast<DLGPROC>(::GetPropW(dialog, kProcedureProperty));
    if (procedure == nullptr && t_creating != nullptr) {
        procedure = t_creating;
        ::SetPropW(dialog, kProcedureProperty, reinterpret_cast<::HANDLE>(procedure));
    }
    return procedure;
}

::INT_PTR CALLBACK dialogProcedure(::HWND dialog, ::UINT message, ::WPARAM wParam, ::LPARAM lParam) {
    const DLGPROC procedure = procedureOf(dialog);
    const ::INT_PTR result =
        procedure != nullptr ? procedure(win32::fromNative(dialog), message, wParam, lParam) : FALSE;
    if (message == WM_NCDESTROY) {
        ::RemovePropW(dialog, kProcedureProperty);
    }
    return result;
}

// The error list was shown at least once: its end is then the person's to see. A property, because at
// WM_DESTROY the system has already hidden the window.
constexpr wchar_t kShownProperty[] = L"VELQ.ErrorListShown";
constexpr ::UINT_PTR kRowWatch = 1;

// The list control's rows as the core inserts them, reported with the count that follows each.
::LRESULT CALLBACK rowWatch(::HWND list, ::UINT message, ::WPARAM wParam, ::LPARAM lParam, ::UINT_PTR,
                            ::DWORD_PTR dialog) {
    const ::LRESULT result = ::DefSubclassProc(list, message, wParam, lParam);
    if (message == LVM_INSERTITEMW && result != -1) {
        const auto* item = reinterpret_cast<const ::LVITEMW*>(lParam);
        const LPCWSTR text = item->pszText != nullptr ? win32::units(item->pszText) : u"";
        const auto count = static_cast<unsigned>(::SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
        ui::currentBackend().errorList().rowAdded(win32::fromNative(reinterpret_cast<::HWND>(dialog)), text,
                                                  count);
    } else if (message == WM_NCDESTROY) {
        ::RemoveWindowSubclass(list, &rowWatch, kRowWatch);
    }
    return result;
}

// The error list's procedure: the core's, with the reports to the backend around it.
::INT_PTR CALLBACK errorListProcedure(::HWND dialog, ::UINT message, ::WPARAM wParam, ::LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        ::SetWindowSubclass(::GetDlgItem(dialog, IDC_ERROR_LIST), &rowWatch, kRowWatch,
                            reinterpret_cast<::DWORD_PTR>(dialog));
    }
    const bool shownNow =
        message == WM_SHOWWINDOW && wParam != FALSE && ::GetPropW(dialog, kShownProperty) == nullptr;
    if (shownNow) {
        ::SetPropW(dialog, kShownProperty, reinterpret_cast<::HANDLE>(1));
    }
    const bool endOfShown = message == WM_DESTROY && ::RemovePropW(dialog, kShownProperty) != nullptr;
    const ::INT_PTR result = dialogProcedure(dialog, message, wParam, lParam);
    if (shownNow) {
        ui::currentBackend().errorList().shown(win32::fromNative(dialog));
    } else if (endOfShown) {
        ui::currentBackend().errorList().closed(win32::fromNative(dialog));
    }
    return result;
}

// The list control of template 51 is the common controls' report view: its class is registered here.
void registerListControl() {
    static const bool registered = [] {
        ::INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_LISTVIEW_CLASSES};
        return ::InitCommonControlsEx(&controls) != FALSE;
    }();
    (void)registered;
}

// Runs `create` with the core's procedure in reach of the first messages.
template <typename Create>
HWND createWith(DLGPROC procedure, Create create) {
    registerListControl();
    const DLGPROC outer = t_creating;
    t_creating = procedure;
    const ::HWND dialog = create();
    t_creating = outer;
    return win32::fromNative(dialog);
}

}  // namespace

HWND CreateDialogParamW(HINSTANCE hInstance, UINT templateId, HWND hWndParent, DLGPROC lpDialogFunc,
                        LPARAM dwInitParam) {
    if (templateId != IDD_ERROR_LIST) {
        ::SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    return createWith(lpDialogFunc, [&] {
        return ::CreateDialogParamW(win32::native(hInstance), ui::resourceName(templateId),
                                    win32::native(hWndParent), &errorListProcedure, dwInitParam);
    });
}

namespace ui {

HWND createDialogFromTemplate(const void* dialogTemplate, HWND parent, DLGPROC procedure, LPARAM initParam) {
    return createWith(procedure, [&] {
        return ::CreateDialogIndirectParamW(::GetModuleHandleW(nullptr),
                                            static_cast<const ::DLGTEMPLATE*>(dialogTemplate),
                                            win32::native(parent), &dialogProcedure, initParam);
    });
}

}  // namespace ui
}  // namespace plat
