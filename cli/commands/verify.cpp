#include <cstdio>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/flashRead.h"
#include "cli/session.h"

namespace cli {
namespace {

constexpr std::size_t kListedDifferences = 20;

struct Options {
    std::string file;
    bool restBlank = false;
};

Json json(const Difference& difference) {
    return {{"first", difference.range.first},
            {"last", difference.range.last},
            {"bytes", difference.bytes},
            {"file", difference.wanted ? Json(*difference.wanted) : Json(nullptr)},
            {"flash", difference.found}};
}

std::string text(const Difference& difference) {
    char bytes[48];
    if (difference.wanted)
        std::snprintf(bytes, sizeof bytes, "file %02X, flash %02X", *difference.wanted, difference.found);
    else
        std::snprintf(bytes, sizeof bytes, "not in the file, flash %02X", difference.found);
    return hexAddress(difference.range.first) + ": " + bytes;
}

std::string extent(const Difference& difference) {
    return " (" + countText(difference.bytes, "byte") + " up to " + hexAddress(difference.range.last) + ")";
}

void tell(Session& session, const Comparison& comparison) {
    Report& report = session.report;
    report.result["equal"] = comparison.equal();
    report.result["pages_different"] = comparison.pages;
    report.result["bytes_different"] = comparison.bytes;
    report.result["differences"] = Json::array();
    if (comparison.equal()) return report.note("equal");
    session.exit = Exit::Differs;
    const auto& all = comparison.differences;
    report.line("differs at " + text(all.front()) + " (" + countText(comparison.pages, "page") + ")");
    for (std::size_t i = 0; i < std::min(all.size(), kListedDifferences); ++i) {
        report.result["differences"].push_back(json(all[i]));
        if (i > 0) report.line("        at " + text(all[i]) + extent(all[i]));
    }
    if (all.size() > kListedDifferences)
        report.line("and at " + countText(all.size() - kListedDifferences, "more place"));
}

void verify(Session& session, const Options& options) {
    session.progress.begin("check");
    const PrivateFile copy;
    const HexFile file = readHexFile(options.file, {}, &copy);
    if (!file.isGood()) throw refusal(options.file, file);
    session.progress.end(countText(file.touchedPages(), "page"));
    if (session.options.dryRun) return session.report.note("would read the flash and compare");
    const FlashChip chip = inspectFlash(session);
    requireAddressable(chip);
    requireFits(options.file, file, copy, chip);
    const Image image = readChip(session, chip);
    tell(session, compare(file.image, image, chip.size, options.restBlank));
}

}  // namespace

Run declareVerify(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "the Intel HEX file to compare with");
    arguments.flag("--rest-blank", options->restBlank, "what the file does not cover must be erased (FF)");
    return [options](Session& session) { verify(session, *options); };
}

}  // namespace cli
