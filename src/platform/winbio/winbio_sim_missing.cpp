// Stands in for the simulated sensor in builds without VELQ_WITH_SIM_SENSOR.
#include "winbio/backend.h"

namespace plat::winbio {

bool simBackendBuiltIn() {
    return false;
}

std::unique_ptr<Backend> makeSimBackend(const SimScript&, std::string& error) {
    error = "the simulated fingerprint sensor is not built in (VELQ_WITH_SIM_SENSOR=OFF)";
    return nullptr;
}

}  // namespace plat::winbio
