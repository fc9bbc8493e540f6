// What is going to be done to a chip, as a value: made without the device, carried out by programFlash.
#pragma once

#include <cstdint>
#include <vector>

#include "service/flash/chip.h"
#include "tavo/service/flash.h"
#include "tavo/service/image.h"

namespace tavo {

/// Bytes to be programmed inside one page.
struct PageWrite {
    std::uint32_t address;
    std::uint32_t size;
};

struct BlockErase {
    std::uint32_t address;
    EraseType type;
};

struct FlashPlan {
    ProgramWay way = ProgramWay::Full;
    std::vector<BlockErase> erases;  ///< by address; none when the whole chip is erased
    std::vector<PageWrite> writes;   ///< by address, one a page at most
    std::vector<bool> compared;      ///< by page: is to be read and compared after the last write
    std::uint32_t pagesKept = 0;     ///< of the image, with data, that hold it already
    double seconds = 0;              ///< of erases, writes and comparing, on a full-speed bus
};

/// Erases the chip and programs every page with data.
FlashPlan planFull(const FlashChip& chip, const Image& image, std::uint32_t clockHz = kUsualClockHz);

/// The shortest way from what the chip holds (all of it) to the image, FF elsewhere.
FlashPlan planProgram(const FlashChip& chip, const Image& image, const Image& before,
                      std::uint32_t clockHz = kUsualClockHz);

/// The same without a whole erase, unless the chip tells of no sectors: for an image of all that the chip holds.
FlashPlan planKeeping(const FlashChip& chip, const Image& image, const Image& before,
                      std::uint32_t clockHz = kUsualClockHz);

/// What to read of a chip, in that order: first some of it all over, of what the image covers and of the rest,
/// by which isFullShorter may judge; then the others.
struct ReadOrder {
    std::vector<AddressRange> ranges;
    std::uint32_t samples = 0;  ///< so many of them come first; 0: it is read as a whole
};
ReadOrder readOrder(const FlashChip& chip, const Image& image);

/// Whether the whole erase is going to be shorter than reading the rest of the chip and working by sectors, if
/// the rest is like what was read. Never while no more is known than what the image has.
bool isFullShorter(const FlashChip& chip, const Image& image, const Image& read, std::uint32_t clockHz = kUsualClockHz);

/// Seconds of a sector of 4 KiB that is erased and programmed, by usual times.
double sectorSeconds(std::uint32_t clockHz = kUsualClockHz);

/// Seconds that reading so many bytes takes.
double readSeconds(std::uint64_t bytes, std::uint32_t clockHz = kUsualClockHz);

/// A page as the chip is to hold it: FF where the image has no byte. Good until the image changes.
const std::uint8_t* pageOf(const Image& image, std::uint32_t index);

/// The bytes of one write. Good until the image changes.
inline const std::uint8_t* bytesOf(const Image& image, const PageWrite& write) {
    return pageOf(image, write.address / kPageSize) + write.address % kPageSize;
}

}  // namespace tavo
