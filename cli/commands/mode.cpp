#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/neuronNames.h"
#include "cli/running/session.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

constexpr tavo::Mode kModes[] = {tavo::Mode::Unconfigured, tavo::Mode::Offline, tavo::Mode::Configured,
                                 tavo::Mode::Service};

/// Null when the Neuron does not answer.
Json stateJson(const std::optional<NeuronState>& state) {
    if (!state) return nullptr;
    return namedJson(tavo::nodeStateName(state->nodeState), state->nodeState);
}

std::string stateText(const std::optional<NeuronState>& state) {
    return state ? tavo::named(tavo::nodeStateName(state->nodeState), state->nodeState) : "no answer";
}

std::optional<NeuronState> stateNow(Session& session) {
    try {
        return tavo::readStatus(session.device(), session.control());
    } catch (const tavo::Error& error) {
        if (error.problem == tavo::Problem::Interrupted) throw;
        return std::nullopt;
    }
}

void changeMode(Session& session, tavo::Mode mode) {
    Report& report = session.report;
    if (session.options.dryRun) {
        const auto now = stateNow(session);
        report.result["before"] = stateJson(now);
        report.result["planned"] = tavo::modeName(mode);
        return report.note("would change " + stateText(now) + " to " + tavo::modeName(mode) +
                           "; nothing was done (--dry-run)");
    }
    const auto change = tavo::setMode(session.device(), mode, session.control());
    report.result["before"] = stateJson(change.before);
    report.result["after"] = stateJson(change.after);
    report.state.node = {tavo::Knowledge::Written, std::string("node set to ") + tavo::modeName(mode)};
    report.line(stateText(change.before) + " -> " + stateText(change.after));
}

}  // namespace

Run declareMode(Arguments& arguments) {
    auto word = std::make_shared<std::string>();
    std::vector<std::string> words;
    for (const tavo::Mode mode : kModes) words.emplace_back(tavo::modeName(mode));
    arguments.word("MODE", *word, words, "node state; service holds reset and service line for 11 s");
    return [word](Session& session) {
        for (const tavo::Mode mode : kModes) {
            if (*word == tavo::modeName(mode)) changeMode(session, mode);
        }
    };
}

}  // namespace cli
