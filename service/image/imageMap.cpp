#include <algorithm>
#include <bit>

#include "tavo/service/image.h"

namespace tavo {
namespace {

constexpr std::uint32_t kCells = ImageMap::kColumns * ImageMap::kRows;
constexpr char kLetters[] = {'.', 'f', '+', '#', '=', 'X', 'o'};
static_assert(std::size(kLetters) == static_cast<std::size_t>(MapCell::Beyond) + 1);

MapCell imageCell(const Image& image, std::uint32_t first, std::uint32_t end) {
    std::uint32_t present = 0;
    bool blank = true;
    for (std::uint32_t address = first; address < end; ++address) {
        const auto byte = image.at(address);
        if (!byte) continue;
        ++present;
        blank = blank && *byte == 0xFF;
    }
    if (present == 0) return MapCell::Gap;
    if (blank) return MapCell::Blank;
    return present == end - first ? MapCell::Data : MapCell::Part;
}

MapCell comparisonCell(const Image& wanted, const Image& chip, std::uint32_t first, std::uint32_t end) {
    bool beyond = false;
    bool covered = false;
    for (std::uint32_t address = first; address < end; ++address) {
        const auto byte = wanted.at(address);
        const std::uint8_t found = chip.at(address).value_or(0xFF);
        if (byte && *byte != found) return MapCell::Differs;
        covered = covered || byte;
        beyond = beyond || (!byte && found != 0xFF);
    }
    if (beyond) return MapCell::Beyond;
    return covered ? MapCell::Equal : MapCell::Blank;
}

template <class Cell>
ImageMap filled(std::uint32_t size, Cell cell) {
    ImageMap map;
    map.size = std::max(size, kCells);
    map.cellSize = (map.size - 1) / kCells + 1;
    for (std::uint32_t i = 0; i < kCells; ++i) {
        const auto first = std::min(i * map.cellSize, map.size);
        map.cells[i] = cell(first, std::min(first + map.cellSize, map.size));
    }
    return map;
}

}  // namespace

ImageMap mapImage(const Image& image, std::uint32_t chipSize) {
    const auto ranges = image.ranges();
    const std::uint32_t end = ranges.empty() ? 1 : ranges.back().last + 1;
    return filled(chipSize != 0 ? chipSize : std::bit_ceil(end),
                  [&](std::uint32_t first, std::uint32_t last) { return imageCell(image, first, last); });
}

ImageMap mapComparison(const Image& wanted, const Image& chip, std::uint32_t chipSize) {
    return filled(chipSize,
                  [&](std::uint32_t first, std::uint32_t last) { return comparisonCell(wanted, chip, first, last); });
}

char mapLetter(MapCell cell) {
    return kLetters[static_cast<std::size_t>(cell)];
}

}  // namespace tavo
