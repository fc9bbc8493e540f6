// What this computer remembers of runs that were cut off.
#include "tavo/service/history.h"

#include "service/c/boundary.h"

namespace tavo::c {
namespace {

tavo_interrupted_run describe(const InterruptedRun& run) {
    tavo_interrupted_run told{};
    told.found = 1;
    told.flash = static_cast<std::uint32_t>(interruptedState(run));
    put(told.image, run.image);
    put(told.sha256, run.sha256);
    put(told.started, run.started);
    put(told.backup, run.backup);
    put(told.text, interruptedText(run));
    put(told.hint, interruptedHint(run));
    return told;
}

}  // namespace
}  // namespace tavo::c

using namespace tavo::c;

tavo_result tavo_find_interrupted_run(const tavo_device* device, tavo_interrupted_run* run, tavo_error* error) {
    return guarded(error, [&] {
        const tavo::DeviceDescription& description = given(device, "device").device.description();
        const auto found = tavo::interruptedRun(description);
        Out(run, "run").fill(found ? describe(*found) : tavo_interrupted_run{});
    });
}
