#include <cstring>

#include "neuron/frames.h"
#include "tavo/neuron.h"

TAVO_STATUS readDomainTable(const DeviceInfo& deviceInfo, LonAddress (&entries)[2]) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    LdvManager ldv(deviceInfo);
    if (!ldv.isOpen) return TAVO_DEVICE_OPEN_FAILED;
    frames::Answer answer;
    for (unsigned char index = 0; index < 2; ++index) {
        if (!frames::exchange(ldv, frames::queryDomain(index), frames::kQueryDomainAnswer, answer)) {
            return TAVO_TRANSACTION_FAILED;
        }
        std::memcpy(&entries[index], &answer[frames::kData], sizeof(LonAddress));
    }
    return TAVO_SUCCESS;
}
