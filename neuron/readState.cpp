#include <cstring>

#include "neuron/frames.h"
#include "tavo/neuron.h"

TAVO_STATUS readState(const DeviceInfo& deviceInfo, NeuronState& state) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    LdvManager ldv(deviceInfo);
    if (!ldv.isOpen) return TAVO_DEVICE_OPEN_FAILED;
    frames::Answer answer;
    if (!frames::exchange(ldv, frames::kQueryStatus, frames::kStatusAnswer, answer)) return TAVO_TRANSACTION_FAILED;
    std::memcpy(&state, &answer[frames::kData], sizeof state);  // the 16th byte lies past the answer: 0
    return TAVO_SUCCESS;
}
