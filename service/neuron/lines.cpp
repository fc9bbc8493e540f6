#include "service/neuron/lines.h"

#include "common/neuronPins.h"
#include "platform/cyusbserial.h"
#include "service/device/health.h"

namespace tavo {
namespace {

constexpr unsigned kPulseMs = 25;
constexpr long kResetHeldMs = 500;
constexpr long kServiceHeldMs = 11000;

/// The bridge answers for the reset pin and refuses this one: CY7C65211 parts end at GPIO 11.
bool lacksPin(const DeviceInfo& info, unsigned char pin) {
    const GPIO gpio(info);
    if (gpio.cyHandle->openStatus != CY_SUCCESS) return false;
    UINT8 level = 0;
    return CyGetGpioValue(gpio.cyHandle->handle, kNeuronResetPin, &level) == CY_SUCCESS &&
           CyGetGpioValue(gpio.cyHandle->handle, pin, &level) == CY_ERROR_REQUEST_FAILED;
}

[[noreturn]] void failWithoutPin(Operation& op, unsigned char pin, const char* doing, TAVO_STATUS status) {
    Error error(Problem::DeviceFailed,
                std::string("cannot ") + doing + " on " + op.device.name() + ": this bridge has no pin " +
                    std::to_string(pin) + ", to which the service line is wired",
                "press the service button on the interface; tavo-util mode unconfigured works by message");
    error.status = status;
    op.fail(error);
}

/// A press while the Neuron is held is seen by nobody. Nothing of that is this command's to release.
void requireRunning(Operation& op, const char* doing) {
    lookAtLines(op);
    if (op.state.resetLine != LineState::Held) return;
    op.fail(Error(Problem::DeviceFailed,
                  std::string("cannot ") + doing + " on " + op.device.name() + ": the Neuron is held in reset",
                  "let the Neuron run again: tavo-util recover"));
}

/// What stays held is released once more; SCB0 too, where a killed run has left it: as a master it would drive
/// the flash beside the Neuron that runs now. What then still is held ends the operation.
void require(Operation& op, TAVO_STATUS status, unsigned char pin, const char* doing) {
    letGo(op, true);
    if (status == TAVO_SUCCESS) {
        if (op.state.isSomethingHeld()) op.fail(stillHeld(op));
        return;
    }
    Error error = statusError(status, Side::Bridge, std::string(doing) + " on " + op.device.name());
    error.state = op.state;
    op.failIfGone(error);
    if (pin == kNeuronServicePin && lacksPin(op.device.info(), pin)) failWithoutPin(op, pin, doing, status);
    op.fail(op.state.isSomethingHeld() ? andStillHeld(error, op) : error);
}

/// Released in reverse order by their destructors, whatever ends the wait.
TAVO_STATUS holdBoth(Operation& op) {
    GPIO gpio(op.device.info());
    const IOPin reset(gpio, kNeuronResetPin, IOPin::HIGH);
    if (const auto result = reset.set(IOPin::LOW); result != CY_SUCCESS) return cypressToTavo(result);
    op.sleep(kResetHeldMs);
    const IOPin service(gpio, kNeuronServicePin, IOPin::HIGH);
    if (const auto result = service.set(IOPin::LOW); result != CY_SUCCESS) return cypressToTavo(result);
    op.sleep(kServiceHeldMs);
    return TAVO_SUCCESS;
}

}  // namespace

void pulse(Operation& op, unsigned char pin, const char* doing) {
    const TAVO_STATUS status = op.tryCall(doing, [&] {
        GPIO gpio(op.device.info());
        const IOPin line(gpio, pin, IOPin::RELEASED);
        return cypressToTavo(line.pulse(IOPin::LOW, kPulseMs));
    });
    if (status == TAVO_SUCCESS && pin == kNeuronServicePin) requireRunning(op, doing);
    require(op, status, pin, doing);
}

void holdResetAndService(Operation& op) {
    constexpr const char* kDoing = "hold the reset and the service line";
    TAVO_STATUS status = TAVO_SUCCESS;
    try {
        status = op.tryCall(kDoing, [&] { return holdBoth(op); });
    } catch (const Error& error) {  // interrupted: the lines are up again, or not
        letGo(op, true);
        op.fail(op.state.isSomethingHeld() ? andStillHeld(error, op) : error);
    }
    require(op, status, kNeuronServicePin, kDoing);
}

}  // namespace tavo
