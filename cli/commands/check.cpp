#include <algorithm>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/hexImage.h"
#include "cli/imageMap.h"
#include "cli/session.h"

namespace cli {
namespace {

struct Options {
    std::string file;
    std::optional<unsigned> flashSize;
    bool map = false;
};

void fillResult(Json& result, const HexFile& file) {
    result["pages"] = file.touchedPages();
    result["blank_pages"] = file.image.blankPages();
    result["bytes"] = file.image.byteCount();
    result["ranges"] = Json::array();
    for (const auto& range : file.image.ranges()) {
        result["ranges"].push_back({{"first", range.first}, {"last", range.last}});
    }
    result["eof"] = file.endOfFile;
    result["sha256"] = file.sha256.empty() ? Json(nullptr) : Json(file.sha256);
    result["error_count"] = file.faultCount;
    result["errors"] = Json::array();
    for (const auto& fault : file.faults) {
        result["errors"].push_back({{"line", fault.line == 0 ? Json(nullptr) : Json(fault.line)},
                                    {"text", fault.text},
                                    {"hint", fault.remedy}});
    }
}

void listFaults(Report& report, const HexFile& file) {
    for (const auto& fault : file.faults) report.line(faultText(fault) + " - " + fault.remedy);
    if (file.faultCount > file.faults.size()) {
        report.line("and " + countText(file.faultCount - file.faults.size(), "more fault"));
    }
}

std::string summary(const HexFile& file) {
    const auto ranges = file.image.ranges();
    return "OK: " + countText(file.touchedPages(), "page") + ", " + hexAddress(ranges.front().first) + "-" +
           hexAddress(ranges.back().last) + ", " + countText(ranges.size() - 1, "gap") +
           ", end of file record present, sha256 " + file.sha256;
}

void check(Session& session, const Options& options) {
    const HexLimits limits{std::min(options.flashSize.value_or(kAddressable), kAddressable)};
    const HexFile file = readHexFile(options.file, limits, nullptr);
    fillResult(session.report.result, file);
    if (!file.isGood()) {
        listFaults(session.report, file);
        Failure failure = refusal(options.file, file);
        failure.text = options.file + " refused: " + countText(file.faultCount, "fault");
        throw failure;
    }
    session.report.note(summary(file));
    if (!options.map) return;
    for (const auto& line : drawMap(file.image, options.flashSize.value_or(0))) session.report.line(line);
}

}  // namespace

Run declareCheck(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "the Intel HEX file");
    arguments.size("--flash-size", options->flashSize, "size of the chip it is for: 512K, 1M (default: not checked)");
    arguments.flag("--map", options->map, "draw where the data lie in the chip");
    return [options](Session& session) { check(session, *options); };
}

}  // namespace cli
