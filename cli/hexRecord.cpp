#include "cli/hexRecord.h"

#include <cstdio>

namespace cli {
namespace {

// Positions of a record's bytes, counted in bytes after the start code.
constexpr std::size_t kOffsetHigh = 1;
constexpr std::size_t kOffsetLow = 2;
constexpr std::size_t kType = 3;
constexpr std::size_t kData = 4;
constexpr std::size_t kAround = 5;  // bytes of a record beside its data

int digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

std::string shown(char c) {
    char text[16];
    const auto code = static_cast<unsigned char>(c);
    std::snprintf(text, sizeof text, code > 0x20 && code < 0x7F ? "'%c'" : "byte 0x%02X", code);
    return text;
}

std::string hexByte(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "%02X", value & 0xFF);
    return text;
}

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

std::string checkType(const HexRecord& record) {
    if (record.type > RecordType::StartLinear)
        return "unknown record type " + hexByte(static_cast<unsigned>(record.type));
    for (const auto& row : kLengths) {
        if (row.type == record.type && row.length != record.length) {
            return std::string(row.name) + " has " + std::to_string(row.length) + " data bytes, this one " +
                   std::to_string(record.length);
        }
    }
    return "";
}

std::string checkDigits(std::string_view line) {
    if (line.front() != ':') return "begins with " + shown(line.front()) + ", a record begins with ':'";
    for (std::size_t i = 1; i < line.size(); ++i) {
        if (digit(line[i]) < 0)
            return shown(line[i]) + " in column " + std::to_string(i + 1) + " is no hexadecimal digit";
    }
    if (line.size() < 1 + 2 * kAround) return "too short for a record";
    return "";
}

std::uint8_t byteAt(std::string_view line, std::size_t index) {
    return static_cast<std::uint8_t>(digit(line[1 + 2 * index]) << 4 | digit(line[2 + 2 * index]));
}

}  // namespace

std::string parseRecord(std::string_view line, HexRecord& record) {
    if (line.empty()) return "empty line";
    if (auto fault = checkDigits(line); !fault.empty()) return fault;
    record.length = byteAt(line, 0);
    const std::size_t wanted = 1 + 2 * (kAround + record.length);
    if (line.size() != wanted) {
        return "byte count " + hexByte(record.length) + " makes " + std::to_string(wanted) +
               " characters, the line has " + std::to_string(line.size());
    }
    unsigned sum = 0;
    for (std::size_t i = 0; i < kData + record.length; ++i) sum += byteAt(line, i);
    const unsigned found = byteAt(line, kData + record.length);
    if (((sum + found) & 0xFF) != 0)
        return "wrong checksum: expected " + hexByte(0U - sum) + ", found " + hexByte(found);
    record.offset = static_cast<std::uint16_t>(byteAt(line, kOffsetHigh) << 8 | byteAt(line, kOffsetLow));
    record.type = static_cast<RecordType>(byteAt(line, kType));
    for (std::size_t i = 0; i < record.length; ++i) record.data[i] = byteAt(line, kData + i);
    return checkType(record);
}

std::string formatRecord(const HexRecord& record) {
    std::string text = ":";
    unsigned sum = 0;
    const auto add = [&](unsigned byte) {
        sum += byte;
        text += hexByte(byte);
    };
    add(record.length);
    add(record.offset >> 8);
    add(record.offset & 0xFF);
    add(static_cast<unsigned>(record.type));
    for (std::size_t i = 0; i < record.length; ++i) add(record.data[i]);
    return text + hexByte(0U - sum);
}

std::string formatAddressRecord(std::uint16_t upper) {
    HexRecord record;
    record.length = 2;
    record.type = RecordType::ExtendedLinear;
    record.data[0] = static_cast<std::uint8_t>(upper >> 8);
    record.data[1] = static_cast<std::uint8_t>(upper & 0xFF);
    return formatRecord(record);
}

}  // namespace cli
