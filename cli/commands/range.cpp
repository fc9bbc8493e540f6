#include "cli/commands/range.h"

namespace cli {

std::optional<tavo::AddressRange> RangeArguments::parsed() const {
    if (range.empty() && !layout.empty()) {
        throw tavo::Error(tavo::Problem::BadArgument, "--layout names ranges, and none is chosen",
                          "choose one: --range NAME");
    }
    if (range.empty()) return {};
    return tavo::parseRange(range, layout.empty() ? std::vector<tavo::NamedRange>() : tavo::readLayout(layout));
}

void declareRange(Arguments& arguments, const std::string& what, RangeArguments& range) {
    const std::string help = what + ": FIRST-LAST, FIRST+SIZE (0x10000-0x1FFFF, 64K+4K) or a name of --layout";
    arguments.text("--range", "RANGE", range.range, help.c_str());
    arguments.text("--layout", "FILE", range.layout, "names of ranges: lines FIRST-LAST NAME, hexadecimal, # comments");
}

std::optional<tavo::AddressRange> takeRange(Session& session, const RangeArguments& range) {
    const auto found = range.parsed();
    if (found) session.report.result["range"] = {{"first", found->first}, {"last", found->last}};
    return found;
}

std::string partText(const std::optional<tavo::AddressRange>& range) {
    return range ? tavo::rangeText(*range) + " of the flash" : "the whole flash";
}

}  // namespace cli
