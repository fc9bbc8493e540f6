#include <algorithm>
#include <cstdio>

#include "service/report/page.h"
#include "service/report/parts.h"
#include "service/report/style.h"
#include "tavo/service/report.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr std::uint32_t kRow = 32;  // cells that stay side by side on the narrowest page

struct ResultWords {
    const char* name;  // of the style
    const char* text;
};
// Indexed by the result.
constexpr ResultWords kResults[] = {{"done", "done"}, {"differs", "differs"}, {"failed", "failed"}};

/// Nothing is fetched and nothing runs, whatever a page may hold.
constexpr const char* kPolicy =
    "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; style-src "
    "'unsafe-inline'\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
    "<link rel=\"icon\" href=\"data:,\">\n";

Markup factTable(const std::vector<JobFact>& facts) {
    Markup rows;
    for (const JobFact& fact : facts) {
        const bool isCode = fact.name.rfind("SHA-256", 0) == 0;
        rows += row({Markup::tag("th", fact.name, "scope=\"row\""), isCode ? code(fact.value) : cell(fact.value)});
    }
    return rows.isEmpty() ? rows : Markup::tag("table", Markup::tag("tbody", rows), "class=\"facts\"");
}

Markup header(const JobReport& report, const ResultWords& words) {
    Markup inner = Markup::tag("p", words.text, "class=\"badge\"") + Markup::tag("h1", report.title);
    if (!report.summary.empty()) inner += Markup::tag("p", report.summary, "class=\"summary\"");
    inner += Markup::tag("p", timeText(report.started) + ", took " + secondsText(report.seconds), "class=\"faint\"");
    return Markup::tag("header", inner, std::string("class=\"") + words.name + "\"") + Markup::exactly("\n");
}

Markup messages(const JobReport& report) {
    Markup all;
    for (const JobMessage& message : report.messages) {
        Markup inner = Markup::tag("p", (message.isError ? "" : "Warning: ") + message.text);
        for (const std::string& detail : message.details) inner += Markup::tag("p", detail, "class=\"code\"");
        if (message.isError) inner += Markup::tag("p", "State: " + report.state);
        if (!message.hint.empty()) inner += Markup::tag("p", "What next: " + message.hint);
        all +=
            Markup::tag("section", inner, message.isError ? "class=\"message failed\"" : "class=\"message differs\"") +
            Markup::exactly("\n");
    }
    return all;
}

/// The class of the style: the cells that matter most are not named like the result of a job.
std::string styleOf(MapCell cell) {
    return cell == MapCell::Differs ? "wrong" : mapCellName(cell);
}

std::string rangeText(const AddressRange& range) {
    return hexAddress(range.first) + "-" + hexAddress(range.last);
}

std::string amountText(std::uint64_t bytes) {
    if (bytes % 1024 == 0) return sizeText(bytes);
    char text[32];
    std::snprintf(text, sizeof text, "%.2f KiB", static_cast<double>(bytes) / 1024);
    return text;
}

std::uint64_t amountOf(const ImageMap& map, MapCell cell) {
    std::uint64_t bytes = 0;
    for (const auto& part : map.ranges) bytes += part.cell == cell ? part.range.size() : 0;
    return bytes;
}

Markup grid(const ImageMap& map) {
    Markup rows;
    for (std::uint32_t first = 0; first < ImageMap::kCells; first += kRow) {
        Markup cells;
        for (std::uint32_t i = first; i < first + kRow; ++i) {
            const std::string title = hexAddress(i * map.cellSize) + " " + mapCellText(map.cells[i]);
            cells += Markup::tag("i", Markup(), "class=\"" + styleOf(map.cells[i]) + "\" title=\"" + title + "\"");
        }
        rows += Markup::tag("b", hexAddress(first * map.cellSize), "class=\"code\"") + Markup::tag("p", cells) +
                Markup::exactly("\n");
    }
    return rows;
}

