#include <Poco/Thread.h>

#include "common/neuronPins.h"
#include "neuron/frames.h"
#include "tavo/neuron.h"

namespace {

constexpr unsigned int kPulseMs = 25;
constexpr long kBootMs = 1500;  // after the reset line has gone up
constexpr long kAfterResetNoticeMs = 1000;

}  // namespace

TAVO_STATUS hardReset(const DeviceInfo& deviceInfo) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    GPIO gpio(deviceInfo);
    const IOPin reset(gpio, kNeuronResetPin, IOPin::RELEASED);
    if (const auto result = reset.pulse(IOPin::LOW, kPulseMs); result != CY_SUCCESS) return cypressToTavo(result);
    Poco::Thread::sleep(kBootMs);
    return TAVO_SUCCESS;
}

TAVO_STATUS softReset(const DeviceInfo& deviceInfo) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    LdvManager ldv(deviceInfo);
    if (!ldv.isOpen) return TAVO_DEVICE_OPEN_FAILED;
    frames::Answer answer;
    if (!frames::exchange(ldv, frames::kReset, frames::kResetNotice, answer, frames::kResetTimeoutMs)) {
        return TAVO_TRANSACTION_FAILED;
    }
    Poco::Thread::sleep(kAfterResetNoticeMs);
    return TAVO_SUCCESS;
}

TAVO_STATUS sendServicePin(const DeviceInfo& deviceInfo) {
    GPIO gpio(deviceInfo);
    const IOPin service(gpio, kNeuronServicePin, IOPin::RELEASED);
    return cypressToTavo(service.pulse(IOPin::LOW, kPulseMs));
}
