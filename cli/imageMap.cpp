#include "cli/imageMap.h"

#include <algorithm>
#include <bit>

#include "cli/report.h"

namespace cli {
namespace {

constexpr std::uint32_t kColumns = 64;
constexpr std::uint32_t kRows = 16;

char cell(const Image& image, std::uint32_t first, std::uint32_t size) {
    std::uint32_t present = 0;
    bool blank = true;
    for (std::uint32_t address = first; address < first + size; ++address) {
        const auto byte = image.at(address);
        if (!byte) continue;
        ++present;
        blank = blank && *byte == 0xFF;
    }
    if (present == 0) return '.';
    if (blank) return 'f';
    return present == size ? '#' : '+';
}

}  // namespace

std::vector<std::string> drawMap(const Image& image, std::uint32_t flashSize) {
    const auto ranges = image.ranges();
    const std::uint32_t end = ranges.empty() ? 1 : ranges.back().last + 1;
    const std::uint32_t size = std::max(flashSize != 0 ? flashSize : std::bit_ceil(end), kColumns * kRows);
    const std::uint32_t cellSize = std::max(1U, size / (kColumns * kRows));
    std::vector<std::string> lines{sizeText(size) + ", one character is " + sizeText(cellSize) +
                                   ": # data  + partly  f all FF  . no data (stays erased)"};
    for (std::uint32_t row = 0; row < kRows; ++row) {
        const std::uint32_t first = row * kColumns * cellSize;
        std::string text = hexAddress(first) + " ";
        for (std::uint32_t column = 0; column < kColumns; ++column) {
            text += cell(image, first + column * cellSize, cellSize);
        }
        lines.push_back(text);
    }
    return lines;
}

}  // namespace cli
