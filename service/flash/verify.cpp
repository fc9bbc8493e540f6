#include "service/flash/access.h"
#include "service/flash/read.h"

namespace tavo {

VerifyResult verifyFlash(Device& device, const Image& image, const VerifyOptions& options, const Control& control) {
    Operation op(device, control);
    auto result = withFlash(op, kSettle, [&](const FlashDriver& driver, const FlashChip& chip) {
        requireAddressable(op, chip);
        requireFits(op, image, chip, options.imageName, options.file);
        Image contents = readChip(op, driver, chip, Phase::Read);
        Comparison comparison = compare(image, contents, chip.size, options.restBlank);
        return VerifyResult{chip, std::move(comparison), std::move(contents), {}};
    });
    waitForBoot(op);
    result.state = op.state;
    return result;
}

}  // namespace tavo
