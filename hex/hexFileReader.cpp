#include "tavo/hexFileReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kFlashPage = 256;  // a page program wraps inside its 256 bytes of the chip

// Character positions in a line; character 0 is the start code.
constexpr std::size_t kLength = 1;
constexpr std::size_t kOffset = 3;
constexpr std::size_t kType = 7;
constexpr std::size_t kData = 9;
constexpr std::size_t kHeaderBytes = 4;  // byte count, two offset bytes, type

enum Type : unsigned int { kDataRecord = 0, kEndOfFile = 1, kExtendedLinearAddress = 4 };

// The value of a hexadecimal digit, -1 for every other character.
constexpr auto kDigit = [] {
    std::array<signed char, 256> table{};
    table.fill(-1);
    for (int i = 0; i < 10; ++i) table['0' + i] = static_cast<signed char>(i);
    for (int i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = static_cast<signed char>(10 + i);
    return table;
}();

int digit(char c) {
    return kDigit[static_cast<unsigned char>(c)];
}

std::string_view viewOf(const char* line) {
    // What the making of a std::string would say.
    if (line == nullptr) throw std::logic_error("basic_string: construction from null is not valid");
    return line;
}

// Blanks, a sign, a "0x", digits that end early: strtoul knows what each of them means.
unsigned long oddFieldValue(const std::string& field) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(field.c_str(), &end, 16);
    if (errno != 0 || end == field.c_str()) throw std::runtime_error("Could not interpret hex values from file.\n");
    return value;
}

unsigned long fieldValue(std::string_view line, std::size_t position, std::size_t count) {
    errno = 0;
    if (position > line.size()) static_cast<void>(std::string(line).substr(position));  // throws std::out_of_range
    const auto field = line.substr(position, count);
    if (field.empty() || field.size() > 2 * sizeof(unsigned long)) return oddFieldValue(std::string(field));
    unsigned long value = 0;
    for (const char c : field) {
        if (digit(c) < 0) return oddFieldValue(std::string(field));
        value = value << 4 | static_cast<unsigned long>(digit(c));
    }
    return value;
}

unsigned char lengthOf(std::string_view line) {
    return static_cast<unsigned char>(fieldValue(line, kLength, 2));
}

// A length of 0 or 1 wraps the end around: the fields run out of the line and reading there throws.
unsigned char checksumOf(std::string_view line, unsigned long length) {
    unsigned int sum = 0;
    for (unsigned long position = kLength; position < length - 2; position += 2)
        sum += static_cast<unsigned int>(fieldValue(line, position, 2));
    return static_cast<unsigned char>(0U - sum);
}

// One line of nothing but digit pairs, as many as its byte count says, decoded in one go. The block
// loops are of fixed length, so that the compiler turns them into vector code.
class PlainRecord {
public:
    explicit PlainRecord(std::string_view line) {
        if (line.size() < kData + 2 || !decode(line.data() + kLength, 0, kHeaderBytes)) return;
        const std::size_t rest = dataSize() + 1;  // data and checksum
        plain = line.size() == kData + 2 * rest && decode(line.data() + kData, kHeaderBytes, rest);
    }
    bool isGoodDataRecord() const { return plain && bytes[3] == kDataRecord && sum == 0; }
    unsigned int offset() const { return static_cast<unsigned int>(bytes[1] << 8 | bytes[2]); }
    const unsigned char* data() const { return bytes.data() + kHeaderBytes; }
    unsigned int dataSize() const { return bytes[0]; }

private:
    static constexpr std::size_t kBlock = 16;

    std::array<unsigned char, kHeaderBytes + 255 + 1> bytes;  // from the byte count to the checksum
    unsigned char sum = 0;                                    // of all of them; 0 when the checksum is right
    bool plain = false;

    // False when one of the characters is not a digit.
    bool decode(const char* text, std::size_t at, std::size_t count) {
        for (; count >= kBlock; at += kBlock, count -= kBlock, text += 2 * kBlock)
            if (!decodeBlock(text, bytes.data() + at)) return false;
        int odd = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const int value = digit(text[2 * i]) * 16 | digit(text[2 * i + 1]);
            odd |= value;  // negative once a character is not a digit
            bytes[at + i] = static_cast<unsigned char>(value);
            sum = static_cast<unsigned char>(sum + value);
        }
        return odd >= 0;
    }

    bool decodeBlock(const char* text, unsigned char* out) {
        unsigned char nibbles[2 * kBlock];
        unsigned char odd = 0;
        for (std::size_t i = 0; i < 2 * kBlock; ++i) {
            const auto number = static_cast<unsigned char>(text[i] - '0');
            const auto letter = static_cast<unsigned char>((text[i] | 0x20) - 'a');
            const auto letterValue = static_cast<unsigned char>(letter < 6 ? letter + 10 : 0x10);
            nibbles[i] = number < 10 ? number : letterValue;
            odd |= nibbles[i];
        }
        unsigned char blockSum = 0;
#pragma GCC unroll 1  // unrolled whole, as -O3 would have it, the loop is vector code no longer
        for (std::size_t i = 0; i < kBlock; ++i) {
            out[i] = static_cast<unsigned char>(nibbles[2 * i] << 4 | nibbles[2 * i + 1]);
            blockSum = static_cast<unsigned char>(blockSum + out[i]);
        }
        sum = static_cast<unsigned char>(sum + blockSum);
        return odd < 0x10;
    }
};

}  // namespace

IntelHexParser::IntelHexParser(int size) : pageSize(size) {}

IntelHexParser::~IntelHexParser() = default;

