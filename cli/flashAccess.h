// A look at the flash before anything is done to it.
#pragma once

#include <cstdint>
#include <string>

#include "cli/session.h"

namespace cli {

struct FlashChip {
    std::uint8_t maker = 0;  ///< JEDEC manufacturer ID
    std::uint8_t memoryType = 0;
    std::uint8_t capacityCode = 0;
    std::uint32_t size = 0;  ///< bytes
};

/// Takes the flash as the library's operations do, reads its ID and lets go again: a failure here
/// has left the flash as it was, and what the library says afterwards has one meaning less.
/// The Neuron is restarted. Throws Failure.
FlashChip inspectFlash(Session& session);

/// Refuses a chip that 24 address bits cannot reach in whole: reads would wrap unnoticed.
void requireAddressable(const FlashChip& chip);

std::string makerName(std::uint8_t maker);    ///< "Winbond"; empty when unknown
std::string chipText(const FlashChip& chip);  ///< "Winbond EF 40 14, 1 MiB"
/// How long a whole-chip erase of that size takes, from data sheets: "usually 2 to 12 s".
std::string usualEraseTime(std::uint32_t size);

}  // namespace cli
