// Putting an interface right that a killed run has left as it was.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tavo/service/doctor.h"
#include "tavo/service/history.h"

namespace tavo {

/// One step of recover.
struct RecoverStep {
    std::string text;               ///< what was done or seen: "service line released (pin 14 high)"
    Verdict verdict = Verdict::Ok;  ///< good, bad, or not looked at
    std::string why;                ///< of a failure, or of a step that was left out
};

/// Who is told of each step.
struct RecoverOptions {
    std::function<void(const RecoverStep&)>
        each;  ///< told as it is done, also before a failure is thrown; may be empty
};

/// What recover did.
struct Recovery {
    std::vector<RecoverStep> steps;             ///< in their order
    std::optional<InterruptedRun> interrupted;  ///< the flash still lacks its image
    DeviceState state;                          ///< of the device, afterwards
};

/// Ends an SPI transfer that was cut off, gives SCB0 back, releases the service and the reset line, leaves the
/// configuration mode, reads all of that back, and proves it: the flash gives its ID and the Neuron answers,
/// where there is an LDV channel and an image to run. The Neuron is restarted. About 3 s.
/// Every step is tried whatever became of the others. Throws Error of the first that failed, with what is
/// still held in its state.
TAVO_API Recovery recover(Device& device, const RecoverOptions& options = {}, const Control& control = {});

}  // namespace tavo
