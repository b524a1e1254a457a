// The progress dialog as the UI backends show it: the layer's IProgressDialog with its state under one
// lock, each call handed to the process's backend (its progress kind), and a window of its own whose title
// is the dialog's title, so that the core finds it as it finds the shell's dialog. It is the progress
// dialog of every backend but one whose windows are the system's own (Backend::usesSystemWindows).
#pragma once

#include "plat/progress.h"

namespace plat::ui {

// A new dialog object with one reference; null when memory runs out.
IProgressDialog* newBackendProgressDialog();

}  // namespace plat::ui
