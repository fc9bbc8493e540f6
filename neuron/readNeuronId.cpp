#include "neuron/frames.h"
#include "tavo/neuron.h"

TAVO_STATUS readNeuronId(const DeviceInfo& deviceInfo, NeuronId& neuronId) {
    LdvManager ldv(deviceInfo);
    if (!ldv.isOpen) return TAVO_DEVICE_OPEN_FAILED;
    frames::Answer answer;
    if (!frames::exchange(ldv, frames::kReadNeuronId, frames::kNeuronIdAnswer, answer)) return TAVO_TRANSACTION_FAILED;
    neuronId = &answer[frames::kData];
    return TAVO_SUCCESS;
}
