#include "sim/flashChip.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "sim/sfdp.h"

namespace sim {

namespace {

// Typical time of a W25Q-type chip, in microseconds; those of program and erase stand in sfdp.h.
constexpr std::uint64_t kStatusWriteTime = 10'000;

constexpr std::size_t kHeaderSize = 4;  // command and 24-bit address, most significant byte first

constexpr std::uint8_t kManufacturer = 0xEF;
constexpr std::uint8_t kMemoryType = 0x40;

constexpr std::size_t kMostViolations = 100;

std::size_t sentAddress(const std::uint8_t* header) {
    return static_cast<std::size_t>(header[1] << 16 | header[2] << 8 | header[3]);
}

std::string hex(const char* format, std::size_t value) {
    char text[80];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

void noteViolation(std::vector<std::string>& violations, const std::string& text) {
    if (violations.size() < kMostViolations) violations.push_back(text);
}

struct FlashChip::Command {
    std::uint8_t opcode;
    std::size_t shortest;  // bytes; with fewer the chip does nothing
    Action action;
};

const FlashChip::Command FlashChip::kCommands[] = {
    {0x05, 1, &FlashChip::readStatus},
    {0x03, kHeaderSize, &FlashChip::readData},
    {0x02, kHeaderSize + 1, &FlashChip::pageProgram},
    {0x06, 1, &FlashChip::writeEnable},
    {0x04, 1, &FlashChip::writeDisable},
    {0x01, 2, &FlashChip::writeStatus},
    {0x9F, 1, &FlashChip::readId},
    {0x5A, kHeaderSize + 1, &FlashChip::readSfdp},
    {0x20, kHeaderSize, &FlashChip::blockErase},
    {0x52, kHeaderSize, &FlashChip::blockErase},
    {0xD8, kHeaderSize, &FlashChip::blockErase},
    {0xC7, 1, &FlashChip::chipErase},
    {0x60, 1, &FlashChip::chipErase},
};

FlashChip::FlashChip(std::span<std::uint8_t> memory, int capacity, unsigned polls, const Clock& clock,
                     std::vector<std::string>& violations)
    : cells(memory), capacityCode(capacity), busyPolls(polls), clock_(clock), violations_(violations) {}

void FlashChip::transfer(const std::uint8_t* out, std::uint8_t* in, std::size_t length) {
    if (in != nullptr) std::memset(in, 0xFF, length);  // the output floats, pulled up, until the chip drives it
    if (out == nullptr || length == 0) return;
    obey(out, in, length);
    if (++transfers > diesAfter && in != nullptr) std::memset(in, 0xFF, length);
}

void FlashChip::obey(const std::uint8_t* out, std::uint8_t* in, std::size_t length) {
    const auto* command =
        std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& c) { return c.opcode == out[0]; });
    if (command == std::end(kCommands) || length < command->shortest) return;
    if (command->action != &FlashChip::readStatus && isBusy())
        return note(hex("command 0x%02zX while the flash is busy", out[0]));
    (this->*command->action)(out, in, length);
}

bool FlashChip::isBusy() const {
    return pollsLeft_ > 0 || (busyUntil_ > 0 && clock_.now() < busyUntil_);
}

void FlashChip::writeEnable(const std::uint8_t*, std::uint8_t*, std::size_t) {
    status |= kWriteEnabled;
}

void FlashChip::writeDisable(const std::uint8_t*, std::uint8_t*, std::size_t) {
    status &= static_cast<std::uint8_t>(~kWriteEnabled);
}

void FlashChip::readStatus(const std::uint8_t*, std::uint8_t* in, std::size_t length) {
    const bool busy = isBusy();
    if (pollsLeft_ > 0) --pollsLeft_;
    if (!busy) busyUntil_ = 0;
    // The latch falls when a write cycle ends: a busy chip still shows it.
    const auto value = static_cast<std::uint8_t>(busy ? status | kBusy | kWriteEnabled : status);
    if (in != nullptr) std::memset(in + 1, value, length - 1);
}

void FlashChip::writeStatus(const std::uint8_t* out, std::uint8_t*, std::size_t) {
    if (!takeWriteEnable("Write Status Register")) return;
    status = out[1] & kProtection;
    becomeBusy(kStatusWriteTime);
}

void FlashChip::readId(const std::uint8_t*, std::uint8_t* in, std::size_t length) {
    if (in == nullptr) return;
    const std::uint8_t id[] = {kManufacturer, kMemoryType, static_cast<std::uint8_t>(capacityCode)};
    std::memcpy(in + 1, id, std::min(length - 1, sizeof id));
}

void FlashChip::readData(const std::uint8_t* out, std::uint8_t* in, std::size_t length) {
    ++reads;
    if (in == nullptr) return;
    std::size_t from = address(out);
    for (std::size_t done = kHeaderSize; done < length; from = 0) {
        const std::size_t run = std::min(length - done, cells.size() - from);
        std::memcpy(in + done, cells.data() + from, run);
        done += run;
    }
    for (const Flip& flip : flips) {
        const std::size_t at = kHeaderSize + flip.byte;
        if (flip.read == reads && at < length) in[at] ^= static_cast<std::uint8_t>(1u << flip.bit);
    }
}

void FlashChip::pageProgram(const std::uint8_t* out, std::uint8_t*, std::size_t length) {
    if (!takeWriteEnable("Page Program")) return;
    ++programs;
    if ((status & kBlockProtection) != 0) return;
    ++changes;
    becomeBusy(kPageProgramTime);
    if (std::find(lostPrograms.begin(), lostPrograms.end(), programs) != lostPrograms.end()) return;
    const std::size_t first = address(out);
    std::uint8_t* page = cells.data() + (first & ~(kPageSize - 1));
    std::size_t at = first % kPageSize;
    // Of more than a page of data the chip keeps the last 256 bytes.
    const std::size_t count = length - kHeaderSize;
    const std::size_t surplus = count > kPageSize ? count - kPageSize : 0;
    at = (at + surplus) % kPageSize;
    std::uint8_t lost = 0;
    for (const std::uint8_t *data = out + kHeaderSize + surplus, *end = out + length; data < end;) {
        const std::size_t run = std::min(static_cast<std::size_t>(end - data), kPageSize - at);
        for (std::size_t i = 0; i < run; ++i) {
            lost |= static_cast<std::uint8_t>(data[i] & ~page[at + i]);
            page[at + i] &= data[i];
        }
        data += run;
        at = 0;
    }
    if (lost != 0) note(hex("Page Program at 0x%06zX over bytes that are not erased", first));
}

void FlashChip::readSfdp(const std::uint8_t* out, std::uint8_t* in, std::size_t length) {
    if (in == nullptr || sfdp == Sfdp::None) return;
    const std::vector<std::uint8_t> table = sfdpOf(cells.size(), sfdp == Sfdp::Lying);
    const std::size_t from = sentAddress(out);
    if (from >= table.size()) return;
    constexpr std::size_t kData = kHeaderSize + 1;  // a dummy byte follows the address
    std::memcpy(in + kData, table.data() + from, std::min(length - kData, table.size() - from));
}

void FlashChip::blockErase(const std::uint8_t* out, std::uint8_t*, std::size_t) {
    const auto* type = std::find_if(std::begin(kEraseTypes), std::end(kEraseTypes),
                                    [&](const EraseType& each) { return each.opcode == out[0]; });
    eraseRange(type->name, out, type->size, type->microseconds);
}

void FlashChip::chipErase(const std::uint8_t*, std::uint8_t*, std::size_t) {
    eraseRange("Chip Erase", nullptr, cells.size(), chipEraseTime(cells.size()));
}

void FlashChip::eraseRange(const char* command, const std::uint8_t* out, std::size_t size, std::uint64_t microseconds) {
    if (!takeWriteEnable(command)) return;
    ++erases;
    if ((status & kBlockProtection) != 0) return;
    ++changes;
    becomeBusy(microseconds);
    if (std::find(lostErases.begin(), lostErases.end(), erases) != lostErases.end()) return;
    size = std::min(size, cells.size());
    const std::size_t from = out == nullptr ? 0 : address(out) & ~(size - 1);
    std::memset(cells.data() + from, 0xFF, size);
}

bool FlashChip::takeWriteEnable(const char* command) {
    const bool enabled = (status & kWriteEnabled) != 0;
    if (!enabled) note(std::string(command) + " without Write Enable");
    status &= static_cast<std::uint8_t>(~kWriteEnabled);
    return enabled;
}

void FlashChip::becomeBusy(std::uint64_t microseconds) {
    pollsLeft_ = busyPolls;
    if (clock_.isPaced()) busyUntil_ = clock_.now() + microseconds;
}

std::size_t FlashChip::address(const std::uint8_t* header) const {
    return sentAddress(header) & (cells.size() - 1);
}

void FlashChip::note(const std::string& text) {
    noteViolation(violations_, text);
}

}  // namespace sim
