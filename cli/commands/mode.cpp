#include <Poco/Thread.h>

#include <memory>

#include "cli/commands/commands.h"
#include "cli/neuronNames.h"

namespace cli {
namespace {

struct Mode {
    const char* word;
    MODE mode;
    std::uint8_t nodeState;  // that the Neuron has afterwards
};
constexpr Mode kModes[] = {{"unconfigured", MODE_UNCONFIGURED, 0x02},
                           {"offline", MODE_OFFLINE, 0x06},
                           {"configured", MODE_CONFIGURED, 0x04},
                           {"service", MODE_SERVICE, 0x02}};

constexpr double kServiceSeconds = 11.5;
constexpr long kBootMs = 1500;  // of the Neuron once its reset line is up

/// Null when the Neuron does not answer.
using State = std::optional<std::uint8_t>;  // none: the Neuron did not answer

State readNodeState(Session& session) {
    NeuronState state{};
    const TAVO_STATUS result =
        session.tryCall("read the status of the Neuron", [&] { return readState(session.info(), state); });
    return result == TAVO_SUCCESS ? State(state.nodeState) : State();
}

Json json(const State& state) {
    return state ? namedJson(nodeStateName(*state), *state) : Json(nullptr);
}

std::string stateText(const State& state) {
    return state ? named(nodeStateName(*state), *state) : "no answer";
}

void holdServiceLine(Session& session) {
    session.progress.begin("service mode", "holds reset and service line for 11.5 s", {.seconds = kServiceSeconds});
    session.progress.setStopNote("Ctrl-C noted: both lines are released when the 11.5 s are over");
    session.call(Side::Bridge, "hold the reset and the service line",
                 [&] { return writeMode(session.info(), MODE_SERVICE); });
    session.progress.end();
    throwIfInterrupted();
    session.progress.begin("boot", "the Neuron takes up to 1.5 s");
    Poco::Thread::sleep(kBootMs);
    session.progress.end();
}

void requireState(Session& session, const Mode& mode, const State& after) {
    if (!after) {
        session.report.warning("the Neuron does not answer", "tavo-util doctor looks for the cause");
    } else if (*after != mode.nodeState) {
        throw Failure{Exit::FailedUnchanged,
                      std::string("the Neuron took the mode ") + mode.word + " and is " + stateText(after),
                      "tavo-util status tells more; a Neuron without an application cannot be configured",
                      {}};
    }
}

void changeMode(Session& session, const Mode& mode) {
    Report& report = session.report;
    const State before = readNodeState(session);
    report.result["before"] = json(before);
    if (session.options.dryRun) {
        report.result["planned"] = mode.word;
        report.note("would change " + stateText(before) + " to " + mode.word + "; nothing was done (--dry-run)");
        return;
    }
    report.stateText = "the node state may have changed: tavo-util status shows it";
    if (mode.mode == MODE_SERVICE) {
        holdServiceLine(session);
    } else {
        session.call(Side::Neuron, std::string("set the mode ") + mode.word,
                     [&] { return writeMode(session.info(), mode.mode); });
    }
    const State after = readNodeState(session);
    report.result["after"] = json(after);
    requireState(session, mode, after);
    report.line(stateText(before) + " -> " + stateText(after));
}

}  // namespace

Run declareMode(Arguments& arguments) {
    auto word = std::make_shared<std::string>();
    std::vector<std::string> words;
    for (const Mode& mode : kModes) words.emplace_back(mode.word);
    arguments.word("MODE", *word, words, "node state; service holds reset and service line for 11 s");
    return [word](Session& session) {
        for (const Mode& mode : kModes) {
            if (*word == mode.word) changeMode(session, mode);
        }
    };
}

}  // namespace cli
