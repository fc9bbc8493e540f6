#include <algorithm>

#include "service/image/readers.h"
#include "service/image/recordText.h"

namespace tavo {
namespace {

enum class RecordType : std::uint8_t {
    Data = 0,
    EndOfFile = 1,
    ExtendedSegment = 2,
    StartSegment = 3,
    ExtendedLinear = 4,
    StartLinear = 5,
};

struct TypeLength {
    RecordType type;
    std::uint8_t length;
    const char* name;
};
constexpr TypeLength kLengths[] = {{RecordType::EndOfFile, 0, "an end-of-file record"},
                                   {RecordType::ExtendedSegment, 2, "an extended segment address record"},
                                   {RecordType::StartSegment, 4, "a start segment address record"},
                                   {RecordType::ExtendedLinear, 2, "an extended linear address record"},
                                   {RecordType::StartLinear, 4, "a start linear address record"}};

constexpr std::uint32_t kBlock = 0x10000;
constexpr std::size_t kHeader = 4;  // byte count, two offset bytes, type
constexpr std::size_t kAround = kHeader + 1;
constexpr std::size_t kShortest = 1 + 2 * kAround;

struct HexRecord {
    std::array<std::uint8_t, kAround + 255> bytes;  // from the byte count to the checksum
    std::uint8_t sum = 0;                           // of all of them; 0 when the checksum is right

    std::uint8_t length() const { return bytes[0]; }
    std::uint16_t offset() const { return static_cast<std::uint16_t>(bytes[1] << 8 | bytes[2]); }
    RecordType type() const { return static_cast<RecordType>(bytes[3]); }
    const std::uint8_t* data() const { return bytes.data() + kHeader; }
    std::uint16_t word() const { return static_cast<std::uint16_t>(data()[0] << 8 | data()[1]); }
};

std::string checkType(const HexRecord& record) {
    if (record.type() > RecordType::StartLinear)
        return "unknown record type " + hexByteText(static_cast<unsigned>(record.type()));
    for (const auto& row : kLengths) {
        if (row.type == record.type() && row.length != record.length()) {
            return std::string(row.name) + " has " + std::to_string(row.length) + " data bytes, this one " +
                   std::to_string(record.length());
        }
    }
    return "";
}

/// Decodes a record. @return what is wrong with it, or an empty text
ImageFault parseRecord(std::string_view line, HexRecord& record) {
    if (auto fault = checkCharacters(line, ':', 1, kShortest); !fault.text.empty()) return fault;
    const auto length = static_cast<unsigned>(byteOf(&line[1]));
    const std::size_t wanted = kShortest + 2 * std::size_t{length};
    if (line.size() != wanted) {
        return {0,
                "byte count " + hexByteText(length) + " makes " + std::to_string(wanted) +
                    " characters, the line has " + std::to_string(line.size()),
                hint::kMakeAgain};
    }
    decodeDigits(&line[1], kAround + length, record.bytes.data(), record.sum);
    if (record.sum != 0) {
        const unsigned found = record.bytes[kHeader + length];
        return {0, "wrong checksum: expected " + hexByteText(found - record.sum) + ", found " + hexByteText(found),
                hint::kMakeAgain};
    }
    return {0, checkType(record), hint::kMakeAgain};
}

class HexReader {
public:
    explicit HexReader(ImageCollector& collector)
        : collector_(collector), strict_(collector.options().strict), rewrite_(collector.options().keepPieces) {}

    std::uint64_t lines = 0;

    const char* takeRecords(const char* at, const char* end);
    bool takeLine(const TextLine& line);

private:
    void apply(std::uint64_t line, const HexRecord& record);
    void applyOdd(std::uint64_t line, const HexRecord& record);
    void moveTo(std::uint32_t base, bool inSegment);
    void place(std::uint64_t line, const HexRecord& record);
    void placeInSegment(std::uint64_t line, const HexRecord& record);

