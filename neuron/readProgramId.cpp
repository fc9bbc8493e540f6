#include <cstring>

#include "neuron/frames.h"
#include "tavo/neuron.h"

TAVO_STATUS readProgramId(const DeviceInfo& deviceInfo, unsigned char (&programId)[8]) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    LdvManager ldv(deviceInfo);
    if (!ldv.isOpen) return TAVO_DEVICE_OPEN_FAILED;
    frames::Answer answer;
    if (!frames::exchange(ldv, frames::kReadProgramId, frames::kProgramIdAnswer, answer)) {
        return TAVO_TRANSACTION_FAILED;
    }
    std::memcpy(programId, &answer[frames::kData], sizeof programId);
    return TAVO_SUCCESS;
}
