#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

void erase(Session& session) {
    Report& report = session.report;
    if (session.options.dryRun) {
        report.result["planned"] = {"erase"};
        report.note("would erase the whole flash of " + session.deviceName() + "; nothing was done");
        return;
    }
    const auto done = tavo::eraseFlash(session.device(), session.control());
    session.report.state = done.state;
    report.result["seconds"] = done.seconds;
    report.note("erased " + sizeText(done.chip.size) + " in " + secondsText(done.seconds));
}

}  // namespace

Run declareErase(Arguments&) {
    return erase;
}

}  // namespace cli
