#include <algorithm>
#include <bit>

#include "tavo/service/image.h"

namespace tavo {
namespace {

struct CellWords {
    char letter;
    const char* name;
    const char* text;
};

// Indexed by the cell.
constexpr CellWords kCells[] = {
    {'.', "none", "no data"},
    {'f', "blank", "all FF"},
    {'+', "part", "partly data"},
    {'#', "data", "data"},
    {'=', "equal", "equal"},
    {'X', "differs", "differs"},
    {'o', "beyond", "beyond the image"},
    {'.', "erased", "blank"},
    {'?', "unread", "not read"},
};
static_assert(std::size(kCells) == static_cast<std::size_t>(MapCell::Unread) + 1);

/// What stands at the addresses first to end - 1.
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
    bool isBeyond = false;
    bool isCovered = false;
    bool isRead = false;
    bool isMissed = false;
    for (std::uint32_t address = first; address < end; ++address) {
        const auto byte = wanted.at(address);
        const auto found = chip.at(address);
        if (byte && found && *byte != *found) return MapCell::Differs;
        isCovered = isCovered || byte;
        isRead = isRead || found;
        isMissed = isMissed || (byte && !found);
        isBeyond = isBeyond || (!byte && found.value_or(0xFF) != 0xFF);
    }
    if (isMissed || (!isRead && first < end)) return MapCell::Unread;
    if (isBeyond) return MapCell::Beyond;
    return isCovered ? MapCell::Equal : MapCell::Erased;
}

/// @param cell  what stands at the addresses first to end - 1
template <class Cell>
ImageMap filled(std::uint32_t size, Cell cell) {
    ImageMap map;
    map.size = std::max(size, ImageMap::kCells);
    map.cellSize = (map.size - 1) / ImageMap::kCells + 1;
    for (std::uint32_t i = 0; i < ImageMap::kCells; ++i) {
        const auto first = std::min(i * map.cellSize, map.size);
        map.cells[i] = cell(first, std::min(first + map.cellSize, map.size));
    }
    for (std::uint32_t first = 0; first < map.size; first += kPageSize) {
        const std::uint32_t last = std::min(first + kPageSize, map.size) - 1;
        const MapCell page = cell(first, last + 1);
        if (!map.ranges.empty() && map.ranges.back().cell == page)
            map.ranges.back().range.last = last;
        else
            map.ranges.push_back({{first, last}, page});
    }
    return map;
}

const CellWords& words(MapCell cell) {
    return kCells[static_cast<std::size_t>(cell)];
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

ImageMap mapContents(const Image& chip, std::uint32_t chipSize) {
    const Image nothing;
    return filled(chipSize, [&](std::uint32_t first, std::uint32_t last) {
        const MapCell cell = comparisonCell(nothing, chip, first, last);
        return cell == MapCell::Beyond ? MapCell::Data : cell;
    });
}

std::vector<MapCount> mapLegend(const ImageMap& map) {
    std::vector<MapCount> legend;
    for (std::size_t i = 0; i < std::size(kCells); ++i) {
        const auto cell = static_cast<MapCell>(i);
        const auto count = std::count(map.cells.begin(), map.cells.end(), cell);
        if (count > 0) legend.push_back({cell, static_cast<std::uint32_t>(count)});
    }
    return legend;
}

char mapLetter(MapCell cell) {
    return words(cell).letter;
}

const char* mapCellName(MapCell cell) {
    return words(cell).name;
}

const char* mapCellText(MapCell cell) {
    return words(cell).text;
}

}  // namespace tavo
