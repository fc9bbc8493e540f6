// One look over all parts of an interface.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/service/device.h"
#include "tavo/service/doctor.h"
#include "tavo/service/flash.h"
#include "tavo/service/history.h"
#include "tavo/service/neuron.h"

namespace tavo {

/// What a part told, or why it did not.
template <typename T>
struct Told {
    std::optional<T> value;  ///< none: see why
    std::string why;         ///< why there is no value
};

/// A part of the interface in one line of a picture.
struct Part {
    const char* name = "";               ///< "USB", "bridge", "SCB0", "flash", "Neuron"
    Verdict verdict = Verdict::Skipped;  ///< Fail where doctor() finds a failure
    std::string state;                   ///< "held in reset", "running, configured"
    std::string hint = {};               ///< what to do about a failure
};

/// Whether to ask the flash for its ID, for which the Neuron is restarted.
enum class FlashLook : std::uint8_t {
    Never,
    IfSilent,  ///< when the Neuron was asked and does not answer, and nothing is held: nobody misses it
    Always,
};

/// How much overview looks at.
struct OverviewOptions {
    FlashLook flash = FlashLook::IfSilent;  ///< the chip
};

/// What is in an interface; what cannot be told says why.
struct Overview {
    std::vector<Part> parts;                    ///< in the order of Part::name
    Told<std::uint32_t> siliconId;              ///< of the bridge
    Told<NeuronId> neuronId;                    ///< as the Neuron itself tells it
    Told<ProgramId> programId;                  ///< of the application
    Told<NeuronState> status;                   ///< of the Neuron
    Told<FlashChip> flash;                      ///< the chip
    bool neuronRestarted = false;               ///< the look at the flash restarts it
    std::optional<InterruptedRun> interrupted;  ///< a run on this flash that was cut off
    DeviceState state;                          ///< of the device, afterwards
};

/// Looks at everything that doctor() looks at, then asks bridge, Neuron and, last, flash. Parts that do not answer
/// are absent. 0.1 to 4 s. Throws Error when the bridge cannot be opened at all, when it is unplugged meanwhile, when
/// something is still held after the flash was asked or cannot be seen to be released, and when cancelled.
TAVO_API Overview overview(Device& device, const OverviewOptions& options = {}, const Control& control = {});

}  // namespace tavo
