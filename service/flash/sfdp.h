// What a flash chip tells of itself: serial flash discoverable parameters, JEDEC JESD216.
#pragma once

#include <cstdint>
#include <vector>

#include "service/flash/chip.h"

namespace tavo {

/// Takes a basic parameter table (as many bytes as the chip has of it) over into the chip, if it makes sense
/// beside the size that the ID tells; else chip.sfdpFault says what does not.
void takeSfdp(const std::vector<std::uint8_t>& table, FlashChip& chip);

/// Reads and takes it. A chip without one stays as it is. Throws Error only when cancelled, or when the chip
/// stays busy.
void readSfdp(Operation& op, const FlashDriver& driver, FlashChip& chip);

}  // namespace tavo
