#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

void servicePin(Session& session) {
    Report& report = session.report;
    if (session.options.dryRun) {
        return report.note("would press the service pin of " + session.deviceName() + "; nothing was done (--dry-run)");
    }
    report.result["seconds"] = tavo::pressServicePin(session.device(), session.control());
    report.state.node = {tavo::Knowledge::Unchanged, "the service pin was pressed"};
    report.note("service pin pressed");
}

}  // namespace

Run declareServicePin(Arguments&) {
    return servicePin;
}

}  // namespace cli
