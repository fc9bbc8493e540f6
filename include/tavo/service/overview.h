// One look over all parts of an interface.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tavo/service/device.h"
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

struct Overview {
    Told<std::uint32_t> siliconId;  ///< of the bridge
    Told<NeuronId> neuronId;        ///< as the Neuron itself tells it
    Told<ProgramId> programId;
    Told<NeuronState> status;
    Told<FlashChip> flash;
    std::optional<InterruptedRun> interrupted;
    DeviceState state;
};

/// Asks bridge, Neuron and flash; the flash last, as the Neuron is restarted for it. Parts that do not answer
/// are absent. 1 to 4 s. Throws Error when the bridge cannot be opened at all, when it is unplugged meanwhile, when
/// something is still held afterwards or cannot be seen to be released, and when cancelled.
TAVO_API Overview overview(Device& device, const Control& control = {});

}  // namespace tavo
