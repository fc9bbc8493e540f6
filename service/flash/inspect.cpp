#include "service/flash/access.h"

namespace tavo {

FlashChip inspectFlash(Device& device, const Control& control) {
    Operation op(device, control);
    return withFlash(op, kSettle, [](const FlashDriver&, const FlashChip& chip) { return chip; });
}

}  // namespace tavo
