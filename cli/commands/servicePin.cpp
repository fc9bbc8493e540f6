#include "cli/commands/commands.h"
#include "cli/session.h"
#include "tavo/neuron.h"

namespace cli {
namespace {

void servicePin(Session& session) {
    Report& report = session.report;
    if (session.options.dryRun) {
        report.note("would press the service pin of " + session.deviceName() + "; nothing was done (--dry-run)");
        return;
    }
    const Stopwatch watch;
    session.call(Side::Bridge, "press the service pin", [&] { return sendServicePin(session.info()); });
    report.result["seconds"] = watch.seconds();
    report.note("service pin pressed");
}

}  // namespace

Run declareServicePin(Arguments&) {
    return servicePin;
}

}  // namespace cli
