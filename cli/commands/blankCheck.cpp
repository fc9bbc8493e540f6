#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

void blankCheck(Session& session) {
    Report& report = session.report;
    if (session.options.dryRun) return report.note("would read the flash of " + session.deviceName());
    const auto check = tavo::blankCheckFlash(session.device(), session.control());
    session.report.state = check.state;
    report.result["blank"] = check.blank;
    report.result["first"] = nullptr;
    report.result["pages"] = check.pages;
    if (check.blank) return report.note("blank: " + sizeText(check.chip.size) + " of FF");
    session.exit = Exit::Differs;
    report.result["first"] = *check.first;
    report.line("not blank: first at " + hexAddress(*check.first) + " (" + countText(check.pages, "page") + ")");
}

}  // namespace

Run declareBlankCheck(Arguments&) {
    return blankCheck;
}

}  // namespace cli