Markup mapSection(const ImageMap& map) {
    Markup key;
    std::string spoken = "Map of " + sizeText(map.size);
    for (const MapCount& part : mapLegend(map)) {
        // What is a part of each of its cells only has no range of its own.
        const std::uint64_t bytes = amountOf(map, part.cell);
        const std::string text = mapCellText(part.cell) + (bytes == 0 ? "" : ", " + amountText(bytes));
        key +=
            Markup::tag("li", Markup::tag("i", Markup(), "class=\"" + styleOf(part.cell) + "\"") + Markup::text(text));
        spoken += "; " + text;
    }
    std::vector<Markup> rows;
    for (const auto& part : map.ranges)
        rows.push_back(row({figure(rangeText(part.range), true), figure(amountText(part.range.size())),
                            cell(mapCellText(part.cell))}));
    const bool isOfImage = mapLegend(map).back().cell <= MapCell::Data;
    return section(isOfImage ? "Map of the image" : "Map of the flash",
                   Markup::tag("div", grid(map), "class=\"map\" role=\"img\" aria-label=\"" + spoken + "\"") +
                       Markup::tag("ul", key, "class=\"key\"") +
                       Markup::tag("p",
                                   sizeText(map.size) + ", one field is " + sizeText(map.cellSize) +
                                       "; addresses by pages of " + sizeText(kPageSize),
                                   "class=\"faint\"") +
                       foldedTable({"Addresses", "Size", "Contents"}, rows, "range"));
}

Markup differences(const Comparison& comparison, bool isComplete) {
    std::vector<Markup> rows;
    for (const Difference& each : comparison.differences) {
        rows.push_back(row({figure(rangeText(each.range), true), cell(std::to_string(each.bytes)),
                            code(each.wanted ? hexText(&*each.wanted, 1) : "no data"), code(hexText(&each.found, 1))}));
    }
    if (rows.empty()) return {};
    const std::string total = countText(comparison.bytes, "byte") + " in " + countText(comparison.pages, "page") +
                              (isComplete ? "" : " until the reading was ended; there may be more");
    return section("Differences",
                   Markup::tag("p", total) + table({"Addresses", "Bytes", "First in the file", "In the flash"}, rows));
}

Markup faults(const std::vector<ImageFault>& found) {
    std::vector<Markup> rows;
    for (const ImageFault& fault : found) rows.push_back(row({cell(faultText(fault)), cell(fault.hint)}));
    return section("Faults of the file", table({"Fault", "What to do"}, rows));
}

Markup times(const std::vector<JobPhase>& phases) {
    double longest = 0;
    for (const JobPhase& phase : phases) longest = std::max(longest, phase.seconds);
    std::vector<Markup> rows;
    for (const JobPhase& phase : phases) {
        const int percent = longest > 0 ? static_cast<int>(phase.seconds * 100 / longest) : 0;
        const Markup bar = Markup::tag("span", Markup(), "style=\"width:" + std::to_string(percent) + "%\"");
        rows.push_back(
            row({figure(phase.name + (phase.outcome == "done" ? "" : " (" + phase.outcome + ")")),
                 figure(secondsText(phase.seconds)), cell(phase.remark), Markup::tag("td", bar, "class=\"bar\"")}));
    }
    return section("Times", table({"Step", "Time", "Remark", ""}, rows));
}

Markup identities(const JobReport& report) {
    const Markup device = section("Interface", factTable(report.device));
    const Markup image = section("Image", factTable(report.image));
    if (device.isEmpty() || image.isEmpty()) return device + image;
    return Markup::tag("div", device + image, "class=\"pair\"");
}

}  // namespace

std::string jobPage(const JobReport& report) {
    const ResultWords& words = kResults[static_cast<std::size_t>(report.result)];
    const Markup head = Markup::tag("title", report.title + ": " + words.text) + Markup::exactly("\n") +
                        Markup::tag("style", Markup::exactly(kPageStyle));
    Markup body = header(report, words) + messages(report) + identities(report);
    if (report.map) body += mapSection(*report.map);
    if (report.watch) body += watchSection(*report.watch);
    if (report.comparison) body += differences(*report.comparison, report.isComplete);
    body += faults(report.faults) + section("Result", factTable(report.work)) + times(report.phases);
    Markup foot = Markup::text(report.tool);
    if (!report.state.empty()) foot = Markup::tag("p", "State of the interface: " + report.state) + foot;
    body += Markup::tag("footer", foot);
    return kPageHead + std::string(kPolicy) + head.html() + "\n</head>\n" + Markup::tag("body", body).html() +
           "\n</html>\n";
}

}  // namespace tavo
