#include "sim/sfdp.h"

#include <bit>
#include <iterator>
#include <span>
#include <utility>

namespace sim {

namespace {

constexpr std::uint32_t kSignature = 0x5044'4653;  // "SFDP", least significant byte first
constexpr std::uint32_t kTableAt = 0x80;
constexpr std::size_t kTableWords = 16;

// Typical times stand as a count of 1 to 32 units.
constexpr std::uint64_t kEraseUnits[] = {1'000, 16'000, 128'000, 1'000'000};           // us
constexpr std::uint64_t kChipEraseUnits[] = {16'000, 256'000, 4'000'000, 64'000'000};  // us
constexpr std::uint64_t kPageProgramUnits[] = {8, 64};                                 // us

// The longest time is 2 * (this + 1) times the typical one: 2,240 ms for a block, 4.2 ms for a page.
constexpr std::uint32_t kEraseMultiplier = 6;
constexpr std::uint32_t kProgramMultiplier = 2;

std::uint32_t timeField(std::uint64_t microseconds, std::span<const std::uint64_t> units) {
    constexpr std::uint64_t kMostUnits = 32;
    std::uint32_t unit = 0;
    while (unit + 1 < units.size() && microseconds > kMostUnits * units[unit]) ++unit;
    const std::uint64_t count = (microseconds + units[unit] - 1) / units[unit];
    return unit << 5 | static_cast<std::uint32_t>(count - 1);
}

/// Nothing for more than the whole chip.
std::uint32_t eraseField(const EraseType& type, std::size_t size, std::size_t chipSize) {
    if (size > chipSize) return 0;
    return static_cast<std::uint32_t>(type.opcode) << 8 | static_cast<std::uint32_t>(std::countr_zero(size));
}

}  // namespace

std::vector<std::uint8_t> sfdpOf(std::size_t size, bool lying) {
    std::size_t sizes[] = {kEraseTypes[0].size, kEraseTypes[1].size, kEraseTypes[2].size};
    if (lying) {
        size *= 2;
        std::swap(sizes[0], sizes[2]);
    }
    const auto eraseTime = [](unsigned i) { return timeField(kEraseTypes[i].microseconds, kEraseUnits); };
    const std::uint32_t table[kTableWords] = {
        // 4 KiB erase by 20, pages of 64 bytes or more, 24-bit addresses, no multi-line reads
        0xFF80'00E5 | static_cast<std::uint32_t>(kEraseTypes[0].opcode) << 8,
        static_cast<std::uint32_t>(size * 8 - 1),  // bits
        0,
        0,
        0xFFFF'FFEE,
        0x0000'FFFF,
        0x0000'FFFF,
        eraseField(kEraseTypes[0], sizes[0], size) | eraseField(kEraseTypes[1], sizes[1], size) << 16,
        eraseField(kEraseTypes[2], sizes[2], size),  // and no fourth
        kEraseMultiplier | eraseTime(0) << 4 | eraseTime(1) << 11 | eraseTime(2) << 18,
        kProgramMultiplier | 8u << 4 /* pages of 2^8 bytes */ | timeField(kPageProgramTime, kPageProgramUnits) << 8 |
            3u << 14 | 1u << 18 /* first byte 32 us */ | 2u << 19 /* each further one 3 us */ |
            timeField(chipEraseTime(size), kChipEraseUnits) << 24 | 1u << 31,
        0xFFFF'FFFF,  // no suspend
        0,
        0x8000'00F7,  // no power-down; busy is bit 0 of the status register
        0xFF00'0000,
        0x0000'0081,  // non-volatile status register, Write Enable by 06; no 4-byte addresses
    };
    std::vector<std::uint32_t> words(kTableAt / 4, 0xFFFF'FFFF);
    words[0] = kSignature;
    words[1] = 0xFF00'0106;                                                 // revision 1.6, one parameter header
    words[2] = static_cast<std::uint32_t>(kTableWords) << 24 | 0x01'06'00;  // the basic table, revision 1.6
    words[3] = 0xFF00'0000 | kTableAt;
    words.insert(words.end(), std::begin(table), std::end(table));
    std::vector<std::uint8_t> bytes;
    for (const std::uint32_t word : words) {
        for (unsigned shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    }
    return bytes;
}

}  // namespace sim
