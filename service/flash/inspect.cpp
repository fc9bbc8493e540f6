#include "service/flash/access.h"

namespace tavo {

FlashChip readFlashChip(Operation& op) {
    return withFlash(op, kSettle, [](const FlashDriver&, const FlashChip& chip) { return chip; });
}

FlashChip inspectFlash(Device& device, const Control& control) {
    Operation op(device, control);
    return readFlashChip(op);
}

}  // namespace tavo
