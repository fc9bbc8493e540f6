#include "cli/hexImage.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>

#include "cli/hexRecord.h"
#include "cli/lineReader.h"
#include "cli/report.h"
#include "cli/sha256.h"
#include "tavo/hexFileReader.h"

namespace cli {
namespace {

constexpr const char* kConvert = "tavo-util convert IN OUT.hex, or program --convert";
constexpr const char* kMakeAgain = "the file is damaged: make or copy it again";
constexpr const char* kWrongFile = "name the Intel HEX file that the firmware's build made";

/// A line may be this much longer than the longest record before it is cut; then it is no record anyway.
constexpr std::size_t kLongestLine = kLongestRecord + 8;

std::string hexByte(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "%02X", value);
    return text;
}

/// What many lines have in common is one fault, with its first line.
struct Cause {
    std::uint64_t line = 0;
    std::uint64_t lines = 0;
    std::string text;
    std::string remedy;
};

class Checker {
public:
    Checker(HexFile& file, const HexLimits& limits, std::uint64_t textBytes)
        : file_(file), limits_(limits), textBytes_(textBytes) {}

    void take(const Line& line);
    void finish();
    bool isText() const { return text_; }

private:
    void fault(std::uint64_t line, const std::string& text, const std::string& remedy);
    void cause(const std::string& name, std::uint64_t line, const std::string& text, const std::string& remedy);
    void tellCauses();
    bool isGood() const { return file_.faultCount == 0 && causes_.empty(); }
    bool isPlainText(const Line& line);
    std::string_view withoutReturn(const Line& line);
    void apply(const Line& line, const HexRecord& record);
    void place(const Line& line, const HexRecord& record);
    void placeBytes(const Line& line, const HexRecord& record, std::uint32_t first);
    void readAsLibrary(const Line& line);
    void fetchPages();

