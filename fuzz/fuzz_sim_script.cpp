// Fuzzes the reading of the simulated sensor's description (VELQ_WINBIO_SIM): any bytes give either a
// description or an error that names its line, and a description read again gives the same result.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "winbio/sim_script.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    plat::winbio::SimScript script;
    std::string error;
    const bool accepted = plat::winbio::parseSimScript(text, script, error);
    if (!accepted) {
        check(error.rfind("line ", 0) == 0);
        return 0;
    }
    check(error.empty());
    check(script.units <= 64);
    for (const auto& [name, code] : script.failures) {
        check(plat::winbio::isWinBioCallName(name));
    }
    for (const auto& [sid, count] : script.enrolled) {
        check(count <= 10 && !sid.empty());
    }
    for (const plat::winbio::SimStep& step : script.timeline) {
        check(step.kind != plat::winbio::SimStep::Kind::Touch || step.status != 0 || !step.sid.empty());
    }
    plat::winbio::SimScript again;
    check(plat::winbio::parseSimScript(text, again, error));
    check(again.timeline.size() == script.timeline.size() && again.failures == script.failures);
    return 0;
}
