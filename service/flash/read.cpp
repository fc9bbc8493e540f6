#include "service/flash/read.h"

#include <algorithm>
#include <array>

#include "service/flash/access.h"
#include "tavo/service/text.h"

namespace tavo {

Image readChip(Operation& op, const FlashDriver& driver, const FlashChip& chip, Phase phase) {
    requireAddressable(op, chip);
    op.begin(phase, "", chip.size);
    op.step("call: read the flash");
    Image contents;
    std::array<std::uint8_t, kReadChunk> chunk{};
    for (std::uint32_t address = 0; address < chip.size;) {
        op.throwIfCancelled();
        const std::uint32_t size = std::min(kReadChunk, chip.size - address);
        if (const auto status = driver.read(address, chunk.data(), size); status != CY_SUCCESS) {
            op.fail(statusError(cypressToTavo(status), Side::Bridge,
                                "read the flash of " + op.device.name() + " at " + hexAddress(address)));
        }
        contents.add(address, chunk.data(), size);
        address += size;
        op.advance(address);
    }
    op.end(sizeText(chip.size));
    return contents;
}

Format dumpFormat(const std::string& path) {
    const Format format = formatByName(path);
    const auto dot = path.rfind('.');
    const bool packed = dot != std::string::npos && (path.substr(dot) == ".gz" || path.substr(dot) == ".GZ");
    if (packed || format == Format::Elf) {
        throw Error(Problem::BadArgument, path + ": a dump is not written in that format",
                    "choose a name that ends in .hex, .srec or .bin");
    }
    return format == Format::Automatic ? Format::Hex : format;
}

ReadFlashResult readFlash(Device& device, const Control& control) {
    Operation op(device, control);
    auto result = withFlash(op, kSettle, [&](const FlashDriver& driver, const FlashChip& chip) {
        return ReadFlashResult{chip, readChip(op, driver, chip, Phase::Dump), {}};
    });
    waitForBoot(op);
    result.state = op.state;
    return result;
}

}  // namespace tavo
