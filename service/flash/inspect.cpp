#include "service/flash/access.h"
#include "service/flash/sfdp.h"

namespace tavo {

FlashChip readFlashChip(Operation& op) {
    return withFlash(op, kSettle, [&](const FlashDriver& driver, FlashChip chip) {
        readSfdp(op, driver, chip);
        return chip;
    });
}

FlashChip inspectFlash(Device& device, const Control& control) {
    return operate(device, control, [&](Operation& op) { return readFlashChip(op); });
}

}  // namespace tavo
