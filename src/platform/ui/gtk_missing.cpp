// The stand-in of a build without GTK (VELQ_WITH_GTK off): the desktop UI is never there.
#include "ui/gtk_backend.h"

namespace plat::ui {

bool gtkBuiltIn() {
    return false;
}

std::unique_ptr<Backend> makeGtkBackend(std::string& failure) {
    failure = "this program was built without the desktop interface";
    return nullptr;
}

void endGtkLoop() {}

}  // namespace plat::ui
