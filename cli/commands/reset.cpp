#include <memory>

#include "cli/commands/commands.h"
#include "cli/session.h"
#include "tavo/neuron.h"

namespace cli {
namespace {

void softly(Session& session) {
    session.progress.begin("soft reset", "waits for the network interface's notice, at most 66 s");
    session.progress.setStopNote("Ctrl-C noted: waiting for the notice, at most 66 s");
    session.call(Side::Neuron, "reset the Neuron by message", [&] { return softReset(session.info()); });
}

void byPin(Session& session) {
    session.progress.begin("reset", "1.5 s, until the Neuron has booted");
    session.call(Side::Bridge, "reset the Neuron", [&] { return hardReset(session.info()); });
}

void reset(Session& session, bool soft) {
    Report& report = session.report;
    if (session.options.dryRun) {
        report.note("would reset the Neuron of " + session.deviceName() + "; nothing was done (--dry-run)");
        return;
    }
    const Stopwatch watch;
    report.stateText = "the Neuron may have been reset";
    soft ? softly(session) : byPin(session);
    session.progress.end();
    throwIfInterrupted();
    report.result["seconds"] = watch.seconds();
    report.note("reset in " + secondsText(watch.seconds()));
}

}  // namespace

Run declareReset(Arguments& arguments) {
    auto soft = std::make_shared<bool>(false);
    arguments.flag("--soft", *soft, "by message instead of the reset line; may take up to 66 s");
    return [soft](Session& session) { reset(session, *soft); };
}

}  // namespace cli
