#include <cstdio>

#include "tavo/service/report.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

class Facts {
public:
    /// A row, unless it would be empty.
    void add(const char* name, const std::string& value) {
        if (!value.empty()) rows_.push_back({name, value});
    }
    std::vector<JobFact> take() { return std::move(rows_); }

private:
    std::vector<JobFact> rows_;
};

std::string usbText(const DeviceDescription& device) {
    char ids[16];
    std::snprintf(ids, sizeof ids, "%04X:%04X", device.vendorId, device.productId);
    return ids;
}

std::string joined(const std::string& first, const std::string& second) {
    return first + (first.empty() || second.empty() ? "" : " ") + second;
}

std::string extentText(const Image& image) {
    const auto ranges = image.ranges();
    if (ranges.empty()) return "no data";
    return hexAddress(ranges.front().first) + "-" + hexAddress(ranges.back().last) + ", " +
           countText(ranges.size() - 1, "gap");
}

}  // namespace

std::vector<JobFact> deviceFacts(const DeviceDescription& device, const FlashChip* chip) {
    Facts facts;
    facts.add("serial number", device.serial);
    facts.add("Neuron ID", device.neuronId);
    facts.add("port", device.path);
    facts.add("product", joined(device.manufacturer, device.product));
    facts.add("USB ID", usbText(device));
    if (chip != nullptr) facts.add("flash", chip->text());
    return facts.take();
}

std::vector<JobFact> imageFacts(const std::string& name, const ImageFile& file) {
    Facts facts;
    facts.add("file", name);
    facts.add("format", joined(formatName(file.format), "(" + countText(file.fileBytes, "byte") + ")"));
    std::string changes;
    for (const std::string& change : file.changes) changes += (changes.empty() ? "" : "; ") + change;
    facts.add("converted", changes);
    facts.add("extent", extentText(file.image));
    facts.add("data", countText(file.image.byteCount(), "byte") + " in " +
                          countText(file.image.touchedPages(), "page") + ", " +
                          std::to_string(file.image.blankPages()) + " of them blank");
    if (!file.image.isEmpty()) facts.add("SHA-256 of the image", file.image.identity());
    facts.add("SHA-256 of the file", file.sha256);
    return facts.take();
}

std::vector<JobFact> programFacts(const ProgramResult& done) {
    Facts facts;
    if (!done.upToDate) facts.add("way", std::string(programWayName(done.way)));
    facts.add("pages written", std::to_string(done.pagesWritten));
    facts.add("pages kept", std::to_string(done.pagesKept));
    facts.add("pages left erased", std::to_string(done.pagesBlank));
    facts.add("sectors erased", std::to_string(done.sectorsErased));
    facts.add("pages that needed another attempt", std::to_string(done.retries.size()));
    facts.add("backup", done.backup);
    facts.add("SHA-256 of the backup", done.backupSha256);
    return facts.take();
}

std::string differenceText(const Difference& difference) {
    char bytes[48];
    if (difference.wanted)
        std::snprintf(bytes, sizeof bytes, "file %02X, flash %02X", *difference.wanted, difference.found);
    else
        std::snprintf(bytes, sizeof bytes, "not in the file, flash %02X", difference.found);
    return hexAddress(difference.range.first) + ": " + bytes;
}

std::string comparisonText(const Comparison& comparison, bool isComplete) {
    if (comparison.equal()) return "equal";
    const std::string pages = countText(comparison.pages, "page");
    return "differs at " + differenceText(comparison.differences.front()) +
           (isComplete ? " (" + pages + ")" : " (at least " + pages + "; --every finds all)");
}

}  // namespace tavo
