#include "cli/commands/imageMap.h"

#include "tavo/service/text.h"

namespace cli {

std::vector<std::string> drawMap(const tavo::ImageMap& map, const std::string& legend) {
    std::vector<std::string> lines{tavo::sizeText(map.size) + ", one character is " + tavo::sizeText(map.cellSize) +
                                   ": " + legend};
    for (std::uint32_t row = 0; row < tavo::ImageMap::kRows; ++row) {
        const std::uint32_t first = row * tavo::ImageMap::kColumns;
        std::string text = tavo::hexAddress(first * map.cellSize) + " ";
        for (std::uint32_t i = 0; i < tavo::ImageMap::kColumns; ++i) text += tavo::mapLetter(map.cells[first + i]);
        lines.push_back(text);
    }
    return lines;
}

}  // namespace cli
