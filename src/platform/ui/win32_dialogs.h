// Dialogs of the Windows program whose procedures are the core's: plain C++ functions of the layer's
// types (plat::DLGPROC), called by one dialog procedure of the API's kind (stdcall on 32-bit Windows).
#pragma once

#include "plat/dialogs.h"

namespace plat::ui {

// Creates the modeless dialog of the in-memory template `dialogTemplate` (a DLGTEMPLATE and what follows
// it, 4-byte aligned) as CreateDialogParamW does for a template of the program's resources: every message
// of the dialog, WM_INITDIALOG (lParam = `initParam`) and those before it included, goes to `procedure`
// first; what it leaves (FALSE) gets the system's default handling. Null with the system's last error
// when the dialog cannot be made.
HWND createDialogFromTemplate(const void* dialogTemplate, HWND parent, DLGPROC procedure, LPARAM initParam);

}  // namespace plat::ui
