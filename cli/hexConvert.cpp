#include "cli/hexConvert.h"

#include <algorithm>
#include <cstdio>

#include "cli/hexRecord.h"
#include "cli/lineReader.h"
#include "cli/report.h"

namespace cli {
namespace {

constexpr std::uint32_t kBlock = 0x10000;
/// Room for a carriage return and some blanks after the longest record.
constexpr std::size_t kLongestLine = kLongestRecord + 64;

enum Change { CarriageReturn, Blanks, BlankLine, LowerCase, Segment, StartAddress, Divided, kChanges };

constexpr const char* kChangeTexts[] = {
    "carriage returns taken away",
    "blanks after the record taken away",
    "blank lines taken away",
    "lower-case digits made upper case",
    "segment address records (02) turned into linear ones (04)",
    "start address records (03, 05) left out: the flash holds none",
    "data records divided where they wrap inside their segment or cross 64 KiB",
};
static_assert(std::size(kChangeTexts) == kChanges);

class Converter {
public:
    Converter(const std::string& path, const Descriptor& out, const std::string& outName)
        : path_(path), out_(out), outName_(outName) {}

    void take(const Line& line);
    void finish();
    std::vector<std::string> changes() const;

private:
    [[noreturn]] void refuse(std::uint64_t line, const std::string& text) const;
    std::string_view tidy(const Line& line);
    void apply(const HexRecord& record);
    void placeInSegment(const HexRecord& record);
    void emitAt(std::uint32_t address, const std::uint8_t* data, std::size_t size);
    void emit(const std::string& record);
    void flush();

    const std::string& path_;
    const Descriptor& out_;
    const std::string& outName_;
    std::string text_;
    std::uint64_t counts_[kChanges] = {};
    bool ended_ = false;
    bool inSegment_ = false;
    std::uint32_t segmentBase_ = 0;
    std::uint16_t upperIn_ = 0;   // of the input's last type 04 record
    std::uint16_t upperOut_ = 0;  // announced in the output
};

void Converter::refuse(std::uint64_t line, const std::string& text) const {
    const std::string where = line == 0 ? "" : "line " + std::to_string(line) + ": ";
    throw Failure{Exit::FileRefused,
                  path_ + " is no valid Intel HEX: " + where + text,
                  "make or copy the file again; nothing was written",
                  {}};
}

std::string_view Converter::tidy(const Line& line) {
    std::string_view text = line.text;
    if (!text.empty() && text.back() == '\r') {
        ++counts_[CarriageReturn];
        text.remove_suffix(1);
    }
    const auto last = text.find_last_not_of(" \t");
    if (!text.empty() && last == std::string_view::npos) return {};
    if (last + 1 < text.size()) {
        ++counts_[Blanks];
        text = text.substr(0, last + 1);
    }
    return text;
}

void Converter::take(const Line& line) {
    if (line.tooLong) refuse(line.number, "longer than the longest record");
    const std::string_view text = tidy(line);
    if (text.empty()) {
        ++counts_[BlankLine];
        return;
    }
    HexRecord record;
    if (const auto wrong = parseRecord(text, record); !wrong.empty()) refuse(line.number, wrong);
    if (ended_) refuse(line.number, "record after the end-of-file record");
    if (std::any_of(text.begin(), text.end(), [](char c) { return c >= 'a'; })) ++counts_[LowerCase];
    apply(record);
}

void Converter::apply(const HexRecord& record) {
    switch (record.type) {
        case RecordType::Data:
            if (inSegment_) return placeInSegment(record);
            if (upperOut_ != upperIn_) emit(formatAddressRecord(upperOut_ = upperIn_));
            return emit(formatRecord(record));
        case RecordType::EndOfFile:
            ended_ = true;
            return emit(formatRecord(record));
        case RecordType::ExtendedSegment:
            ++counts_[Segment];
            inSegment_ = true;
            segmentBase_ = static_cast<std::uint32_t>(record.word()) << 4;
            return;
        case RecordType::ExtendedLinear:
            inSegment_ = false;
            upperIn_ = upperOut_ = record.word();
            return emit(formatRecord(record));
        case RecordType::StartSegment:
        case RecordType::StartLinear:
            ++counts_[StartAddress];
            return;
    }
}

/// Offsets wrap at 64 KiB inside a segment: the bytes behind the wrap lie at the segment's start.
void Converter::placeInSegment(const HexRecord& record) {
    const std::size_t beforeWrap = std::min<std::size_t>(record.length, kBlock - record.offset);
    emitAt(segmentBase_ + record.offset, record.data.data(), beforeWrap);
    if (beforeWrap < record.length) {
        ++counts_[Divided];
        emitAt(segmentBase_, record.data.data() + beforeWrap, record.length - beforeWrap);
    }
    if (record.length == 0) emit(formatRecord(record));
}

void Converter::emitAt(std::uint32_t address, const std::uint8_t* data, std::size_t size) {
    while (size > 0) {
        const auto upper = static_cast<std::uint16_t>(address / kBlock);
        if (upper != upperOut_) emit(formatAddressRecord(upperOut_ = upper));
        HexRecord piece;
        piece.offset = static_cast<std::uint16_t>(address % kBlock);
        piece.length = static_cast<std::uint8_t>(std::min<std::size_t>(size, kBlock - piece.offset));
        if (piece.length < size) ++counts_[Divided];
        std::copy_n(data, piece.length, piece.data.begin());
        emit(formatRecord(piece));
        address += piece.length;
        data += piece.length;
        size -= piece.length;
    }
}

void Converter::emit(const std::string& record) {
    constexpr std::size_t kFlushAt = 64 * 1024;
    text_ += record;
    text_ += '\n';
    if (text_.size() >= kFlushAt) flush();
}

void Converter::flush() {
    writeAll(out_, text_.data(), text_.size(), outName_);
    text_.clear();
}

void Converter::finish() {
    if (!ended_) refuse(0, "no end-of-file record: the file may be cut short");
    flush();
}

std::vector<std::string> Converter::changes() const {
    std::vector<std::string> told;
    for (int i = 0; i < kChanges; ++i) {
        if (counts_[i] > 0) told.push_back(std::string(kChangeTexts[i]) + ", " + countText(counts_[i], "line"));
    }
    return told;
}

}  // namespace

std::vector<std::string> convertHex(const std::string& path, const Descriptor& out, const std::string& outName) {
    const Descriptor source = openForReading(path);
    LineReader reader(source, path, kLongestLine);
    Converter converter(path, out, outName);
    for (Line line; reader.next(line);) converter.take(line);
    converter.finish();
    return converter.changes();
}

}  // namespace cli
