// Layout files, and ranges as they are typed.
#include <cstdio>
#include <optional>
#include <set>

#include "fuzz/fuzz.h"
#include "tavo/service/error.h"
#include "tavo/service/range.h"

namespace {

void checkRange(const tavo::AddressRange& range) {
    HOLDS(range.first <= range.last && range.last < tavo::kAddressable);
    for (const std::uint32_t step : {256U, 4096U, 65536U}) {
        const auto near = tavo::alignedRanges(range, step);
        HOLDS(!near.empty() && near.front().first <= range.first && near.front().last >= range.last);
        for (const auto& each : near) HOLDS(each.first % step == 0 && each.size() % step == 0);
    }
}

std::optional<tavo::AddressRange> parsed(const std::string& text, const std::vector<tavo::NamedRange>& layout = {}) {
    try {
        const auto range = tavo::parseRange(text, layout);
        checkRange(range);
        return range;
    } catch (const tavo::Error& error) {
        HOLDS(error.problem == tavo::Problem::BadArgument && *error.what() != '\0' && !error.hint.empty());
        return {};
    }
}

std::optional<std::vector<tavo::NamedRange>> layoutOf(const std::string& content) {
    const fuzz::MemoryFile file(content);
    try {
        return tavo::readLayout(file.path());
    } catch (const tavo::Error& error) {
        HOLDS(error.problem == tavo::Problem::FileRefused && !error.hint.empty());
        HOLDS(!error.details.empty() || content.size() > 1 << 20);
        const std::string what = error.what();
        HOLDS(what.find("line ") != std::string::npos || what.find("names no range") != std::string::npos);
        return {};
    }
}

/// Read back, the same; and its names stand for what they say.
void checkLayout(const std::vector<tavo::NamedRange>& layout) {
    HOLDS(!layout.empty());
    std::set<std::string> names;
    std::string content;
    for (const auto& each : layout) {
        HOLDS(!each.name.empty() && each.name.find_first_of(" \t\n#") == std::string::npos);
        HOLDS(names.insert(each.name).second);
        checkRange(each.range);
        HOLDS(parsed(each.name, layout) == each.range);
        const std::string text = tavo::rangeText(each.range);
        HOLDS(parsed(text) == each.range);
        content += text + " " + each.name + "\n";
    }
    const auto again = layoutOf(content);
    HOLDS(again && again->size() == layout.size());
    for (std::size_t i = 0; i < layout.size(); ++i)
        HOLDS((*again)[i].name == layout[i].name && (*again)[i].range == layout[i].range);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    if (const auto layout = layoutOf(content)) checkLayout(*layout);
    if (const auto range = parsed(content.substr(0, content.find('\n'))))
        HOLDS(parsed(tavo::rangeText(*range)) == range);
    if (const auto number = tavo::parseNumber(content)) {
        HOLDS(*number <= std::uint64_t{1} << 32);
        HOLDS(tavo::parseNumber(std::to_string(*number)) == number);
    }
    return 0;
}
