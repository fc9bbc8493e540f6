// What is known of flash chips by their ID.
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "service/flash/chip.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

struct Maker {
    std::uint8_t id;
    const char* name;
};
// JEDEC JEP106, first bank, makers of serial NOR flash.
constexpr Maker kMakers[] = {{0x01, "Spansion"}, {0x1C, "Eon"},       {0x1F, "Adesto"},   {0x20, "Micron"},
                             {0x37, "AMIC"},     {0x62, "ON Semi"},   {0x85, "Puya"},     {0x8C, "ESMT"},
                             {0x9D, "ISSI"},     {0xBF, "Microchip"}, {0xC2, "Macronix"}, {0xC8, "GigaDevice"},
                             {0xEF, "Winbond"}};

struct EraseTime {
    std::uint32_t upTo;
    double longest;  // seconds
    const char* text;
};
// Typical to longest whole-chip erase over the data sheets of common parts.
constexpr EraseTime kEraseTimes[] = {
    {128U << 10, 3, "usually under 3 s"},    {512U << 10, 6, "usually 1 to 6 s"},
    {1U << 20, 12, "usually 2 to 12 s"},     {2U << 20, 25, "usually 3 to 25 s"},
    {4U << 20, 50, "usually 10 to 50 s"},    {8U << 20, 100, "usually 20 to 100 s"},
    {16U << 20, 200, "usually 40 to 200 s"},
};
constexpr const EraseTime& kLargest = kEraseTimes[std::size(kEraseTimes) - 1];

}  // namespace

std::string FlashChip::makerName() const {
    for (const auto& row : kMakers) {
        if (row.id == maker) return row.name;
    }
    return "";
}

std::string FlashChip::idText() const {
    const std::uint8_t id[] = {maker, memoryType, capacityCode};
    return hexText(id, sizeof id);
}

std::string FlashChip::text() const {
    const std::string name = makerName();
    return (name.empty() ? "unknown maker" : name) + ", ID " + idText() + ", " + sizeText(size);
}

std::string usualEraseTime(const FlashChip& chip) {
    if (chip.eraseTypical > 0) {
        return "usually " + secondsText(chip.eraseTypical) + ", at most " + secondsText(chip.eraseLongest);
    }
    for (const auto& row : kEraseTimes) {
        if (chip.size <= row.upTo) return row.text;
    }
    return "may take minutes";
}

double longestErase(const FlashChip& chip) {
    return std::max(chip.eraseLongest, longestErase(chip.size));
}

double usualErase(const FlashChip& chip) {
    return chip.eraseTypical > 0 ? chip.eraseTypical : longestErase(chip.size) / 4;
}

double longestErase(std::uint32_t size) {
    for (const auto& row : kEraseTimes) {
        if (size <= row.upTo) return row.longest;
    }
    return kLargest.longest * size / kLargest.upTo;
}

}  // namespace tavo
