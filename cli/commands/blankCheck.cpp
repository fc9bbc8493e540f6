#include <memory>

#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

void blankCheck(Session& session, const tavo::BlankCheckOptions& options) {
    Report& report = session.report;
    if (session.options.dryRun) return report.note("would read the flash of " + session.deviceName());
    const auto check = tavo::blankCheckFlash(session.device(), options, session.control());
    session.report.state = check.state;
    report.result["blank"] = check.blank;
    report.result["first"] = nullptr;
    report.result["pages"] = check.pages;
    report.result["complete"] = check.isComplete;
    if (check.blank) return report.note("blank: " + sizeText(check.chip.size) + " of FF");
    session.exit = Exit::Differs;
    report.result["first"] = *check.first;
    report.line("not blank: first at " + hexAddress(*check.first) + " (" + (check.isComplete ? "" : "at least ") +
                countText(check.pages, "page") + (check.isComplete ? ")" : "; --every counts all)"));
}

}  // namespace

Run declareBlankCheck(Arguments& arguments) {
    auto options = std::make_shared<tavo::BlankCheckOptions>();
    arguments.flag("--every", options->every, "read on after the first byte, and count every page with data");
    return [options](Session& session) { blankCheck(session, *options); };
}

}  // namespace cli