    ImageCollector& collector_;
    bool strict_;
    bool rewrite_;
    bool addressesKnown_ = true;  // until a record that may have moved them is not taken
    bool inSegment_ = false;
    std::uint32_t base_ = 0;  // what a record's offset is added to
    std::uint64_t endLine_ = 0;
};

/// Of hexadecimal digits and ':' only the lower-case ones have both bits, 5 and 6. Vector code, as decodeDigits.
bool hasLowerCase(const char* text, std::size_t size) {
    std::uint8_t both = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const auto code = static_cast<std::uint8_t>(text[i]);
        both |= static_cast<std::uint8_t>(code & static_cast<std::uint8_t>(code << 1));
    }
    return (both & 0x40) != 0;
}

/// Nearly every line of a file is a data record like the one before.
const char* HexReader::takeRecords(const char* at, const char* end) {
    HexRecord record;
    while (static_cast<std::size_t>(end - at) > kShortest && *at == ':' && endLine_ == 0) {
        const int length = byteOf(at + 1);
        const std::size_t size = kShortest + 2 * static_cast<std::size_t>(length);
        if (length <= 0 || static_cast<std::size_t>(end - at) < size + 2) break;
        const bool withReturn = at[size] == '\r';
        if (at[size + withReturn] != '\n' || (withReturn && strict_)) break;
        record.sum = 0;
        if (!decodeDigits(at + 1, kAround + static_cast<std::size_t>(length), record.bytes.data(), record.sum)) break;
        if (record.sum != 0 || record.type() != RecordType::Data) break;
        if (withReturn) collector_.change(Change::CarriageReturn);
        if (rewrite_ && hasLowerCase(at, size)) collector_.change(Change::LowerCase);
        place(++lines, record);
        at += size + withReturn + 1;
    }
    return at;
}

bool HexReader::takeLine(const TextLine& line) {
    if (!isPlainText(collector_, line)) return false;
    if (line.tooLong) {
        collector_.fault(line.number,
                         "longer than the longest record (" + std::to_string(kLongestRecord) + " characters)",
                         hint::kWrongFile);
        return true;
    }
    const std::string_view text = tidyLine(collector_, line);
    if (text.empty()) return true;
    HexRecord record;
    if (const auto fault = parseRecord(text, record); !fault.text.empty()) {
        collector_.fault(line.number, fault.text, fault.hint);
        return true;
    }
    if (rewrite_ && hasLowerCase(text.data(), text.size())) collector_.change(Change::LowerCase);
    apply(line.number, record);
    return true;
}

void HexReader::apply(std::uint64_t line, const HexRecord& record) {
    if (endLine_ != 0) {
        return collector_.cause("end", line, "record after the end-of-file record of line " + std::to_string(endLine_),
                                "two files put together? Take one of them");
    }
    if (record.type() == RecordType::Data) return place(line, record);
    if (record.type() == RecordType::ExtendedLinear) return moveTo(std::uint32_t{record.word()} << 16, false);
    if (record.type() == RecordType::EndOfFile) {
        collector_.file().endOfFileRecord = true;
        endLine_ = line;
        return;
    }
    if (strict_) return applyOdd(line, record);
    if (record.type() != RecordType::ExtendedSegment) return collector_.change(Change::StartAddress);
    collector_.change(Change::Segment);
    moveTo(std::uint32_t{record.word()} << 4, true);
}

void HexReader::applyOdd(std::uint64_t line, const HexRecord& record) {
    addressesKnown_ = addressesKnown_ && record.type() != RecordType::ExtendedSegment;
    const std::string type = "record type " + hexByteText(static_cast<unsigned>(record.type()));
    collector_.cause(type, line, type + " is not taken", hint::kConvert);
}

void HexReader::moveTo(std::uint32_t base, bool inSegment) {
    if (rewrite_ && !inSegment && !inSegment_ && base == base_) collector_.change(Change::AddressRecord);
    base_ = base;
    inSegment_ = inSegment;
}

void HexReader::place(std::uint64_t line, const HexRecord& record) {
    if (record.length() == 0) {
        if (rewrite_) collector_.change(Change::EmptyRecord);
        return;
    }
    if (!addressesKnown_) return;
    if (inSegment_) return placeInSegment(line, record);
    collector_.place(line, std::uint64_t{base_} + record.offset(), record.data(), record.length());
}

/// Offsets wrap at 64 KiB inside a segment: the bytes behind the wrap lie at the segment's start. Without
/// segments a record that crosses a multiple of 64 KiB has to become two.
void HexReader::placeInSegment(std::uint64_t line, const HexRecord& record) {
    const std::size_t beforeWrap = std::min<std::size_t>(record.length(), kBlock - record.offset());
    const std::uint64_t first = std::uint64_t{base_} + record.offset();
    const std::size_t beforeBlock = std::min<std::size_t>(beforeWrap, kBlock - first % kBlock);
    const bool isDivided = beforeWrap < record.length() || (rewrite_ && beforeBlock < beforeWrap);
    if (isDivided) collector_.change(Change::Divided);
    collector_.place(line, first, record.data(), beforeBlock);
    if (beforeBlock < beforeWrap) {
        collector_.place(line, first + beforeBlock, record.data() + beforeBlock, beforeWrap - beforeBlock);
    }
    if (beforeWrap == record.length()) return;
    collector_.place(line, base_, record.data() + beforeWrap, record.length() - beforeWrap);
}

}  // namespace

bool readHex(ImageSource& source, ImageCollector& collector) {
    HexReader reader(collector);
    return readLines(source, reader);
}

}  // namespace tavo
