// Restarting the Neuron, and pressing its service pin.
#include <chrono>

#include "common/neuronPins.h"
#include "service/neuron/lines.h"
#include "service/neuron/requests.h"

namespace tavo {
namespace {

constexpr long kAfterResetNoticeMs = 1000;
constexpr const char* kMayBeReset = "the Neuron may have been reset";

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void resetByLine(Operation& op) {
    constexpr const char* kDoing = "reset the Neuron";
    if (!op.device.info().areVidPidCorrect()) {
        op.fail(statusError(TAVO_WRONG_VID_PID, Side::Bridge, std::string(kDoing) + " on " + op.device.name()));
    }
    op.begin(Phase::Reset, "1.5 s, until the Neuron has booted");
    mayChange(op, kMayBeReset);
    pulse(op, kNeuronResetPin, kDoing);
    op.sleep(kBootMs);
}

void resetByMessage(Operation& op) {
    op.begin(Phase::Reset, "waits for the network interface's notice, at most 66 s");
    frames::Answer answer;
    op.call(Side::Neuron, "reset the Neuron by message", [&] {
        return ask(op, frames::kReset, frames::kResetNotice, answer, kMayBeReset, frames::kResetTimeoutMs);
    });
    op.sleep(kAfterResetNoticeMs);
}

}  // namespace

double reset(Device& device, ResetBy by, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        const auto start = std::chrono::steady_clock::now();
        by == ResetBy::Line ? resetByLine(op) : resetByMessage(op);
        op.end();
        return secondsSince(start);
    });
}

double pressServicePin(Device& device, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        const auto start = std::chrono::steady_clock::now();
        pulse(op, kNeuronServicePin, "press the service pin");
        return secondsSince(start);
    });
}

}  // namespace tavo
