#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/range.h"
#include "cli/output/map.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

struct Options {
    RangeArguments range;
    bool map = false;
    tavo::BlankCheckOptions how;
};

void tell(Session& session, const tavo::BlankCheckResult& check, const std::optional<tavo::AddressRange>& range) {
    Report& report = session.report;
    report.result["blank"] = check.blank;
    report.result["first"] = nullptr;
    report.result["pages"] = check.pages;
    report.result["complete"] = check.isComplete;
    const std::uint64_t size = range ? range->size() : check.chip.size;
    if (check.blank)
        return report.note("blank: " + sizeText(size) + " of FF" + (range ? " in " + rangeText(*range) : ""));
    session.exit = Exit::Differs;
    report.result["first"] = *check.first;
    report.line("not blank: first at " + hexAddress(*check.first) + " (" + (check.isComplete ? "" : "at least ") +
                countText(check.pages, "page") + (check.isComplete ? ")" : "; --every counts all)"));
}

void blankCheck(Session& session, Options& options) {
    options.how.range = takeRange(session, options.range);
    if (session.options.dryRun)
        return session.report.note("would read " + partText(options.how.range) + " of " + session.deviceName());
    options.how.every = options.how.every || options.map;
    const auto check = tavo::blankCheckFlash(session.device(), options.how, session.control());
    session.report.state = check.state;
    tell(session, check, options.how.range);
    if (options.map) tellMap(session.report, tavo::mapContents(check.contents, check.chip.size));
}

}  // namespace

Run declareBlankCheck(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    declareRange(arguments, "look only at a part", options->range);
    arguments.flag("--every", options->how.every, "read on after the first byte, and count every page with data");
    arguments.flag("--map", options->map, "the same, and draw where the data are");
    declareClock(arguments, options->how.clockHz);
    return [options](Session& session) { blankCheck(session, *options); };
}

}  // namespace cli
