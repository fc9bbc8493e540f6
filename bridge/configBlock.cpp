#include "bridge/configBlock.h"

#include <algorithm>
#include <cstring>

namespace configBlock {

namespace {

using Settings = std::array<unsigned char, kScb0Settings.size>;

// 1 MHz, 8-bit words, Motorola framing, most significant bit first, master, select held over a
// transfer and before it, clock phase 0, polarity 0; one byte each after the clock.
constexpr Settings kSpiSettings{0x40, 0x42, 0x0F, 0x00, 8, 0, 1, 1, 1, 1, 0, 0};
// 100 kHz, own address 2, master, clock stretching.
constexpr Settings kI2cSettings{0xA0, 0x86, 0x01, 0x00, 2, 1, 1};

std::uint32_t word(const unsigned char* bytes) {
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void setSerial(Block& block, const char* serial) {
    const std::size_t length = strnlen(serial, kMaxSerialLength);
    unsigned char* descriptor = block.data() + kSerial.offset;
    std::fill_n(descriptor, kSerial.size, 0);
    descriptor[0] = static_cast<unsigned char>(kDescriptorHead + 2 * length);
    descriptor[1] = kStringDescriptorType;
    for (std::size_t i = 0; i < length; ++i)
        descriptor[kDescriptorHead + 2 * i] = static_cast<unsigned char>(serial[i]);
}

}  // namespace

std::uint32_t checksum(const unsigned char* block) {
    std::uint32_t sum = 0;
    for (std::size_t offset = kSummed.offset; offset < kSummed.end(); offset += 4) sum += word(block + offset);
    return sum;
}

std::uint32_t storedChecksum(const unsigned char* block) {
    return word(block + kChecksum.offset);
}

void finish(Block& block, const char* serial) {
    std::fill_n(block.begin() + kSerialPresent.offset, kSerialPresent.size, 0xFF);
    setSerial(block, serial);
    const std::uint32_t sum = checksum(block.data());
    for (std::size_t i = 0; i < kChecksum.size; ++i)
        block[kChecksum.offset + i] = static_cast<unsigned char>(sum >> (8 * i));
}

void setScb0(Block& block, bool spi) {
    block[kScb0Mode.offset] = spi ? kModeSpi : kModeI2c;
    const Settings& settings = spi ? kSpiSettings : kI2cSettings;
    std::copy(settings.begin(), settings.end(), block.begin() + kScb0Settings.offset);
}

}  // namespace configBlock
