#include <cstring>

#include "neuron/frames.h"
#include "tavo/neuron.h"

TAVO_STATUS writeDomainTable(const DeviceInfo& deviceInfo, const LonAddress (&entries)[2]) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    LdvManager ldv(deviceInfo);
    if (!ldv.isOpen) return TAVO_DEVICE_OPEN_FAILED;
    frames::Answer answer;
    for (unsigned char index = 0; index < 2; ++index) {
        auto request = frames::updateDomain(index);
        std::memcpy(&request[frames::kEntryOffset], &entries[index], sizeof(LonAddress));
        if (!frames::exchange(ldv, request, frames::kUpdateDomainAnswer, answer)) return TAVO_TRANSACTION_FAILED;
    }
    return TAVO_SUCCESS;
}
