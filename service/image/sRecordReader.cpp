#include <algorithm>

#include "service/image/readers.h"
#include "service/image/recordText.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

enum class Kind : std::uint8_t { Header, Data, Count, End, Unknown };

struct RecordType {
    Kind kind;
    std::uint8_t addressBytes;
};
// By the digit after the S.
constexpr RecordType kTypes[] = {{Kind::Header, 2},  {Kind::Data, 2},  {Kind::Data, 3},  {Kind::Data, 4},
                                 {Kind::Unknown, 2}, {Kind::Count, 2}, {Kind::Count, 3}, {Kind::End, 4},
                                 {Kind::End, 3},     {Kind::End, 2}};

constexpr std::size_t kStart = 2;         // characters of start code and type
constexpr std::size_t kShortest = 10;     // with byte count, two address bytes and checksum
constexpr std::uint8_t kRightSum = 0xFF;  // the checksum is the ones' complement

struct SRecord {
    RecordType type{};
    std::array<std::uint8_t, 256> bytes;  // from the byte count to the checksum
    std::uint8_t sum = 0;

    std::size_t count() const { return bytes[0]; }
    std::size_t dataSize() const { return count() - 1U - type.addressBytes; }
    const std::uint8_t* data() const { return bytes.data() + 1 + type.addressBytes; }
    std::uint32_t address() const {
        std::uint32_t value = 0;
        for (std::size_t i = 1; i <= type.addressBytes; ++i) value = value << 8 | bytes[i];
        return value;
    }
};

/// Decodes a record. @return what is wrong with it, or an empty text
ImageFault parseRecord(std::string_view line, SRecord& record) {
    if (auto fault = checkCharacters(line, 'S', 1, kShortest); !fault.text.empty()) return fault;
    const int type = digitValue(line[1]);
    if (type > 9 || kTypes[type].kind == Kind::Unknown)
        return {0, std::string("unknown record type S") + line[1], hint::kMakeAgain};
    record.type = kTypes[type];
    const auto count = static_cast<unsigned>(byteOf(&line[kStart]));
    const std::size_t wanted = kStart + 2 * (1 + std::size_t{count});
    if (line.size() != wanted) {
        return {0,
                "byte count " + hexByteText(count) + " makes " + std::to_string(wanted) + " characters, the line has " +
                    std::to_string(line.size()),
                hint::kMakeAgain};
    }
    if (count < record.type.addressBytes + 1U)
        return {0, "byte count " + hexByteText(count) + " has no room for the address", hint::kMakeAgain};
    decodeDigits(&line[kStart], 1 + count, record.bytes.data(), record.sum);
    if (record.sum == kRightSum) return {};
    const unsigned found = record.bytes[count];
    return {0,
            "wrong checksum: expected " + hexByteText(found + kRightSum - record.sum) + ", found " + hexByteText(found),
            hint::kMakeAgain};
}

class SRecordReader {
public:
    explicit SRecordReader(ImageCollector& collector) : collector_(collector) {}

    std::uint64_t lines = 0;

    const char* takeRecords(const char* at, const char* end);
    bool takeLine(const TextLine& line);

private:
    void apply(std::uint64_t line, const SRecord& record);
    void compareCount(std::uint64_t line, std::uint32_t count);
    void place(std::uint64_t line, const SRecord& record);

    ImageCollector& collector_;
    std::uint64_t dataRecords_ = 0;
    std::uint64_t endLine_ = 0;
};

/// Nearly every line of a file is a data record like the one before.
const char* SRecordReader::takeRecords(const char* at, const char* end) {
    SRecord record;
    while (static_cast<std::size_t>(end - at) > kShortest && *at == 'S' && at[1] >= '1' && at[1] <= '3' &&
           endLine_ == 0) {
        record.type = kTypes[at[1] - '0'];
        const int count = byteOf(at + kStart);
        const std::size_t size = kStart + 2 * (1 + static_cast<std::size_t>(count));
        if (count <= record.type.addressBytes + 1 || static_cast<std::size_t>(end - at) < size + 2) break;
        const bool withReturn = at[size] == '\r';
        if (at[size + withReturn] != '\n') break;
        record.sum = 0;
        if (!decodeDigits(at + kStart, 1 + static_cast<std::size_t>(count), record.bytes.data(), record.sum)) break;
        if (record.sum != kRightSum) break;
        if (withReturn) collector_.change(Change::CarriageReturn);
        place(++lines, record);
        at += size + withReturn + 1;
    }
    return at;
}

bool SRecordReader::takeLine(const TextLine& line) {
    if (!isPlainText(collector_, line)) return false;
    if (line.tooLong) {
        collector_.fault(line.number, "longer than the longest record", hint::kWrongFile);
        return true;
    }
    const std::string_view text = tidyLine(collector_, line);
    if (text.empty()) return true;
    SRecord record;
    const auto fault = parseRecord(text, record);
    if (!fault.text.empty())
        collector_.fault(line.number, fault.text, fault.hint);
    else
        apply(line.number, record);
    return true;
}

void SRecordReader::apply(std::uint64_t line, const SRecord& record) {
    if (endLine_ != 0) {
        return collector_.cause("end", line, "record after the end-of-file record of line " + std::to_string(endLine_),
                                "two files put together? Take one of them");
    }
    if (record.type.kind == Kind::Data) return place(line, record);
    if (record.type.kind == Kind::Count) return compareCount(line, record.address());
    if (record.type.kind != Kind::End) return;
    collector_.file().endOfFileRecord = true;
    endLine_ = line;
    if (record.address() != 0) collector_.change(Change::StartAddress);
}

/// A right count shows that nothing is missing as well as an end record does; some tools write nothing else.
void SRecordReader::compareCount(std::uint64_t line, std::uint32_t count) {
    collector_.file().endOfFileRecord = count == dataRecords_;
    if (count == dataRecords_) return;
    collector_.fault(
        line,
        "counts " + countText(count, "data record") + ", there are " + std::to_string(dataRecords_) + " before it",
        hint::kMakeAgain);
}

void SRecordReader::place(std::uint64_t line, const SRecord& record) {
    ++dataRecords_;
    collector_.file().endOfFileRecord = false;
    if (record.dataSize() > 0) collector_.place(line, record.address(), record.data(), record.dataSize());
}

}  // namespace

bool readSRecord(ImageSource& source, ImageCollector& collector) {
    collector.note("Motorola S-record read");
    SRecordReader reader(collector);
    return readLines(source, reader);
}

}  // namespace tavo
