#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/keptBackup.h"
#include "cli/commands/range.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

struct Options {
    RangeArguments range;
    tavo::EraseOptions how;
};

void erase(Session& session, Options& options) {
    tavo::EraseOptions& how = options.how;
    Report& report = session.report;
    how.range = takeRange(session, options.range);
    if (session.options.dryRun) {
        report.result["planned"] = {"erase"};
        report.note("would erase " + partText(how.range) + " of " + session.deviceName() + "; nothing was done");
        return;
    }
    const auto done = tavo::eraseFlash(session.device(), how, session.control());
    session.report.state = done.state;
    report.result["seconds"] = done.seconds;
    tellKept(report, done.backup);
    report.result["sectors_erased"] = done.sectorsErased;
    report.note(
        "erased " +
        (how.range ? sizeText(how.range->size()) + " (" + rangeText(*how.range) + ")" : sizeText(done.chip.size)) +
        " in " + secondsText(done.seconds));
}

}  // namespace

Run declareErase(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    declareRange(arguments, "erase only a part, on borders of sectors", options->range);
    declareClock(arguments, options->how.clockHz);
    arguments.text("--backup", "OUT", options->how.backup,
                   "read the flash first and save it in OUT; {serial} is replaced");
    arguments.isOutput(options->how.backup);
    arguments.flag("--no-backup", options->how.noBackup, "with --backup: keep it in OUT only");
    arguments.asks([options] { return "erase " + partText(options->range.parsed()); });
    return [options](Session& session) { erase(session, *options); };
}

}  // namespace cli
