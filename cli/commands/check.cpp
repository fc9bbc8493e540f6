#include <algorithm>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/imageFile.h"
#include "cli/output/map.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

struct Options {
    ImageArguments image;
    std::optional<unsigned> flashSize;
    bool map = false;
    std::string html;
};

void fillResult(Json& result, const tavo::ImageFile& file) {
    result["pages"] = file.image.touchedPages();
    result["blank_pages"] = file.image.blankPages();
    result["bytes"] = file.image.byteCount();
    result["ranges"] = Json::array();
    for (const auto& range : file.image.ranges()) {
        result["ranges"].push_back({{"first", range.first}, {"last", range.last}});
    }
    result["eof"] = file.endOfFileRecord;
    result["error_count"] = file.faultCount;
    result["errors"] = Json::array();
    for (const auto& fault : file.faults) {
        result["errors"].push_back({{"line", fault.line == 0 ? Json(nullptr) : Json(fault.line)},
                                    {"offset", fault.offset ? Json(*fault.offset) : Json(nullptr)},
                                    {"text", fault.text},
                                    {"hint", fault.hint}});
    }
}

void listFaults(Report& report, const tavo::ImageFile& file) {
    for (const auto& fault : file.faults) report.line(tavo::faultText(fault) + " - " + fault.hint);
    if (file.faultCount > file.faults.size()) {
        report.line("and " + tavo::countText(file.faultCount - file.faults.size(), "more fault"));
    }
}

std::string summary(const tavo::ImageFile& file) {
    const auto ranges = file.image.ranges();
    return "OK: " + tavo::countText(file.image.touchedPages(), "page") + ", " + tavo::hexAddress(ranges.front().first) +
           "-" + tavo::hexAddress(ranges.back().last) + ", " + tavo::countText(ranges.size() - 1, "gap") +
           (file.format == tavo::Format::Hex || file.format == tavo::Format::SRecord ? ", end of file record present"
                                                                                     : "") +
           ", sha256 " + file.image.identity();
}

/// The chip of a device that was named has the last word. Asked only about a file that is good otherwise.
std::optional<unsigned> checkAgainstDevice(Session& session, tavo::ImageFile& file) {
    const tavo::FlashChip chip = tavo::inspectFlash(session.device(), session.control());
    session.report.state.flash = tavo::FlashState::Unchanged;
    session.report.result["flash"] = chip.text();
    session.report.note(session.deviceName() + ": " + chip.text());
    session.job.device = tavo::deviceFacts(session.device().description(), &chip);
    if (const auto fault = file.faultAbove(chip.size)) {
        file.faults.push_back(*fault);
        ++file.faultCount;
    }
    return chip.size;
}

void check(Session& session, const Options& options) {
    session.openPage(options.html, "check " + inputName(options.image.file));
    tavo::ReadOptions reading = readOptions(options.image);
    reading.chipSize = std::min<std::uint32_t>(options.flashSize.value_or(tavo::kAddressable), tavo::kAddressable);
    tavo::ImageFile file = *lookAtImage(session, options.image, reading);
    auto size = options.flashSize;
    if (!size && session.hasDevice() && file.isGood() && !session.options.dryRun)
        size = checkAgainstDevice(session, file);
    session.job.faults = file.faults;
    fillResult(session.report.result, file);
    if (!file.isGood()) {
        listFaults(session.report, file);
        throw tavo::Error(tavo::Problem::FileRefused,
                          inputName(options.image.file) + " refused: " + tavo::countText(file.faultCount, "fault"),
                          file.faults.front().hint);
    }
    session.conclude(summary(file));
    if (!file.changes.empty()) session.report.note(conversionText(file));
    if (options.map || session.hasPage()) session.job.map = tavo::mapImage(file.image, size.value_or(0));
    if (options.map) tellMap(session.report, *session.job.map);
}

}  // namespace

Run declareCheck(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    declareImage(arguments, "FILE", kImageHelp, options->image);
    arguments.size("--flash-size", options->flashSize,
                   "size of the chip it is for: 512K, 1M (default: that of the device named by -d)");
    arguments.flag("--map", options->map, "draw where the data lie in the chip");
    arguments.page(options->html);
    return [options](Session& session) { check(session, *options); };
}

}  // namespace cli