// Nearly every line of a file is a data record of digit pairs: it is decoded once. Whatever is odd
// about a line, and every other type, goes field by field.
void IntelHexParser::ParseRecord(const char* line) {
    const PlainRecord record(viewOf(line));
    if (!record.isGoodDataRecord()) return parseByFields(line);
    errno = 0;  // as after reading any field
    lineAddress = static_cast<unsigned int>(extendedAddress) << 16 | record.offset();
    lineData.assign(record.data(), record.data() + record.dataSize());
    queueLine(record.dataSize());
}

void IntelHexParser::parseByFields(const char* line) {
    CheckChecksum(line);
    const unsigned int type = RecordType(line);
    if (type == kEndOfFile) return HandleEndOfFileType(line);
    if (type == kDataRecord) return HandleDataType(line);
    if (type == kExtendedLinearAddress) return HandleExtendedSegmentAddressType(line);
    DataReadyToFetch(false);
    char text[64];
    static_cast<void>(std::snprintf(text, sizeof text, "Unsupported Intel HEX record type 0x%X\n", type));
    throw std::runtime_error(text);
}

void IntelHexParser::CheckChecksum(const char* line) {
    const unsigned char stored = RecordChecksum(line);
    if (stored != CalculateRecordChecksum(line, std::strlen(line)))
        throw std::runtime_error("Corrupt Intel HEX, wrong checksum.\n");
}

unsigned char IntelHexParser::RecordLength(const char* line) {
    return lengthOf(viewOf(line));
}

unsigned int IntelHexParser::RecordAddress(const char* line) {
    return static_cast<unsigned int>(fieldValue(viewOf(line), kOffset, 4)) | static_cast<unsigned int>(extendedAddress)
                                                                                 << 16;
}

unsigned int IntelHexParser::RecordType(const char* line) {
    return static_cast<unsigned int>(fieldValue(viewOf(line), kType, 2));
}

unsigned char IntelHexParser::RecordChecksum(const char* line) {
    const auto text = viewOf(line);
    const std::size_t position = kData + 2 * std::size_t{lengthOf(text)};
    return static_cast<unsigned char>(fieldValue(text, position, 2));
}

std::vector<unsigned char> IntelHexParser::RecordData(const char* line) {
    const auto text = viewOf(line);
    std::vector<unsigned char> data(lengthOf(text));
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(fieldValue(text, kData + 2 * i, 2));
    return data;
}

unsigned char IntelHexParser::CalculateRecordChecksum(const char* line, unsigned long length) {
    return checksumOf(viewOf(line), length);
}

unsigned int IntelHexParser::GetTwosComplement(unsigned int value) {
    return 0U - value;
}

unsigned long IntelHexParser::GetHexCharacterAsLong(const char* line, int position, int count) {
    return fieldValue(viewOf(line), static_cast<std::size_t>(position), static_cast<std::size_t>(count));
}

void IntelHexParser::HandleExtendedSegmentAddressType(const char* line) {
    extendedAddress = static_cast<unsigned short>(fieldValue(viewOf(line), kData, 4));
    DataReadyToFetch(false);
}

void IntelHexParser::HandleDataType(const char* line) {
    lineAddress = RecordAddress(line);
    lineData = RecordData(line);
    queueLine(RecordLength(line));
}

// Appends the record in lineData to the run, or, at a gap, closes the run and holds the record back
// until the run has been fetched.
void IntelHexParser::queueLine(unsigned int length) {
    if (isNewPage()) savePageAddress(lineAddress);
    const bool gap = isGap();
    runClosed = gap && !isNewPage();
    if (runClosed) {
        DataReadyToFetch(true);
    } else {
        PushLineDataToDataQueue();
        if (!gap) DataReadyToFetch(holdsPage());
    }
    previousLineAddress = lineAddress;
    previousLineLength = length;
    firstLine = false;
}

void IntelHexParser::HandleEndOfFileType(const char*) {
    runClosed = true;
    DataReadyToFetch(true);
}

bool IntelHexParser::holdsPage() const {
    return dataQueue.size() >= static_cast<std::size_t>(pageSize);
}

bool IntelHexParser::isPageReady() {
    return pageReady;
}

unsigned int IntelHexParser::FetchAddress() {
    return pageAddress;
}

std::vector<unsigned char> IntelHexParser::FetchPage() {
    std::size_t count = std::min(dataQueue.size(), kFlashPage - pageAddress % kFlashPage);
    if (pageSize > 0) count = std::min(count, static_cast<std::size_t>(pageSize));
    const auto end = dataQueue.begin() + static_cast<std::ptrdiff_t>(count);
    std::vector<unsigned char> page(dataQueue.begin(), end);
    dataQueue.erase(dataQueue.begin(), end);
    pageAddress += static_cast<unsigned int>(count);
    if (dataQueue.empty()) {
        runClosed = false;
        if (!lineData.empty()) {  // the record that opened the next run
            pageAddress = lineAddress;
            PushLineDataToDataQueue();
        }
    }
    pageReady = !dataQueue.empty() && (holdsPage() || runClosed);
    return page;
}

void IntelHexParser::PushLineDataToDataQueue() {
    dataQueue.insert(dataQueue.end(), lineData.begin(), lineData.end());
    lineData.clear();  // keeps its memory for the next record
}

bool IntelHexParser::isGap() {
    return !firstLine && previousLineAddress + previousLineLength != lineAddress;
}

bool IntelHexParser::isNewPage() {
    return dataQueue.empty();
}

void IntelHexParser::savePageAddress(unsigned int address) {
    pageAddress = address;
}

void IntelHexParser::DataReadyToFetch(bool ready) {
    pageReady = ready;
}
