#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/range.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

struct Options {
    RangeArguments range;
    std::optional<int> clockHz;
};

void erase(Session& session, const Options& options) {
    Report& report = session.report;
    tavo::EraseOptions how;
    how.clockHz = options.clockHz;
    how.range = takeRange(session, options.range);
    if (session.options.dryRun) {
        report.result["planned"] = {"erase"};
        report.note("would erase " + partText(how.range) + " of " + session.deviceName() + "; nothing was done");
        return;
    }
    const auto done = tavo::eraseFlash(session.device(), how, session.control());
    session.report.state = done.state;
    report.result["seconds"] = done.seconds;
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
    declareClock(arguments, options->clockHz);
    arguments.asks([options] { return "erase " + partText(options->range.parsed()); });
    return [options](Session& session) { erase(session, *options); };
}

}  // namespace cli
