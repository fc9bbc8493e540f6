// Reading the chip, for every operation that does.
#pragma once

#include <functional>
#include <vector>

#include "service/flash/chip.h"
#include "service/operation.h"

namespace tavo {

/// Reads by transfers as long as the bridge takes them. The first one, and the first that holds something, are
/// compared with the same bytes read by short ones: a bridge or a cable that is not good for long transfers is
/// told (a warning), and the rest of the run is read by short ones.
class FlashReader {
public:
    /// Both borrowed.
    FlashReader(Operation& op, const FlashDriver& driver) : op_(op), driver_(driver) {}

    /// size: at most kLongRead. Ends when cancelled. Throws Error.
    void read(std::uint32_t address, std::uint8_t* data, std::uint32_t size);

private:
    enum class Trust : std::uint8_t { None, Blank, Full };

    void readShort(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const;
    /// False: neither this long read nor a later one is to be believed.
    bool readLong(std::uint32_t address, std::uint8_t* data, std::uint32_t size);
    void fallBack(const std::string& why);
    [[noreturn]] void fail(CY_RETURN_STATUS status, std::uint32_t address) const;

    Operation& op_;
    const FlashDriver& driver_;
    bool isLong_ = true;
    Trust trust_ = Trust::None;
};

/// Reads these ranges, by address, in one phase. more: looked at after each chunk with what was read until
/// then; false ends it. Throws Error; ends when cancelled.
Image readRanges(Operation& op, FlashReader& reader, const std::vector<AddressRange>& ranges, Phase phase,
                 const std::function<bool(const Image&, const AddressRange&)>& more = nullptr);

/// Every byte of the chip. Throws Error: a chip that cannot be addressed in whole, a transfer that fails.
Image readChip(Operation& op, FlashReader& reader, const FlashChip& chip, Phase phase);

/// The ranges of an image, those close to each other as one: reading the gap is shorter than another transfer.
std::vector<AddressRange> readableRanges(const Image& image);

}  // namespace tavo
