#include "cli/output/picture.h"

#include <algorithm>
#include <iterator>

namespace cli {
namespace {

struct Branch {
    const char* lines;
    const char* asciiLines;
};
// USB, bridge; on the bridge SCB0 with the flash, and the Neuron.
constexpr Branch kBranches[] = {
    {"", ""}, {"└─ ", "`- "}, {"   ├─ ", "   |- "}, {"   │  └─ ", "   |  `- "}, {"   └─ ", "   `- "}};
constexpr std::size_t kStateColumn = 16;

Line row(const Branch& branch, const tavo::Part& part, bool isUtf8) {
    const std::size_t used = std::string(branch.asciiLines).size() + std::string(part.name).size();
    const std::string start = std::string(isUtf8 ? branch.lines : branch.asciiLines) + part.name +
                              std::string(std::max(kStateColumn, used + 1) - used, ' ');
    if (part.verdict == tavo::Verdict::Skipped) return {{start}, {part.state, Style::Faint}};
    if (part.verdict == tavo::Verdict::Ok) return {{start}, {part.state}};
    return {{start}, {"FAIL " + part.state, Style::Error}, {part.hint.empty() ? "" : " - " + part.hint}};
}

}  // namespace

std::vector<Line> picture(const std::vector<tavo::Part>& parts, bool isUtf8) {
    std::vector<Line> rows;
    for (std::size_t i = 0; i < std::min(parts.size(), std::size(kBranches)); ++i) {
        rows.push_back(row(kBranches[i], parts[i], isUtf8));
    }
    return rows;
}

}  // namespace cli
