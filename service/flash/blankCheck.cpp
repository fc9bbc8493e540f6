#include "service/flash/access.h"
#include "service/flash/read.h"

namespace tavo {
namespace {

BlankCheckResult findData(Operation& op, const FlashDriver& driver, const FlashChip& chip,
                          const BlankCheckOptions& options) {
    const AddressRange part = partOf(op, chip, options.range);
    const Image nothing;
    BlankCheckResult found;
    found.chip = chip;
    FlashReader reader(op, driver);
    const auto more = [&](const Image& contents, const AddressRange& now) {
        const Comparison data = compare(nothing, contents, now, true);
        found.pages += data.pages;
        if (!data.equal() && !found.first) found.first = data.differences.front().range.first;
        found.isComplete = now.last == part.last;
        return options.every || !found.first;
    };
    found.contents = readRanges(op, reader, {part}, Phase::Read, more);
    found.blank = !found.first;
    return found;
}

}  // namespace

BlankCheckResult blankCheckFlash(Device& device, const BlankCheckOptions& options, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        auto result = withFlash(op, kSettle, options.clockHz, [&](const FlashDriver& driver, const FlashChip& chip) {
            return findData(op, driver, chip, options);
        });
        waitForBoot(op);
        result.state = op.state;
        return result;
    });
}

}  // namespace tavo
