#include <algorithm>
#include <cstdio>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/imageFile.h"
#include "cli/commands/range.h"
#include "cli/output/map.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

constexpr std::size_t kListedDifferences = 20;

struct Options {
    ImageArguments image;
    RangeArguments range;
    bool map = false;
    tavo::VerifyOptions how;
};

Json json(const tavo::Difference& difference) {
    return {{"first", difference.range.first},
            {"last", difference.range.last},
            {"bytes", difference.bytes},
            {"file", difference.wanted ? Json(*difference.wanted) : Json(nullptr)},
            {"flash", difference.found}};
}

std::string text(const tavo::Difference& difference) {
    char bytes[48];
    if (difference.wanted)
        std::snprintf(bytes, sizeof bytes, "file %02X, flash %02X", *difference.wanted, difference.found);
    else
        std::snprintf(bytes, sizeof bytes, "not in the file, flash %02X", difference.found);
    return hexAddress(difference.range.first) + ": " + bytes;
}

std::string extent(const tavo::Difference& difference) {
    return " (" + countText(difference.bytes, "byte") + " up to " + hexAddress(difference.range.last) + ")";
}

void tell(Session& session, const tavo::VerifyResult& done) {
    const tavo::Comparison& comparison = done.comparison;
    Report& report = session.report;
    report.result["equal"] = comparison.equal();
    report.result["pages_different"] = comparison.pages;
    report.result["bytes_different"] = comparison.bytes;
    report.result["complete"] = done.isComplete;
    report.result["differences"] = Json::array();
    if (comparison.equal()) return report.note("equal");
    session.exit = Exit::Differs;
    const auto& all = comparison.differences;
    report.line("differs at " + text(all.front()) + " (" + (done.isComplete ? "" : "at least ") +
                countText(comparison.pages, "page") + (done.isComplete ? ")" : "; --every finds all)"));
    for (std::size_t i = 0; i < std::min(all.size(), kListedDifferences); ++i) {
        report.result["differences"].push_back(json(all[i]));
        if (i > 0) report.line("        at " + text(all[i]) + extent(all[i]));
    }
    if (all.size() > kListedDifferences)
        report.line("and at " + countText(all.size() - kListedDifferences, "more place"));
}

void verify(Session& session, Options& options) {
    options.how.range = takeRange(session, options.range);
    const auto file = readImage(session, options.image);
    if (session.options.dryRun)
        return session.report.note("would read " + partText(options.how.range) + " and compare");
    options.how.file = file.get();
    options.how.imageName = inputName(options.image.file);
    options.how.whole = options.map;
    options.how.every = options.how.every || options.map;
    const auto done = tavo::verifyFlash(session.device(), file->image, options.how, session.control());
    session.report.state = done.state;
    tell(session, done);
    if (!options.map) return;
    const tavo::AddressRange all{0, tavo::kAddressable - 1};
    const tavo::Image wanted = file->image.part(options.how.range.value_or(all));
    tellMap(session.report, tavo::mapComparison(wanted, done.contents, done.chip.size));
}

}  // namespace

Run declareVerify(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    declareImage(arguments, "FILE", kImageHelp, options->image);
    declareRange(arguments, "compare only a part", options->range);
    arguments.flag("--rest-blank", options->how.restBlank, "what the file does not cover must be erased (FF)");
    arguments.flag("--every", options->how.every, "read on after the first difference, and find every one");
    arguments.flag("--map", options->map,
                   "read the whole chip and draw what is equal, differs, or lies beyond the file");
    return [options](Session& session) { verify(session, *options); };
}

}  // namespace cli
