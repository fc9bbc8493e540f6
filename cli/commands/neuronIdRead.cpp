#include "cli/commands/commands.h"
#include "cli/session.h"
#include "tavo/neuron.h"
#include "tavo/service/device.h"

namespace cli {
namespace {

void readId(Session& session) {
    NeuronId id;
    session.call(Side::Neuron, "read the Neuron ID", [&] { return readNeuronId(session.info(), id); });
    session.report.result["neuron_id"] = neuronIdText(id);
    session.report.line(neuronIdText(id));
}

}  // namespace

Run declareNeuronIdRead(Arguments&) {
    return readId;
}

}  // namespace cli
