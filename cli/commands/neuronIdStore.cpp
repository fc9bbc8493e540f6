#include <memory>

#include "cli/commands/commands.h"
#include "cli/session.h"
#include "tavo/bridge.h"
#include "tavo/neuron.h"
#include "tavo/service/device.h"

namespace cli {
namespace {

NeuronId parseId(const std::string& text) {
    NeuronId id;
    if (id.fromString(("ID" + text).c_str(), nullptr) && id.isValid()) return id;
    throw Failure{Exit::Usage, "'" + text + "' is not a Neuron ID", "12 hexadecimal digits: 050102030405", {}};
}

void store(Session& session, const std::string& text) {
    Report& report = session.report;
    NeuronId id;
    if (!text.empty()) {
        id = parseId(text);
    } else {
        session.call(Side::Neuron, "read the Neuron ID", [&] { return readNeuronId(session.info(), id); });
    }
    report.result["neuron_id"] = neuronIdText(id);
    report.result["written"] = false;
    if (session.info().neuronIdValid != 0 && id == session.info().neuronId) {
        report.note(neuronIdText(id) + " already stored, nothing written");
        return;
    }
    if (session.options.dryRun) {
        report.note("would store " + neuronIdText(id) + "; nothing was done (--dry-run)");
        return;
    }
    session.call(Side::Bridge, "store the Neuron ID", [&] { return writeNeuronId(session.info(), neuronIdText(id)); });
    report.result["written"] = true;
    report.note(neuronIdText(id) + " stored");
}

}  // namespace

Run declareNeuronIdStore(Arguments& arguments) {
    auto text = std::make_shared<std::string>();
    arguments.optional("HEX12", *text, "the ID; without it the Neuron is asked");
    return [text](Session& session) { store(session, *text); };
}

}  // namespace cli
