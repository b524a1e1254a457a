// The error list's dialog (template 51 of the program's resources) with the core's dialog procedure.
#include "ui/win32_dialogs.h"

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
                                    win32::native(hWndParent), &dialogProcedure, dwInitParam);
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
