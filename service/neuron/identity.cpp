// What the Neuron says of itself: status, Neuron ID, program ID.
#include <algorithm>

#include "service/neuron/requests.h"

namespace tavo {

NeuronState readStatus(Device& device, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        NeuronState state{};
        op.call(Side::Neuron, "read the status of the Neuron", [&] { return askStatus(op, state); });
        return state;
    });
}

NeuronId readNeuronId(Device& device, const Control& control) {
    return operate(device, control, [&](Operation& op) { return askNeuronId(op); });
}

ProgramId readProgramId(Device& device, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        frames::Answer answer;
        op.call(Side::Neuron, "read the program ID",
                [&] { return ask(op, frames::kReadProgramId, frames::kProgramIdAnswer, answer); });
        ProgramId id{};
        std::copy_n(&answer[frames::kData], id.size(), id.begin());
        return id;
    });
}

}  // namespace tavo
