// What a flash chip tells of itself: serial flash discoverable parameters, JEDEC JESD216B.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

/// What the opcodes 20, 52 and D8 erase, and their typical times as in a data sheet.
struct EraseType {
    std::uint8_t opcode;
    const char* name;
    std::size_t size;
    std::uint64_t microseconds;
};
inline constexpr EraseType kEraseTypes[] = {{0x20, "Sector Erase", 4u << 10, 45'000},
                                            {0x52, "Half Block Erase", 32u << 10, 120'000},
                                            {0xD8, "Block Erase", 64u << 10, 150'000}};

inline constexpr std::uint64_t kPageProgramTime = 700;            // us
inline constexpr std::uint64_t kChipEraseTimePerMiB = 2'500'000;  // us
inline constexpr std::uint64_t chipEraseTime(std::size_t size) {
    return kChipEraseTimePerMiB * size / (1u << 20);
}

/// The header, one parameter header and the basic parameter table of a chip of that size.
/// @param lying  twice the size; 20 is said to erase 64 KiB and D8 4 KiB
std::vector<std::uint8_t> sfdpOf(std::size_t size, bool lying);

}  // namespace sim
