// What is going to be done to a chip, as a value: made without the device, carried out by programFlash.
#pragma once

#include <cstdint>
#include <vector>

#include "tavo/service/image.h"

namespace tavo {

/// Bytes of the image inside one page.
struct PageWrite {
    std::uint32_t address;
    std::uint32_t size;
};

struct FlashPlan {
    std::vector<PageWrite> writes;  ///< by address; the whole chip is erased before
    std::uint64_t bytes = 0;        ///< of all of them
    std::uint32_t pagesWritten = 0;
    std::uint32_t pagesBlank = 0;  ///< pages of the image that the erase leaves as they are to be
};

FlashPlan makePlan(const Image& image);

/// Seconds that it takes on a 900 kHz SPI bus, without the erase.
double estimate(const FlashPlan& plan);

/// The bytes of one write. Good until the image changes.
inline const std::uint8_t* bytesOf(const Image& image, const PageWrite& write) {
    return image.page(write.address / kPageSize) + write.address % kPageSize;
}

}  // namespace tavo
