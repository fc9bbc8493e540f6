#include <memory>

#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

void reset(Session& session, bool soft) {
    Report& report = session.report;
    if (session.options.dryRun) {
        return report.note("would reset the Neuron of " + session.deviceName() + "; nothing was done (--dry-run)");
    }
    const auto by = soft ? tavo::ResetBy::Message : tavo::ResetBy::Line;
    const double seconds = tavo::reset(session.device(), by, session.control());
    report.result["seconds"] = seconds;
    report.state.node = {tavo::Knowledge::Unchanged, "the Neuron was restarted"};
    report.note("reset in " + tavo::secondsText(seconds));
}

}  // namespace

Run declareReset(Arguments& arguments) {
    auto soft = std::make_shared<bool>(false);
    arguments.flag("--soft", *soft, "by message instead of the reset line; may take up to 66 s");
    return [soft](Session& session) { reset(session, *soft); };
}

}  // namespace cli
