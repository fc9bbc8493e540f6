#include "cli/output/map.h"

#include <algorithm>

namespace cli {
namespace {

using tavo::ImageMap;
using tavo::MapCell;

constexpr std::size_t kAddress = 9;  // "0x000000 "
constexpr std::size_t kBeside = 2;   // blanks between grid and ranges
constexpr std::size_t kBelow = 16;   // ranges listed below a grid
constexpr std::size_t kWidths[] = {64, 32, 16, 8};

// Indexed by the cell.
constexpr Style kStyles[] = {Style::Faint, Style::Plain,   Style::Plain, Style::Note, Style::Good,
                             Style::Error, Style::Warning, Style::Faint, Style::Faint};
static_assert(std::size(kStyles) == static_cast<std::size_t>(MapCell::Unread) + 1);

Style styleOf(MapCell cell) {
    return kStyles[static_cast<std::size_t>(cell)];
}

std::string rangeText(const ImageMap::Range& part) {
    return hexAddress(part.range.first) + "-" + hexAddress(part.range.last) + " " + tavo::mapCellText(part.cell);
}

/// @param limit  of the lines; the last one then tells how many are left out
std::vector<Line> rangeLines(const ImageMap& map, std::size_t limit) {
    std::vector<Line> lines;
    const std::size_t listed = map.ranges.size() > limit ? limit - 1 : map.ranges.size();
    for (std::size_t i = 0; i < listed; ++i) lines.push_back({{rangeText(map.ranges[i]), styleOf(map.ranges[i].cell)}});
    if (listed < map.ranges.size()) lines.push_back({{"and " + countText(map.ranges.size() - listed, "more range")}});
    return lines;
}

std::vector<Line> legend(const ImageMap& map, std::size_t columns) {
    std::vector<Line> lines{{{sizeText(map.size) + ", one character is " + sizeText(map.cellSize) + ":"}}};
    std::size_t length = lines.front().front().text.size();
    for (const auto& row : tavo::mapLegend(map)) {
        const std::string letter(1, tavo::mapLetter(row.cell));
        const std::string words = std::string(" ") + tavo::mapCellText(row.cell);
        const std::size_t added = 2 + letter.size() + words.size();
        if (length + added > columns) lines.emplace_back();
        length = (lines.back().empty() ? 0 : length) + added;
        lines.back().push_back({"  "});
        lines.back().push_back({letter, styleOf(row.cell)});
        lines.back().push_back({words});
    }
    return lines;
}

/// One row of the grid, what looks the same in one piece.
Line gridRow(const ImageMap& map, std::size_t first, std::size_t width) {
    Line line{{hexAddress(static_cast<std::uint32_t>(first) * map.cellSize) + " "}};
    for (std::size_t i = first; i < first + width; ++i) {
        const Style style = styleOf(map.cells[i]);
        if (i == first || line.back().style != style) line.push_back({"", style});
        line.back().text += tavo::mapLetter(map.cells[i]);
    }
    return line;
}

/// How wide the grid is, and whether its ranges fit beside it.
struct Layout {
    std::size_t width = 8;
    bool isBeside = false;
};

Layout layoutFor(const ImageMap& map, std::size_t columns) {
    std::size_t longest = 0;
    for (const auto& part : map.ranges) longest = std::max(longest, rangeText(part).size());
    for (const std::size_t width : {kWidths[0], kWidths[1]}) {
        if (kAddress + width + kBeside + longest <= columns) return {width, true};
    }
    for (const std::size_t width : kWidths) {
        if (kAddress + width <= columns) return {width, false};
    }
    return {};
}

std::vector<Line> drawn(const ImageMap& map, std::size_t columns) {
    const Layout layout = layoutFor(map, columns);
    std::vector<Line> lines = legend(map, columns);
    const std::size_t rows = ImageMap::kCells / layout.width;
    const auto ranges = rangeLines(map, layout.isBeside ? rows : kBelow);
    for (std::size_t row = 0; row < rows; ++row) {
        Line line = gridRow(map, row * layout.width, layout.width);
        if (layout.isBeside && row < ranges.size()) {
            line.push_back({std::string(kBeside, ' ')});
            line.insert(line.end(), ranges[row].begin(), ranges[row].end());
        }
        lines.push_back(std::move(line));
    }
    if (!layout.isBeside) lines.insert(lines.end(), ranges.begin(), ranges.end());
    return lines;
}

}  // namespace

void tellMap(Report& report, const tavo::ImageMap& map) {
    std::string cells;
    for (const MapCell cell : map.cells) cells += tavo::mapLetter(cell);
    Json ranges = Json::array();
    for (const auto& part : map.ranges)
        ranges.push_back(
            {{"first", part.range.first}, {"last", part.range.last}, {"state", tavo::mapCellName(part.cell)}});
    report.result["map"] = {{"size", map.size}, {"cell_size", map.cellSize}, {"cells", cells}, {"ranges", ranges}};
    for (const auto& line : drawn(map, report.columns())) report.line(line);
}

}  // namespace cli
