// Looking for what is wrong with an interface.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tavo/neuron.h"
#include "tavo/service/device.h"

namespace tavo {

/// The result of a look or a step.
enum class Verdict : std::uint8_t {
    Ok,
    Fail,
    Skipped,  ///< it would say nothing after what was found before, or was not to be done
};

/// One thing that was looked at.
struct Check {
    const char* item = "";          ///< "flash ID"
    Verdict verdict = Verdict::Ok;  ///< good, bad, or not looked at
    std::string text;               ///< what was found, or why it was skipped; may be empty
    std::string hint;               ///< what to do about a failure
};

/// How doctor looks.
struct DoctorOptions {
    bool restartNeuron = true;               ///< false: leaves out the flash ID, for which the Neuron is restarted
    std::function<void(const Check&)> each;  ///< told as it is found; may be empty
};

/// What doctor found.
struct Diagnosis {
    std::vector<Check> checks;          ///< in their order
    std::optional<NeuronState> status;  ///< what the Neuron answered
    DeviceState state;  ///< the lines and SCB0 as they were found; the flash, when a run was interrupted

    /// How many are bad.
    TAVO_API unsigned failed() const;
    TAVO_API const Check& check(const std::string& item) const;  ///< throws std::out_of_range
};

/// Looks at everything from the access to the Neuron's answer, in that order. The lines and SCB0 are looked at
/// before anything is touched, and nothing that is held is released. Takes a device that cannot be opened too.
/// 1 to 5 s. Throws Error only when cancelled.
TAVO_API Diagnosis doctor(Device& device, const DoctorOptions& options = {}, const Control& control = {});

}  // namespace tavo
