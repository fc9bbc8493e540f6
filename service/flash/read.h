// Reading the chip, for every operation that does.
#pragma once

#include "service/flash/chip.h"
#include "service/operation.h"

namespace tavo {

/// Every byte of the chip, in chunks as the library reads them. Ends at the next chunk when cancelled.
/// Throws Error: a chip that cannot be addressed in whole, a transfer that fails.
Image readChip(Operation& op, const FlashDriver& driver, const FlashChip& chip, Phase phase);

}  // namespace tavo
