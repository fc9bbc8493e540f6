#include "service/image/imageCollector.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <iterator>
#include <tuple>

#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr const char* kChangeTexts[] = {
    "byte order mark (UTF-8) taken away",
    "carriage returns taken away",
    "blanks after the record taken away",
    "blank lines taken away",
    "lower-case digits made upper case",
    "segment address records (02) turned into linear ones (04)",
    "start address records left out: the flash holds none",
    "data records divided where they wrap inside their segment or cross 64 KiB in it",
    "address records without effect left out",
    "data records without data left out",
};
static_assert(std::size(kChangeTexts) == static_cast<std::size_t>(Change::Count_));

ImageFault faultOfHeight(std::uint64_t line, std::uint64_t first, std::uint64_t last, std::uint32_t size) {
    char text[160];
    const bool chip = size < kAddressable;
    std::snprintf(text, sizeof text, "data at 0x%06llX to 0x%06llX lies above %s (0x%06X)",
                  static_cast<unsigned long long>(first), static_cast<unsigned long long>(last),
                  chip ? "the chip's last address" : "24 address bits", size - 1);
    return {line, text,
            chip ? "choose an image made for a chip of " + sizeText(size)
                 : "the flash takes 24 address bits: link the image from address 0"};
}

/// Where in the file the first byte stands that lies too high; offset: of the byte at first.
std::uint64_t offsetAbove(std::uint64_t offset, std::uint64_t first, std::uint32_t size) {
    return offset + (first < size ? size - first : 0);
}

std::string andMore(std::uint64_t line, std::uint64_t lines) {
    return lines > 1 ? ", here and in " + countText(lines - 1, line > 0 ? "more line" : "more segment") : "";
}

}  // namespace

std::string hexByteText(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "%02X", value & 0xFF);
    return text;
}

void ImageCollector::fault(std::uint64_t line, const std::string& text, const std::string& remedy) {
    ++file_.faultCount;
    if (file_.faults.size() < ImageFile::kListedFaults) file_.faults.push_back({line, text, remedy});
}

void ImageCollector::cause(const std::string& name, std::uint64_t line, const std::string& text,
                           const std::string& remedy, std::uint64_t offset) {
    Cause& found = causes_[name];
    if (found.lines++ == 0) found = {line, 1, text, remedy, offset};
}

void ImageCollector::place(std::uint64_t line, std::uint64_t address, const std::uint8_t* bytes, std::size_t size,
                           std::uint64_t offset) {
    const std::uint64_t last = address + size - 1;
    if (last >= options_.chipSize) return tooHigh(line, address, last, offset);
    const auto first = static_cast<std::uint32_t>(address);
    if (options_.keepPieces && line > 0) file_.pieces.push_back({first, static_cast<std::uint32_t>(size)});
    auto& reach = file_.reaches[static_cast<std::size_t>(std::bit_width(last))];
    if (reach.lines++ == 0) reach = {line, 1, first, static_cast<std::uint32_t>(last), offset};
    if (const auto overlap = file_.image.add(first, bytes, size)) {
        cause("overlap", line,
              "overlaps earlier data with other bytes: at " + hexAddress(overlap->address) + " " +
                  hexByteText(overlap->before) + " before, " + hexByteText(overlap->now) + " here",
              "the build puts two things in one place: mend its memory map", offset + overlap->address - first);
    }
}

void ImageCollector::tooHigh(std::uint64_t line, std::uint64_t first, std::uint64_t last, std::uint64_t offset) {
    const ImageFault above = faultOfHeight(line, first, last, options_.chipSize);
    cause("above", line, above.text, above.hint, offsetAbove(offset, first, options_.chipSize));
}

void ImageCollector::finish() {
    for (const auto& [name, each] : causes_) {
        file_.faults.push_back({each.line, each.text + andMore(each.line, each.lines), each.remedy});
        if (each.line == 0) file_.faults.back().offset = each.offset;
        ++file_.faultCount;
    }
    std::stable_sort(file_.faults.begin(), file_.faults.end(), [](const ImageFault& a, const ImageFault& b) {
        return std::tie(a.line, a.offset) < std::tie(b.line, b.offset);
    });
    for (std::size_t i = 0; i < std::size(kChangeTexts); ++i) {
        if (changes_[i] > 0) note(std::string(kChangeTexts[i]) + ", " + countText(changes_[i], "line"));
    }
}

std::optional<ImageFault> ImageFile::faultAbove(std::uint32_t chipSize) const {
    const auto ranges = image.ranges();
    if (ranges.empty() || ranges.back().last < chipSize) return {};
    const auto above =
        std::find_if(ranges.begin(), ranges.end(), [&](const auto& each) { return each.last >= chipSize; });
    if (format == Format::Binary || !std::has_single_bit(chipSize)) {
        ImageFault fault = faultOfHeight(0, above->first, above->last, chipSize);
        if (format == Format::Binary) fault.offset = offsetAbove(0, above->first, chipSize);
        return fault;
    }
    Reach found;
    for (std::size_t i = static_cast<std::size_t>(std::bit_width(chipSize)); i < reaches.size(); ++i) {
        if (reaches[i].lines == 0) continue;
        const std::uint64_t lines = found.lines + reaches[i].lines;
        if (found.lines == 0 || reaches[i].line < found.line) found = reaches[i];
        found.lines = lines;
    }
    ImageFault fault = faultOfHeight(found.line, found.first, found.last, chipSize);
    if (found.line == 0) fault.offset = offsetAbove(found.offset, found.first, chipSize);
    fault.text += andMore(found.line, found.lines);
    return fault;
}

}  // namespace tavo