    HexFile& file_;
    const HexLimits& limits_;
    std::uint64_t textBytes_;
    bool text_ = true;
    bool addressesKnown_ = true;  // until a record that may have moved them is not taken
    std::uint16_t upper_ = 0;
    std::uint64_t endLine_ = 0;
    std::map<std::string, Cause> causes_;
    std::uint64_t decoded_ = 0;
    std::uint64_t fetched_ = 0;
    bool differs_ = false;
    IntelHexParser parser_{kPageSize};
};

void Checker::fault(std::uint64_t line, const std::string& text, const std::string& remedy) {
    ++file_.faultCount;
    if (file_.faults.size() < kListedFaults) file_.faults.push_back({line, text, remedy});
}

void Checker::cause(const std::string& name, std::uint64_t line, const std::string& text, const std::string& remedy) {
    Cause& found = causes_[name];
    if (found.lines++ == 0) found = {line, 1, text, remedy};
}

void Checker::tellCauses() {
    for (const auto& [name, each] : causes_) {
        const std::string more = each.lines > 1 ? ", here and in " + countText(each.lines - 1, "more line") : "";
        file_.faults.push_back({each.line, each.text + more, each.remedy});
        ++file_.faultCount;
    }
    std::stable_sort(file_.faults.begin(), file_.faults.end(),
                     [](const HexFault& a, const HexFault& b) { return a.line < b.line; });
}

bool Checker::isPlainText(const Line& line) {
    const auto odd = std::find_if(line.text.begin(), line.text.end(), [](char c) {
        const auto code = static_cast<unsigned char>(c);
        return (code < 0x20 && c != '\r' && c != '\t') || code >= 0x7F;
    });
    if (odd == line.text.end()) return true;
    text_ = false;
    fault(line.number, "byte 0x" + hexByte(static_cast<unsigned char>(*odd)) + ": not a text file, so not Intel HEX",
          kWrongFile);
    return false;
}

std::string_view Checker::withoutReturn(const Line& line) {
    if (line.text.empty() || line.text.back() != '\r') return line.text;
    cause("return", line.number, "carriage return before the line feed (CR LF)", kConvert);
    return line.text.substr(0, line.text.size() - 1);
}

void Checker::take(const Line& line) {
    if (!isPlainText(line)) return;
    if (line.tooLong) {
        fault(line.number, "longer than the longest record (" + std::to_string(kLongestRecord) + " characters)",
              kWrongFile);
        return;
    }
    HexRecord record;
    const std::string_view text = withoutReturn(line);
    if (const auto wrong = parseRecord(text, record); !wrong.empty()) {
        const bool blank = text.find_first_not_of(" \t") == std::string_view::npos;
        fault(line.number, wrong, blank ? kConvert : kMakeAgain);
        return;
    }
    apply(line, record);
    if (isGood()) readAsLibrary(line);
}

void Checker::apply(const Line& line, const HexRecord& record) {
    if (file_.endOfFile) {
        cause("end", line.number, "record after the end-of-file record of line " + std::to_string(endLine_),
              "two files put together? Take one of them");
        return;
    }
    switch (record.type) {
        case RecordType::Data:
            place(line, record);
            return;
        case RecordType::ExtendedLinear:
            upper_ = record.word();
            return;
        case RecordType::EndOfFile:
            file_.endOfFile = true;
            endLine_ = line.number;
            return;
        default: {
            addressesKnown_ = addressesKnown_ && record.type != RecordType::ExtendedSegment;
            const std::string type = "record type " + hexByte(static_cast<unsigned>(record.type));
            cause(type, line.number, type + " is not taken", kConvert);
        }
    }
}

void Checker::place(const Line& line, const HexRecord& record) {
    if (record.length == 0 || !addressesKnown_) return;
    const std::uint64_t first = static_cast<std::uint64_t>(upper_) << 16 | record.offset;
    const std::uint64_t last = first + record.length - 1;
    if (last < limits_.flashSize) {
        placeBytes(line, record, static_cast<std::uint32_t>(first));
        return;
    }
    char text[160];
    const bool chip = limits_.flashSize < kAddressable;
    std::snprintf(text, sizeof text, "data at 0x%06llX to 0x%06llX lies above %s (0x%06X)",
                  static_cast<unsigned long long>(first), static_cast<unsigned long long>(last),
                  chip ? "the chip's last address" : "24 address bits", limits_.flashSize - 1);
    cause("above", line.number, text,
          chip ? "choose an image made for a chip of " + sizeText(limits_.flashSize)
               : "the flash takes 24 address bits: link the image from address 0");
}

void Checker::placeBytes(const Line& line, const HexRecord& record, std::uint32_t first) {
    bool told = false;
    for (std::uint32_t i = 0; i < record.length; ++i) {
        const auto before = file_.image.put(first + i, record.data[i]);
        if (told || !before || *before == record.data[i]) continue;
        told = true;
        cause("overlap", line.number,
              "overlaps earlier data with other bytes: at " + hexAddress(first + i) + " " + hexByte(*before) +
                  " before, " + hexByte(record.data[i]) + " here",
              "the build puts two things in one place: mend its memory map");
    }
    decoded_ += record.length;
}

void Checker::readAsLibrary(const Line& line) {
    try {
        parser_.ParseRecord(std::string(line.text).c_str());
        fetchPages();
    } catch (const std::exception& error) {
        std::string text = error.what();
        while (!text.empty() && text.back() == '\n') text.pop_back();
        fault(line.number, "the library's reader refuses it: " + text, kConvert);
        return;
    }
    const auto percent = std::min<std::uint64_t>(100, line.end * 100 / std::max<std::uint64_t>(1, textBytes_));
    file_.bytesAtPercent[percent] = fetched_;
}

void Checker::fetchPages() {
    while (parser_.isPageReady()) {
        const std::uint32_t address = parser_.FetchAddress();
        const auto page = parser_.FetchPage();
        for (std::size_t i = 0; i < page.size(); ++i) {
            differs_ = differs_ || file_.image.at(address + static_cast<std::uint32_t>(i)) != page[i];
        }
        fetched_ += page.size();
    }
}

void Checker::finish() {
    auto& shares = file_.bytesAtPercent;
    for (std::size_t i = 1; i < shares.size(); ++i) shares[i] = std::max(shares[i], shares[i - 1]);
    if (!text_) return;
    tellCauses();
    if (file_.textBytes == 0) {
        fault(0, "the file is empty", kWrongFile);
    } else if (!file_.endOfFile) {
        fault(0, "no end-of-file record: the file may be cut short", kMakeAgain);
    } else if (decoded_ == 0 && file_.faultCount == 0) {
        fault(0, "no data at all", kWrongFile);
    }
    if (file_.faultCount == 0 && (differs_ || fetched_ != decoded_)) {
        throw Failure{Exit::Internal,
                      "the library's reader and the strict reader disagree about this file",
                      "please report this, with the file",
                      {}};
    }
}

}  // namespace

HexFile readHexFile(const std::string& path, const HexLimits& limits, const PrivateFile* copy) {
    const Descriptor source = openForReading(path);
    HexFile file;
    Sha256 digest;
    LineReader reader(source, path, kLongestLine);
    reader.onText([&](const char* text, std::size_t size) {
        digest.add(text, size);
        if (copy != nullptr && file.faultCount == 0) writeAll(copy->descriptor(), text, size, "the private copy");
    });
    Checker checker(file, limits, sizeOf(source));
    for (Line line; checker.isText() && reader.next(line);) {
        file.textBytes = line.end;
        checker.take(line);
    }
    checker.finish();
    if (checker.isText()) file.sha256 = digest.text();
    return file;
}

std::string faultText(const HexFault& fault) {
    return fault.line == 0 ? fault.text : "line " + std::to_string(fault.line) + ": " + fault.text;
}

Failure refusal(const std::string& path, const HexFile& file) {
    std::string text = path + " refused: " + faultText(file.faults.front());
    if (file.faultCount > 1) text += " (and " + countText(file.faultCount - 1, "more fault") + ": tavo-util check)";
    return {Exit::FileRefused, text, file.faults.front().remedy, {}};
}

}  // namespace cli
