#include "service/flash/access.h"
#include "service/flash/read.h"

namespace tavo {

BlankCheckResult blankCheckFlash(Device& device, const Control& control) {
    Operation op(device, control);
    auto result = withFlash(op, kSettle, [&](const FlashDriver& driver, const FlashChip& chip) {
        const Image contents = readChip(op, driver, chip, Phase::Read);
        const Comparison comparison = compare(Image(), contents, chip.size, true);
        BlankCheckResult found;
        found.chip = chip;
        found.blank = comparison.equal();
        found.pages = comparison.pages;
        if (!found.blank) found.first = comparison.differences.front().range.first;
        return found;
    });
    waitForBoot(op);
    result.state = op.state;
    return result;
}

}  // namespace tavo
