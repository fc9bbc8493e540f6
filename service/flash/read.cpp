#include "service/flash/read.h"

#include <algorithm>
#include <array>

#include "service/flash/access.h"
#include "tavo/service/text.h"

namespace tavo {

namespace {

// What a transfer costs beside its bytes, in bytes of the 900 kHz bus: a few USB frames.
constexpr std::uint32_t kShortGap = 512;

bool isBlank(const std::uint8_t* data, std::uint32_t size) {
    return std::all_of(data, data + size, [](std::uint8_t byte) { return byte == 0xFF; });
}

}  // namespace

void FlashReader::fail(CY_RETURN_STATUS status, std::uint32_t address) const {
    op_.fail(statusError(cypressToTavo(status), Side::Bridge,
                         "read the flash of " + op_.device.name() + " at " + hexAddress(address)));
}

void FlashReader::fallBack(const std::string& why) {
    isLong_ = false;
    op_.step("long reads are left: " + why);
    op_.warn("a long read of the flash " + why + ": short reads are used, which take longer",
             "if this is told again, try another cable or USB port");
}

void FlashReader::readShort(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const {
    for (std::uint32_t done = 0; done < size;) {
        op_.throwIfCancelled();
        const std::uint32_t count = std::min(kReadChunk, size - done);
        if (const auto status = driver_.read(address + done, data + done, count); status != CY_SUCCESS)
            fail(status, address + done);
        done += count;
    }
}

bool FlashReader::readLong(std::uint32_t address, std::uint8_t* data, std::uint32_t size) {
    if (trust_ == Trust::None) {
        if (const auto status = driver_.waitUntilReadable(); status != CY_SUCCESS) fail(status, address);
    }
    if (const auto status = driver_.readLong(address, data, size); status != CY_SUCCESS) {
        if (trust_ != Trust::None) fail(status, address);
        fallBack(std::string("failed (") + tavoStatusString(cypressToTavo(status)) + ")");
        return false;
    }
    const bool blank = isBlank(data, size);
    if (trust_ == Trust::Full || (trust_ == Trust::Blank && blank)) return true;
    // A transfer that breaks off reads FF: what is blank says little of it.
    std::array<std::uint8_t, kLongRead> same{};
    readShort(address, same.data(), size);
    trust_ = blank ? Trust::Blank : Trust::Full;
    if (std::equal(same.begin(), same.begin() + size, data)) return true;
    fallBack("differs from short ones at " + hexAddress(address));
    return false;
}

void FlashReader::read(std::uint32_t address, std::uint8_t* data, std::uint32_t size) {
    op_.throwIfCancelled();
    if (isLong_ && size > kReadChunk && readLong(address, data, size)) return;
    readShort(address, data, size);
}

Image readRanges(Operation& op, FlashReader& reader, const std::vector<AddressRange>& ranges, Phase phase,
                 const std::function<bool(const Image&, const AddressRange&)>& more) {
    std::uint64_t total = 0;
    for (const AddressRange& range : ranges) total += range.size();
    op.begin(phase, "", total);
    op.step("call: read the flash");
    Image contents;
    std::vector<std::uint8_t> chunk(kLongRead);
    std::uint64_t done = 0;
    for (const AddressRange& range : ranges) {
        for (std::uint64_t address = range.first; address <= range.last;) {
            const auto first = static_cast<std::uint32_t>(address);
            const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(kLongRead, range.last + 1 - address));
            reader.read(first, chunk.data(), size);
            contents.add(first, chunk.data(), size);
            address += size;
            op.advance(done += size);
            if (!more || more(contents, {first, first + size - 1})) continue;
            op.end("stopped after " + sizeText(done));
            return contents;
        }
    }
    op.end(sizeText(total));
    return contents;
}

Image readChip(Operation& op, FlashReader& reader, const FlashChip& chip, Phase phase) {
    requireAddressable(op, chip);
    return readRanges(op, reader, {{0, chip.size - 1}}, phase);
}

std::vector<AddressRange> readableRanges(const Image& image) {
    std::vector<AddressRange> joined;
    for (const AddressRange& range : image.ranges()) {
        if (!joined.empty() && range.first - joined.back().last <= kShortGap)
            joined.back().last = range.last;
        else
            joined.push_back(range);
    }
    return joined;
}

Format dumpFormat(const std::string& path) {
    return formatToWrite(path);
}

ReadFlashResult readFlash(Device& device, const ReadFlashOptions& options, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        auto result = withFlash(op, kSettle, options.clockHz, [&](const FlashDriver& driver, const FlashChip& chip) {
            FlashReader reader(op, driver);
            const AddressRange part = partOf(op, chip, options.range);
            return ReadFlashResult{chip, readRanges(op, reader, {part}, Phase::Dump), {}};
        });
        waitForBoot(op);
        result.state = op.state;
        return result;
    });
}

}  // namespace tavo
