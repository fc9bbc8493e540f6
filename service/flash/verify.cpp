#include "service/flash/access.h"
#include "service/flash/read.h"

namespace tavo {
namespace {

VerifyResult readAndCompare(Operation& op, const FlashDriver& driver, const FlashChip& chip, const Image& image,
                            const VerifyOptions& options) {
    const bool whole = options.restBlank || options.whole;
    const auto part = whole || options.range ? std::optional(partOf(op, chip, options.range)) : std::nullopt;
    requireFits(op, image, chip, options.imageName, options.file);
    const auto ranges = whole ? std::vector<AddressRange>{*part} : readableRanges(image);
    VerifyResult found;
    found.chip = chip;
    std::uint32_t last = 0;
    const auto more = [&](const Image& contents, const AddressRange& now) {
        last = now.last;
        return options.every || compare(image, contents, now, options.restBlank).equal();
    };
    FlashReader reader(op, driver);
    found.contents = readRanges(op, reader, ranges, Phase::Read, more);
    found.comparison = compare(image, found.contents, AddressRange{0, last}, options.restBlank);
    found.isComplete = ranges.empty() || last == ranges.back().last;
    return found;
}

}  // namespace

VerifyResult verifyFlash(Device& device, const Image& image, const VerifyOptions& options, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        const bool needsData = options.range && !options.restBlank && !options.whole;
        std::optional<Image> part;
        if (options.range) part = partOfImage(image, *options.range, options.imageName, needsData);
        const Image& wanted = part ? *part : image;
        auto result = withFlash(op, kSettle, options.clockHz, [&](const FlashDriver& driver, const FlashChip& chip) {
            return readAndCompare(op, driver, chip, wanted, options);
        });
        waitForBoot(op);
        result.state = op.state;
        return result;
    });
}

}  // namespace tavo
