#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

void readId(Session& session) {
    const std::string id = tavo::neuronIdText(tavo::readNeuronId(session.device(), session.control()));
    session.report.result["neuron_id"] = id;
    session.report.line(id);
}

}  // namespace

Run declareNeuronIdRead(Arguments&) {
    return readId;
}

}  // namespace cli
