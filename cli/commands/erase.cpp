#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/range.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

void erase(Session& session, const RangeArguments& range) {
    Report& report = session.report;
    tavo::EraseOptions how;
    how.range = takeRange(session, range);
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
    auto range = std::make_shared<RangeArguments>();
    declareRange(arguments, "erase only a part, on borders of sectors", *range);
    arguments.asks([range] { return "erase " + partText(range->parsed()); });
    return [range](Session& session) { erase(session, *range); };
}

}  // namespace cli
