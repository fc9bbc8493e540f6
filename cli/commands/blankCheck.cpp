#include "cli/commands/commands.h"
#include "cli/flashRead.h"
#include "cli/session.h"

namespace cli {
namespace {

void blankCheck(Session& session) {
    Report& report = session.report;
    if (session.options.dryRun) return report.note("would read the flash of " + session.deviceName());
    const FlashChip chip = inspectFlash(session);
    requireAddressable(chip);
    const Image image = readChip(session, chip);
    const Comparison comparison = compare(Image(), image, chip.size, true);
    report.result["blank"] = comparison.equal();
    report.result["first"] = nullptr;
    report.result["pages"] = comparison.pages;
    if (comparison.equal()) return report.note("blank: " + sizeText(chip.size) + " of FF");
    session.exit = Exit::Differs;
    const Difference& first = comparison.differences.front();
    report.result["first"] = first.range.first;
    report.line("not blank: first at " + hexAddress(first.range.first) + " (" + countText(comparison.pages, "page") +
                ")");
}

}  // namespace

Run declareBlankCheck(Arguments&) {
    return blankCheck;
}

}  // namespace cli
