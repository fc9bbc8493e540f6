// Erasing a part of the chip by its sectors.
#include "service/flash/access.h"
#include "service/flash/journal.h"
#include "service/flash/read.h"
#include "tavo/service/history.h"
#include "tavo/service/range.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

/// What every chip has that tells nothing of itself: sector erase, 4 KiB.
constexpr EraseType kSector{0x20, 4096, 0, 0};
/// An erase that takes more than the chip says takes this at most.
constexpr std::uint32_t kLargestBlock = 0x10000;

Error offTheBorders(const AddressRange& range, std::uint32_t sector) {
    const auto nearest = alignedRanges(range, sector);
    std::string hint = "give --range " + rangeText(nearest.front());
    if (nearest.size() > 1) hint += " or --range " + rangeText(nearest.back());
    return {Problem::BadArgument,
            "the range " + rangeText(range) + " does not begin and end where sectors of " + sizeText(sector) + " do",
            hint};
}

class RangeErase {
public:
    RangeErase(Operation& op, const FlashDriver& driver, const FlashChip& chip, const AddressRange& range,
               std::string backup)
        : op_(op), driver_(driver), chip_(chip), range_(range), backup_(std::move(backup)), reader_(op, driver) {}

    std::uint32_t run();

private:
    std::vector<AddressRange> around() const;
    const EraseType& largestAt(std::uint64_t address) const;
    TAVO_STATUS eraseSectors();
    void requireJustThat(const std::vector<AddressRange>& around, const Image& before);

    Operation& op_;
    const FlashDriver& driver_;
    const FlashChip& chip_;
    const AddressRange range_;
    const std::string backup_;  // file of what was there before
    FlashReader reader_;
    std::vector<EraseType> types_;  // smallest first
    std::uint32_t sectors_ = 0;
};

/// Neighbours that an erase of more than the range would take too.
std::vector<AddressRange> RangeErase::around() const {
    const AddressRange all = alignedRanges(range_, kLargestBlock).front();
    const std::uint32_t last = std::min(all.last, chip_.size - 1);
    std::vector<AddressRange> found;
    if (all.first < range_.first) found.push_back({all.first, range_.first - 1});
    if (range_.last < last) found.push_back({range_.last + 1, last});
    return found;
}

const EraseType& RangeErase::largestAt(std::uint64_t address) const {
    for (auto type = types_.rbegin(); type != types_.rend(); ++type) {
        if (address % type->size == 0 && address + type->size <= std::uint64_t{range_.last} + 1) return *type;
    }
    return types_.front();
}

TAVO_STATUS RangeErase::eraseSectors() {
    op_.state.flash = FlashState::Uncertain;
    if (const auto status = driver_.unprotect(); status != CY_SUCCESS) return cypressToTavo(status);
    for (std::uint64_t at = range_.first; at <= range_.last; ++sectors_) {
        op_.throwIfCancelled();
        op_.state.flash = FlashState::Incomplete;
        const EraseType& type = largestAt(at);
        const auto status = driver_.eraseBlock(type, static_cast<std::uint32_t>(at));
        if (status != CY_SUCCESS) return cypressToTavo(status);
        op_.advance((at += type.size) - range_.first);
    }
    return TAVO_SUCCESS;
}

/// A chip may do nothing, or more than it says.
void RangeErase::requireJustThat(const std::vector<AddressRange>& around, const Image& before) {
    const Image contents = readRanges(op_, reader_, {range_}, Phase::Verify);
    const Comparison left = compare(Image(), contents, range_, true);
    if (!left.equal()) {
        op_.fail(Error(
            Problem::DeviceFailed,
            "the erase of " + op_.device.name() + " left data at " + hexAddress(left.differences.front().range.first),
            "repeat it, or erase the whole flash: tavo-util erase"));
    }
    const Image after = readRanges(op_, reader_, around, Phase::Verify);
    for (const AddressRange& each : around) {
        const Comparison changed = compare(before, after, each, true);
        if (changed.equal()) continue;
        op_.fail(Error(Problem::DeviceFailed,
                       "the erase of " + rangeText(range_) + " changed " +
                           hexAddress(changed.differences.front().range.first) + " too",
                       "program the image again before the interface is used"));
    }
}

std::uint32_t RangeErase::run() {
    types_ = chip_.eraseTypes.empty() ? std::vector{kSector} : chip_.eraseTypes;
    if (alignedRanges(range_, types_.front().size).front() != range_)
        op_.fail(offTheBorders(range_, types_.front().size));
    const auto neighbours = around();
    const Image before = readRanges(op_, reader_, neighbours, Phase::Read);
    // A run that was cut off stays in mind: this does not put it right.
    const bool isCutOff = interruptedRun(op_.device.description()).has_value();
    op_.throwIfCancelled();
    op_.begin(Phase::Erase, "", range_.size());
    const TAVO_STATUS status = op_.tryCall("erase a part of the flash", [&] {
        if (!isCutOff) rememberChange(op_, {}, {}, backup_);
        return eraseSectors();
    });
    if (status != TAVO_SUCCESS) {
        Error error = statusError(status, Side::Bridge, "erase " + rangeText(range_) + " of " + op_.device.name());
        error.hint = "repeat the erase, or program an image; replug the interface if that fails too";
        op_.fail(error);
    }
    op_.end();
    requireJustThat(neighbours, before);
    if (!isCutOff) forgetChange(op_);  // it is what was wanted
    return sectors_;
}

}  // namespace

std::uint32_t erasePart(Operation& op, const FlashDriver& driver, const FlashChip& chip, const AddressRange& range,
                        const std::string& backup) {
    return RangeErase(op, driver, chip, range, backup).run();
}

}  // namespace tavo
