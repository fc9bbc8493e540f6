// The bridge's 512-byte configuration block: where things stand in it, and the pure operations on
// it. Multi-byte values are little-endian. Bytes without a name here are passed on unchanged.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace configBlock {

inline constexpr std::size_t kSize = 512;
using Block = std::array<unsigned char, kSize>;

/// A run of bytes in the block.
struct Field {
    std::size_t offset;
    std::size_t size;
    constexpr std::size_t end() const { return offset + size; }
};

inline constexpr Field kSignature{0x000, 4};
inline constexpr char kSignatureText[] = "CYUS";
inline constexpr Field kFormat{0x004, 4};    // major, minor, patch, 0
inline constexpr Field kChecksum{0x008, 4};  // sum of the words from kSummed to the end, modulo 2^32
inline constexpr Field kSummed{0x00C, 500};
inline constexpr Field kScb0Mode{0x01C, 1};  // 1 UART, 2 SPI, 3 I2C
inline constexpr Field kScb0Protocol{0x01D, 1};
inline constexpr Field kScb0Settings{0x024, 16};  // meaning by mode
inline constexpr Field kVendorId{0x094, 2};
inline constexpr Field kProductId{0x096, 2};
inline constexpr Field kMaxPower{0x09A, 1};       // bMaxPower, 2 mA units
inline constexpr Field kSerialPresent{0x0A8, 4};  // all ones: the device has a serial string

// String descriptors (USB 2.0, 9.6.7): bLength, bDescriptorType, then UTF-16LE.
inline constexpr Field kManufacturer{0x0EE, 66};
inline constexpr Field kProduct{0x130, 66};
inline constexpr Field kSerial{0x172, 66};
inline constexpr std::size_t kDescriptorHead = 2;
inline constexpr unsigned char kStringDescriptorType = 3;
inline constexpr std::size_t kMaxSerialLength = (kSerial.size - kDescriptorHead) / 2;

static_assert(kSummed.offset == kChecksum.end() && kSummed.end() == kSize && kSummed.size % 4 == 0);
static_assert(kScb0Mode.offset == 28 && kScb0Settings.offset == 36 && kSerialPresent.offset == 168);
static_assert(kManufacturer.end() == kProduct.offset && kProduct.end() == kSerial.offset);
static_assert(kSerial.offset == 370 && kSerial.end() == 436 && kMaxSerialLength == 32);

inline constexpr unsigned char kModeSpi = 2;
inline constexpr unsigned char kModeI2c = 3;

std::uint32_t checksum(const unsigned char* block);
std::uint32_t storedChecksum(const unsigned char* block);

/// Brings up to date what every write sets: the presence of a serial string, its descriptor (at
/// most 32 characters of text), and last, for it covers them, the checksum.
void finish(Block& block, const char* serial);

/// Mode byte and settings of SCB0: SPI, or else I2C.
void setScb0(Block& block, bool spi);

}  // namespace configBlock
