#include "service/neuron/requests.h"

#include <cstring>

namespace tavo {

void onlyAsks(Operation& op) {
    if (op.state.node.knowledge != Knowledge::Untouched) return;
    op.state.node = {Knowledge::Unchanged, "the Neuron was only asked, nothing in it changed"};
}

void mayChange(Operation& op, const char* text) {
    op.state.node = {Knowledge::Uncertain, text};
}

TAVO_STATUS notOpened(Operation& op, TAVO_STATUS status) {
    if (op.state.node.text.empty()) op.state.node = {Knowledge::Untouched, "nothing was sent to the Neuron"};
    return status;
}

TAVO_STATUS askStatus(Operation& op, NeuronState& state) {
    frames::Answer answer;
    const TAVO_STATUS status = ask(op, frames::kQueryStatus, frames::kStatusAnswer, answer);
    if (status == TAVO_SUCCESS) std::memcpy(&state, &answer[frames::kData], sizeof state);
    return status;
}

NeuronId askNeuronId(Operation& op) {
    frames::Answer answer;
    op.call(Side::Neuron, "read the Neuron ID",
            [&] { return ask(op, frames::kReadNeuronId, frames::kNeuronIdAnswer, answer); });
    NeuronId id;
    id = &answer[frames::kData];
    return id;
}

}  // namespace tavo
