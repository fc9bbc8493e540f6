// The node state, set by message or by the Neuron's lines.
#include <iterator>

#include "service/neuron/lines.h"
#include "service/neuron/requests.h"

namespace tavo {
namespace {

struct ModeRow {
    const char* name;
    std::uint8_t nodeState;  // that the Neuron has afterwards
};
constexpr ModeRow kModes[] = {{"unconfigured", 0x02}, {"offline", 0x06}, {"configured", 0x04}, {"service", 0x02}};
static_assert(std::size(kModes) == static_cast<std::size_t>(Mode::Service) + 1);

constexpr double kServiceSeconds = 11.5;
constexpr const char* kMayHaveChanged = "the node state may have changed: tavo-util status shows it";

const ModeRow& rowOf(Mode mode) {
    return kModes[static_cast<std::size_t>(mode)];
}

std::optional<NeuronState> look(Operation& op) {
    NeuronState state{};
    const TAVO_STATUS status = op.tryCall("read the status of the Neuron", [&] { return askStatus(op, state); });
    return status == TAVO_SUCCESS ? std::optional(state) : std::nullopt;
}

void serviceMode(Operation& op) {
    op.begin(Phase::ServiceMode, "holds reset and service line for 11.5 s", 0, kServiceSeconds);
    mayChange(op, kMayHaveChanged);
    holdResetAndService(op);
    op.begin(Phase::Boot, "the Neuron takes up to 1.5 s");
    op.sleep(kBootMs);
    op.end();
}

void byMessage(Operation& op, Mode mode) {
    frames::Answer answer;
    op.state.node = {};  // from here on it counts whether the request was sent
    op.call(Side::Neuron, std::string("set the mode ") + modeName(mode), [&] {
        return ask(op, frames::setNodeMode(frames::kChangeState, nodeStateOf(mode)), frames::kNodeModeAnswer, answer,
                   kMayHaveChanged);
    });
}

void requireState(Operation& op, Mode mode, const std::optional<NeuronState>& after) {
    if (!after) return op.warn("the Neuron does not answer", "tavo-util doctor looks for the cause");
    const std::string found = named(nodeStateName(after->nodeState), after->nodeState);
    op.state.node = {Knowledge::Written, "the node state is " + found};
    if (after->nodeState == nodeStateOf(mode)) return;
    op.fail(Error(Problem::DeviceFailed, std::string("the Neuron took the mode ") + modeName(mode) + " and is " + found,
                  "tavo-util status tells more; a Neuron without an application cannot be configured"));
}

}  // namespace

std::uint8_t nodeStateOf(Mode mode) {
    return rowOf(mode).nodeState;
}

const char* modeName(Mode mode) {
    return rowOf(mode).name;
}

ModeChange setMode(Device& device, Mode mode, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        if (!device.info().areVidPidCorrect()) {
            op.fail(statusError(TAVO_WRONG_VID_PID, Side::Bridge, "set the mode on " + device.name()));
        }
        ModeChange change;
        change.before = look(op);
        mode == Mode::Service ? serviceMode(op) : byMessage(op, mode);
        change.after = look(op);
        requireState(op, mode, change.after);
        return change;
    });
}

}  // namespace tavo
