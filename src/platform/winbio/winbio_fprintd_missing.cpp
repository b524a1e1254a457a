// A build without the fprintd backend (VELQ_WITH_FPRINTD off, or GLib not found).
#include "winbio/backend.h"

namespace plat::winbio {

bool fprintdBackendBuiltIn() {
    return false;
}

std::unique_ptr<Backend> makeFprintdBackend() {
    return nullptr;
}

}  // namespace plat::winbio
