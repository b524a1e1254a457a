// The native Windows UI (VELQ_UI=win32, the default of the Windows program): every window of the core is
// a window of the system's own.
//
// - Message boxes are the system's MessageBoxW with the core's flags as they stand (owner, buttons, icon,
//   MB_TOPMOST); its answers are the core's answers.
// - The progress dialog is the shell's (plat::CoCreateInstance, win32_progress.cpp): the core drives it
//   directly, so this backend's progress kind shows nothing of its own.
// - The error list is the program's dialog template 51 (plat::CreateDialogParamW, win32_dialogs.cpp),
//   filled by the core's own dialog procedure; its backend kind shows nothing of its own either.
// - The wait window is the core's own 203x268 window, which this backend shows on top, gives its picture
//   and registers for the session's notices (win32_wait.cpp).
// - The password dialogs of the key backup are a dialog of this backend with the system's file choosers
//   (win32_transfer.cpp).
// - The search window is the shell's: the core opens its search-ms: query through ShellExecuteW.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "plat/ui.h"

namespace plat::ui {

// The bytes of PNG picture `id`; empty when there is none. Must stay valid while the process runs.
using PictureSource = std::function<std::span<const std::uint8_t>(UINT id)>;

// The program's own pictures: resource `id` of type "PNG" in the program's module.
std::span<const std::uint8_t> programPicture(UINT id);

// The native backend. `pictures` gives the wait window's pictures (tests give their own).
std::unique_ptr<Backend> makeWin32Backend(PictureSource pictures = programPicture);

}  // namespace plat::ui
