// One Intel HEX record, read strictly.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace cli {

enum class RecordType : std::uint8_t {
    Data = 0,
    EndOfFile = 1,
    ExtendedSegment = 2,
    StartSegment = 3,
    ExtendedLinear = 4,
    StartLinear = 5,
};

struct HexRecord {
    std::uint8_t length = 0;
    std::uint16_t offset = 0;
    RecordType type = RecordType::Data;
    std::array<std::uint8_t, 255> data{};

    /// The big-endian word that address records carry.
    std::uint16_t word() const { return static_cast<std::uint16_t>(data[0] << 8 | data[1]); }
};

/// The longest record: start code, 5 bytes around 255 data bytes, in digits.
inline constexpr std::size_t kLongestRecord = 1 + 2 * (5 + 255);

/// Start code, digits, length against byte count, checksum, and the length each type asks for.
/// @return empty, or what is wrong with the line.
std::string parseRecord(std::string_view line, HexRecord& record);

/// The record's text in upper case, without a line end.
std::string formatRecord(const HexRecord& record);
/// The extended linear address record of that upper half.
std::string formatAddressRecord(std::uint16_t upper);

}  // namespace cli
