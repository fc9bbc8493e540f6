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
    std::optional<T> value;
    std::string why;
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

struct OverviewOptions {
    FlashLook flash = FlashLook::IfSilent;
};

struct Overview {
    std::vector<Part> parts;        ///< in the order of Part::name
    Told<std::uint32_t> siliconId;  ///< of the bridge
    Told<NeuronId> neuronId;        ///< as the Neuron itself tells it
    Told<ProgramId> programId;
    Told<NeuronState> status;
    Told<FlashChip> flash;
    bool neuronRestarted = false;
    std::optional<InterruptedRun> interrupted;
    DeviceState state;
};

/// Looks at everything that doctor() looks at, then asks bridge, Neuron and, last, flash. Parts that do not answer
/// are absent. 0.1 to 4 s. Throws Error when the bridge cannot be opened at all, when it is unplugged meanwhile, when
/// something is still held after the flash was asked or cannot be seen to be released, and when cancelled.
TAVO_API Overview overview(Device& device, const OverviewOptions& options = {}, const Control& control = {});

}  // namespace tavo
