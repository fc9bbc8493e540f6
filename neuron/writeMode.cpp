#include <Poco/Thread.h>

#include "common/neuronPins.h"
#include "neuron/frames.h"
#include "tavo/neuron.h"

namespace {

constexpr long kResetHeldMs = 500;
constexpr long kServiceHeldMs = 11000;

struct NodeState {
    MODE mode;
    unsigned char state;  // ISO/IEC 14908-1, the codes of the state byte of Query Status
};
constexpr NodeState kNodeStates[] = {{MODE_UNCONFIGURED, 0x02}, {MODE_OFFLINE, 0x06}, {MODE_CONFIGURED, 0x04}};

TAVO_STATUS writeMode(const DeviceInfo& deviceInfo, unsigned char mode, unsigned char nodeState) {
    LdvManager ldv(deviceInfo);
    if (!ldv.isOpen) return TAVO_DEVICE_OPEN_FAILED;
    frames::Answer answer;
    return frames::exchange(ldv, frames::setNodeMode(mode, nodeState), frames::kNodeModeAnswer, answer)
               ? TAVO_SUCCESS
               : TAVO_TRANSACTION_FAILED;
}

TAVO_STATUS holdResetAndService(const DeviceInfo& deviceInfo) {
    GPIO gpio(deviceInfo);
    const IOPin reset(gpio, kNeuronResetPin, IOPin::HIGH);
    if (const auto result = reset.set(IOPin::LOW); result != CY_SUCCESS) return cypressToTavo(result);
    Poco::Thread::sleep(kResetHeldMs);
    const IOPin service(gpio, kNeuronServicePin, IOPin::HIGH);
    if (const auto result = service.set(IOPin::LOW); result != CY_SUCCESS) return cypressToTavo(result);
    Poco::Thread::sleep(kServiceHeldMs);
    return TAVO_SUCCESS;
}

}  // namespace

TAVO_STATUS writeMode(const DeviceInfo& deviceInfo, MODE mode) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    if (mode == MODE_SERVICE) return holdResetAndService(deviceInfo);
    for (const NodeState& row : kNodeStates) {
        if (row.mode == mode) return writeMode(deviceInfo, frames::kChangeState, row.state);
    }
    return TAVO_UNKNOWN_ERROR;
}
