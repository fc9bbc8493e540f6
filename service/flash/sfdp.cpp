#include "service/flash/sfdp.h"

#include <algorithm>

#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr std::uint32_t kSignature = 0x50444653;  // "SFDP", least significant byte first
constexpr std::uint32_t kHeadersSize = 16;        // the header, and the parameter header of the basic table
constexpr std::uint32_t kWord = 4;

// Words of the basic table, counted from 1 as the standard does.
constexpr unsigned kSmallEraseWord = 1;
constexpr unsigned kDensityWord = 2;
constexpr unsigned kEraseTypesWord = 8;
constexpr unsigned kEraseTimesWord = 10;
constexpr unsigned kChipTimesWord = 11;
constexpr std::uint32_t kShortestTable = 9 * kWord;  // of the first revision; later ones tell the times
constexpr std::uint32_t kLongestTable = 16 * kWord;

constexpr std::uint32_t kSmallErase = 4096;
constexpr unsigned kMostEraseBits = 18;  // 256 KiB, the largest sector there is

// Seconds. A typical time is a count of 1 to 32 units.
constexpr double kEraseUnits[] = {0.001, 0.016, 0.128, 1};
constexpr double kProgramUnits[] = {8e-6, 64e-6};
constexpr double kChipUnits[] = {0.016, 0.256, 4, 64};

class Table {
public:
    explicit Table(const std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}
    bool has(unsigned word) const { return bytes_.size() >= word * kWord; }
    std::uint32_t word(unsigned number) const {
        const std::uint8_t* at = bytes_.data() + (number - 1) * kWord;
        return at[0] | at[1] << 8 | at[2] << 16 | static_cast<std::uint32_t>(at[3]) << 24;
    }
    unsigned field(unsigned number, unsigned low, unsigned bits) const {
        return word(number) >> low & ((1U << bits) - 1);
    }

private:
    const std::vector<std::uint8_t>& bytes_;
};

std::uint64_t sizeOf(const Table& table) {
    const std::uint32_t density = table.word(kDensityWord);
    if ((density >> 31) == 0) return (std::uint64_t{density} + 1) / 8;
    const unsigned bits = density & 0x7FFFFFFF;
    return bits >= 3 && bits < 64 ? (std::uint64_t{1} << bits) / 8 : 0;
}

std::vector<EraseType> eraseTypesOf(const Table& table) {
    std::vector<EraseType> types;
    for (unsigned i = 0; i < 4; ++i) {
        const unsigned field = table.field(kEraseTypesWord + i / 2, i % 2 * 16, 16);
        if ((field & 0xFF) == 0) continue;
        EraseType type;
        type.opcode = static_cast<std::uint8_t>(field >> 8);
        type.size = (field & 0xFF) < 32 ? 1U << (field & 0xFF) : 0;
        if (table.has(kEraseTimesWord)) {
            const unsigned time = table.field(kEraseTimesWord, 4 + 7 * i, 7);
            type.typical = ((time & 31) + 1) * kEraseUnits[time >> 5];
            type.longest = 2 * (table.field(kEraseTimesWord, 0, 4) + 1) * type.typical;
        }
        types.push_back(type);
    }
    std::sort(types.begin(), types.end(), [](const auto& a, const auto& b) { return a.size < b.size; });
    return types;
}

/// Empty when they make sense.
std::string faultOf(const std::vector<EraseType>& types, const Table& table, std::uint32_t chipSize) {
    const bool saysSmall = table.field(kSmallEraseWord, 0, 2) == 1;
    bool hasSmall = false;
    for (std::size_t i = 0; i < types.size(); ++i) {
        const EraseType& type = types[i];
        const bool isOdd = type.size < kSmallErase || type.size > 1U << kMostEraseBits || type.size > chipSize ||
                           type.opcode == 0x00 || type.opcode == 0xFF;
        if (isOdd || (i > 0 && types[i - 1].size == type.size))
            return "it tells of an erase of " + sizeText(type.size) + " by " + hexText(&type.opcode, 1);
        hasSmall |= type.size == kSmallErase && type.opcode == table.field(kSmallEraseWord, 8, 8);
    }
    return saysSmall && !hasSmall ? "it tells two things of its 4 KiB erase" : "";
}

}  // namespace

void takeSfdp(const std::vector<std::uint8_t>& bytes, FlashChip& chip) {
    const Table table(bytes);
    if (!table.has(kShortestTable / kWord)) return;
    if (sizeOf(table) != chip.size) {
        chip.sfdpFault =
            "it tells of " + std::to_string(sizeOf(table) >> 10) + " KiB, the ID of " + sizeText(chip.size);
        return;
    }
    auto types = eraseTypesOf(table);
    chip.sfdpFault = faultOf(types, table, chip.size);
    if (!chip.sfdpFault.empty()) return;
    chip.hasSfdp = true;
    chip.eraseTypes = std::move(types);
    if (!table.has(kChipTimesWord)) return;
    const unsigned program = table.field(kChipTimesWord, 8, 6);
    const unsigned erase = table.field(kChipTimesWord, 24, 7);
    chip.programTypical = ((program & 31) + 1) * kProgramUnits[program >> 5];
    chip.programLongest = 2 * (table.field(kChipTimesWord, 0, 4) + 1) * chip.programTypical;
    chip.eraseTypical = ((erase & 31) + 1) * kChipUnits[erase >> 5];
    chip.eraseLongest = 2 * (table.field(kEraseTimesWord, 0, 4) + 1) * chip.eraseTypical;
}

void readSfdp(Operation& op, const FlashDriver& driver, FlashChip& chip) {
    if (driver.waitUntilReadable() != CY_SUCCESS) return;  // the next step will tell
    std::vector<std::uint8_t> headers(kHeadersSize);
    if (driver.readSfdp(0, headers.data(), kHeadersSize) != CY_SUCCESS) return;
    const Table words(headers);
    if (words.word(1) != kSignature) return;
    const std::uint32_t length = std::min(words.field(3, 24, 8) * kWord, kLongestTable);
    std::vector<std::uint8_t> table(length);
    if (driver.readSfdp(words.word(4) & 0xFFFFFF, table.data(), length) != CY_SUCCESS) return;
    takeSfdp(table, chip);
    if (chip.hasSfdp) op.step("flash: SFDP with " + std::to_string(chip.eraseTypes.size()) + " erase types");
    if (!chip.sfdpFault.empty()) op.warn("the flash's own description (SFDP) is not used: " + chip.sfdpFault);
}

}  // namespace tavo
