#include <algorithm>
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
    std::string html;
    tavo::VerifyOptions how;
};

Json json(const tavo::Difference& difference) {
    return {{"first", difference.range.first},
            {"last", difference.range.last},
            {"bytes", difference.bytes},
            {"file", difference.wanted ? Json(*difference.wanted) : Json(nullptr)},
            {"flash", difference.found}};
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
    const std::string text = tavo::comparisonText(comparison, done.isComplete);
    if (comparison.equal()) return session.conclude(text);
    session.exit = Exit::Differs;
    session.job.summary = text;
    report.line(text);
    const auto& all = comparison.differences;
    for (std::size_t i = 0; i < std::min(all.size(), kListedDifferences); ++i) {
        report.result["differences"].push_back(json(all[i]));
        if (i > 0) report.line("        at " + tavo::differenceText(all[i]) + extent(all[i]));
    }
    if (all.size() > kListedDifferences)
        report.line("and at " + countText(all.size() - kListedDifferences, "more place"));
}

/// The map is told, and is on the page.
void show(Session& session, const Options& options, const tavo::ImageFile& file, const tavo::VerifyResult& done) {
    if (!options.map && !session.hasPage()) return;
    const tavo::AddressRange all{0, tavo::kAddressable - 1};
    const tavo::Image wanted = file.image.part(options.how.range.value_or(all));
    session.job.map = tavo::mapComparison(wanted, done.contents, done.chip.size);
    session.job.device = tavo::deviceFacts(session.device().description(), &done.chip);
    session.job.comparison = done.comparison;
    session.job.isComplete = done.isComplete;
    if (options.map) tellMap(session.report, *session.job.map);
}

void verify(Session& session, Options& options) {
    session.openPage(options.html, "verify " + inputName(options.image.file));
    options.how.range = takeRange(session, options.range);
    const auto file = readImage(session, options.image);
    if (session.options.dryRun)
        return session.report.note("would read " + partText(options.how.range) + " and compare");
    options.how.file = file.get();
    options.how.imageName = inputName(options.image.file);
    options.how.whole = options.map || session.hasPage();
    options.how.every = options.how.every || options.how.whole;
    const auto done = tavo::verifyFlash(session.device(), file->image, options.how, session.control());
    session.report.state = done.state;
    tell(session, done);
    show(session, options, *file, done);
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
    declareClock(arguments, options->how.clockHz);
    arguments.page(options->html);
    return [options](Session& session) { verify(session, *options); };
}

}  // namespace cli
