#include <memory>

#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/configuration.h"

namespace cli {
namespace {

std::optional<NeuronId> parseId(const std::string& text) {
    if (text.empty()) return std::nullopt;
    NeuronId id;
    if (id.fromString(("ID" + text).c_str(), nullptr) && id.isValid()) return id;
    throw Failure{Exit::Usage, "'" + text + "' is not a Neuron ID", "12 hexadecimal digits: 050102030405", {}};
}

void store(Session& session, const std::string& text) {
    Report& report = session.report;
    const auto id = parseId(text);
    const bool dryRun = session.options.dryRun;
    const auto stored = (dryRun ? tavo::planNeuronId : tavo::storeNeuronId)(session.device(), id, session.control());
    const std::string shown = tavo::neuronIdText(stored.id);
    report.result["neuron_id"] = shown;
    report.result["written"] = stored.written && !dryRun;
    if (!dryRun && stored.written) {
        report.state.userFlash = {tavo::Knowledge::Written, "the Neuron ID is in the user flash"};
    }
    if (!stored.written) return report.note(shown + " already stored, nothing written");
    report.note(dryRun ? "would store " + shown + "; nothing was done (--dry-run)" : shown + " stored");
}

}  // namespace

Run declareNeuronIdStore(Arguments& arguments) {
    auto text = std::make_shared<std::string>();
    arguments.optional("HEX12", *text, "the ID; without it the Neuron is asked");
    return [text](Session& session) { store(session, *text); };
}

}  // namespace cli
