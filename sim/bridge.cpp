#include "sim/bridge.h"

#include <libusb.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace sim {

namespace {

// The configuration block, little-endian.
namespace at {
constexpr std::size_t kSignature = 0x000;
constexpr std::size_t kFormat = 0x004;
constexpr std::size_t kChecksum = 0x008;
constexpr std::size_t kSummed = 0x00C;  // from here to the end
constexpr std::size_t kScb0Mode = 0x01C;
constexpr std::size_t kScb0Protocol = 0x01D;
constexpr std::size_t kIndicatorPins = 0x020;
constexpr std::size_t kScb0Record = 0x024;
constexpr std::size_t kChargerPins = 0x08C;
constexpr std::size_t kVendorId = 0x094;
constexpr std::size_t kProductId = 0x096;
constexpr std::size_t kMaxPower = 0x09A;
constexpr std::size_t kManufacturerPresent = 0x0A0;
constexpr std::size_t kProductPresent = 0x0A4;
constexpr std::size_t kSerialPresent = 0x0A8;
constexpr std::size_t kLanguages = 0x0AC;
constexpr std::size_t kManufacturer = 0x0EE;
constexpr std::size_t kProduct = 0x130;
constexpr std::size_t kSerial = 0x172;
constexpr std::size_t kPinsLow = 0x1B4;
constexpr std::size_t kPinsHigh = 0x1B8;
constexpr std::size_t kPinsIn = 0x1BC;
}  // namespace at

constexpr char kSignature[] = {'C', 'Y', 'U', 'S'};
constexpr std::size_t kStringUnits = 32;
constexpr std::uint8_t kStringDescriptor = 3;

enum Mode : std::uint8_t { kUart = 1, kSpi = 2, kI2c = 3 };
enum Protocol : std::uint8_t { kCdc = 1, kPhdc = 2, kVendor = 3 };

// The SPI record inside the block, which the requests C2 and C3 carry too: its own layout, not that of
// CY_SPI_CONFIG. Loopback at 13 and two reserved bytes end it.
namespace spiAt {
constexpr std::size_t kClock = 0;
constexpr std::size_t kWidth = 4;
constexpr std::size_t kProtocol = 5;
constexpr std::size_t kTransferMode = 6;  // no effect known
constexpr std::size_t kMsbFirst = 7;
constexpr std::size_t kMaster = 8;
constexpr std::size_t kContinuous = 9;
constexpr std::size_t kSelectPrecedes = 10;
constexpr std::size_t kCpha = 11;
constexpr std::size_t kCpol = 12;
}  // namespace spiAt
static_assert(spiAt::kTransferMode + 1 == spiAt::kMsbFirst);

constexpr std::uint32_t kPinReset = 1u << 8;
constexpr std::uint32_t kPinService = 1u << 14;

constexpr std::uint32_t kLowestClock = 1000;
constexpr std::uint32_t kHighestClock = 3'000'000;

constexpr UCHAR kLowestWidth = 4;  // bits a word
constexpr UCHAR kHighestWidth = 16;

constexpr std::uint8_t kSiliconId[] = {0x51, 0x04, 0x65, 0x21};
constexpr std::uint8_t kFirmwareVersion[] = {1, 0, 3, 0, 78, 0, 0, 0};  // 1.0.3 build 78

constexpr std::uint32_t kUserFlashPage = 128;
constexpr std::uint16_t kSpiBlock = 0;  // in wValue; bit 15 would be block 1

template <class Bytes>
std::uint32_t word(const Bytes& bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset]) | static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 16 | static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

template <class Bytes>
void putWord(Bytes& bytes, std::size_t offset, std::uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void putString(Bridge::Block& block, std::size_t offset, std::string_view text) {
    block[offset] = static_cast<std::uint8_t>(2 + 2 * text.size());
    block[offset + 1] = kStringDescriptor;
    for (std::size_t i = 0; i < text.size(); ++i) block[offset + 2 + 2 * i] = static_cast<std::uint8_t>(text[i]);
}

// As the bridge library gives a string: one byte a unit, empty when the block marks it absent.
void getString(const Bridge::Block& block, std::size_t present, std::size_t offset, UCHAR* text) {
    if (word(block, present) != 0xFFFFFFFF || block[offset + 1] != kStringDescriptor || block[offset] < 2) return;
    const std::size_t units = std::min<std::size_t>((block[offset] - 2u) / 2, kStringUnits);
    for (std::size_t i = 0; i < units; ++i) text[i] = block[offset + 2 + 2 * i];
}

CY_SPI_CONFIG spiConfig(const std::uint8_t* record) {
    CY_SPI_CONFIG config{};
    config.frequency = word(record, spiAt::kClock);
    config.dataWidth = record[spiAt::kWidth];
    config.protocol = static_cast<CY_SPI_PROTOCOL>(record[spiAt::kProtocol]);
    config.isMsbFirst = record[spiAt::kMsbFirst] != 0;
    config.isMaster = record[spiAt::kMaster] != 0;
    config.isContinuousMode = record[spiAt::kContinuous] != 0;
    config.isSelectPrecede = record[spiAt::kSelectPrecedes] != 0;
    config.isCpha = record[spiAt::kCpha] != 0;
    config.isCpol = record[spiAt::kCpol] != 0;
    return config;
}

// What is refused before anything is sent, as platform/usb does it: isSelectPrecede passes with every
// protocol, since the chip stores and returns it and only TI framing looks at it.
CY_RETURN_STATUS checkSpiConfig(const CY_SPI_CONFIG& config) {
    if (config.frequency < kLowestClock || config.frequency > kHighestClock) return CY_ERROR_INVALID_PARAMETER;
    if (config.dataWidth < kLowestWidth || config.dataWidth > kHighestWidth) return CY_ERROR_INVALID_PARAMETER;
    if (config.protocol > CY_SPI_NS) return CY_ERROR_INVALID_PARAMETER;
    if (config.protocol == CY_SPI_TI && (config.isCpol || !config.isCpha || config.isContinuousMode)) {
        return CY_ERROR_REQUEST_FAILED;
    }
    if (config.protocol == CY_SPI_NS && (config.isCpol || config.isCpha)) return CY_ERROR_REQUEST_FAILED;
    return CY_SUCCESS;
}

bool isUserFlashRange(const CY_DATA_BUFFER& data, UINT32 address) {
    return data.buffer != nullptr && data.length > 0 && address % kUserFlashPage == 0 &&
           data.length % kUserFlashPage == 0 && data.length <= Bridge::kUserFlashSize &&
           address <= Bridge::kUserFlashSize - data.length;
}

}  // namespace

Bridge::Bridge(std::span<std::uint8_t, kBlockSize> configuration, std::span<std::uint8_t, kUserFlashSize> user,
               std::span<std::uint8_t, kInternalFlashSize> internal)
    : block(configuration), userFlash(user), internalFlash(internal) {
    powerUp();
}

Bridge::Block Bridge::factoryBlock(std::string_view serialNumber) {
    Block block{};
    std::copy(std::begin(kSignature), std::end(kSignature), block.begin() + at::kSignature);
    constexpr std::uint8_t kFormatVersion[] = {1, 0, 3, 0};
    std::copy(std::begin(kFormatVersion), std::end(kFormatVersion), block.begin() + at::kFormat);
    putWord(block, at::kSummed, 0x2031);  // three words that every bridge has here
    putWord(block, at::kSummed + 4, 0x2000);
    putWord(block, at::kSummed + 8, 0x1800);
    block[at::kScb0Mode] = kSpi;
    block[at::kScb0Protocol] = kVendor;
    std::fill_n(block.begin() + at::kIndicatorPins, 3, std::uint8_t{0xFF});  // none
    putWord(block, at::kScb0Record + spiAt::kClock, 1'000'000);
    block[at::kScb0Record + spiAt::kWidth] = 8;
    block[at::kScb0Record + spiAt::kMsbFirst] = 1;
    block[at::kScb0Record + spiAt::kContinuous] = 1;
    std::fill_n(block.begin() + at::kChargerPins, 3, std::uint8_t{0xFF});  // none
    putWord(block, at::kVendorId, 0x0004'04B4);
    static_assert(at::kProductId == at::kVendorId + 2);
    block[at::kMaxPower] = 50;  // 100 mA
    for (const std::size_t present : {at::kManufacturerPresent, at::kProductPresent, at::kSerialPresent}) {
        putWord(block, present, 0xFFFFFFFF);
    }
    putWord(block, at::kLanguages, 0x0409'0304);
    putString(block, at::kManufacturer, "Tavo");
    putString(block, at::kProduct, "LON Interface");
    putString(block, at::kSerial, serialNumber);
    putWord(block, at::kPinsHigh, kPinReset | kPinService);
    putWord(block, at::kChecksum, checksum(block));
    return block;
}

std::uint32_t Bridge::checksum(std::span<const std::uint8_t, kBlockSize> block) {
    std::uint32_t sum = 0;
    for (std::size_t offset = at::kSummed; offset < kBlockSize; offset += 4) sum += word(block, offset);
    return sum;
}

std::string Bridge::whyUnusable(std::span<const std::uint8_t, kBlockSize> block) {
    if (!std::equal(std::begin(kSignature), std::end(kSignature), block.begin()))
        return "the signature CYUS is missing";
    if (word(block, at::kChecksum) != checksum(block)) return "its checksum is wrong";
    return "";
}

void Bridge::powerUp() {
    std::copy(block.begin(), block.end(), blockInEffect.begin());
    spi = spiConfig(blockInEffect.data() + at::kScb0Record);
    const std::uint32_t low = word(blockInEffect, at::kPinsLow);
    // The others are pulled up.
    for (unsigned pin = 0; pin < kPins; ++pin) pinHigh[pin] = pin >= pinCount || (low >> pin & 1) == 0;
    inConfigurationMode = false;
    isSpiUnfinished = false;
}

CY_DEVICE_INFO Bridge::describe() const {
    CY_DEVICE_INFO info{};
    const std::uint32_t ids = word(blockInEffect, at::kVendorId);
    info.vidPid.vid = static_cast<UINT16>(ids);
    info.vidPid.pid = static_cast<UINT16>(ids >> 16);
    getString(blockInEffect, at::kManufacturerPresent, at::kManufacturer, info.manufacturerName);
    getString(blockInEffect, at::kProductPresent, at::kProduct, info.productName);
    getString(blockInEffect, at::kSerialPresent, at::kSerial, info.serialNum);
    std::memcpy(info.deviceFriendlyName, info.productName, sizeof info.productName);
    info.numInterfaces = static_cast<UCHAR>(interfaceCount());
    const bool vendor = blockInEffect[at::kScb0Protocol] == kVendor;
    for (unsigned i = 0; i < interfaceCount(); ++i) {
        const bool isScb0 = !isManufacturing(i);
        info.deviceClass[i] = !isScb0 || vendor ? CY_CLASS_VENDOR : CY_CLASS_CDC;
        if (isScb0 && vendor) info.deviceType[i] = static_cast<CY_DEVICE_TYPE>(blockInEffect[at::kScb0Mode]);
        if (!isScb0) info.deviceType[i] = CY_TYPE_MFG;
    }
    return info;
}

unsigned Bridge::interfaceCount() const {
    // A CDC block takes a control and a data interface; the manufacturing interface comes last.
    return blockInEffect[at::kScb0Protocol] == kCdc ? 3 : 2;
}

bool Bridge::isManufacturing(unsigned interfaceNumber) const {
    return interfaceNumber + 1 == interfaceCount();
}

bool Bridge::isSpi(unsigned interfaceNumber) const {
    return interfaceNumber == 0 && blockInEffect[at::kScb0Mode] == kSpi && blockInEffect[at::kScb0Protocol] == kVendor;
}

CY_RETURN_STATUS Bridge::getSpiConfig(unsigned interfaceNumber, CY_SPI_CONFIG& config) const {
    if (!isSpi(interfaceNumber)) return CY_ERROR_REQUEST_FAILED;
    config = spi;
    return CY_SUCCESS;
}

CY_RETURN_STATUS Bridge::setSpiConfig(unsigned interfaceNumber, const CY_SPI_CONFIG& config) {
    if (!isSpi(interfaceNumber)) return CY_ERROR_REQUEST_FAILED;
    if (const CY_RETURN_STATUS status = checkSpiConfig(config); status != CY_SUCCESS) return status;
    spi = config;
    return CY_SUCCESS;
}

bool Bridge::isOutput(unsigned pin) const {
    const std::uint32_t outputs = word(blockInEffect, at::kPinsLow) | word(blockInEffect, at::kPinsHigh);
    return pin < pinCount && (outputs >> pin & 1) != 0;
}

bool Bridge::isInput(unsigned pin) const {
    return pin < pinCount && (word(blockInEffect, at::kPinsIn) >> pin & 1) != 0;
}

CY_RETURN_STATUS Bridge::getPin(unsigned pin, UINT8& level) const {
    if (!isOutput(pin) && !isInput(pin)) return CY_ERROR_REQUEST_FAILED;
    level = pinHigh[pin] ? 1 : 0;
    return CY_SUCCESS;
}

CY_RETURN_STATUS Bridge::setPin(unsigned pin, bool high) {
    if (!isOutput(pin)) return CY_ERROR_REQUEST_FAILED;
    pinHigh[pin] = high;
    return CY_SUCCESS;
}

CY_RETURN_STATUS Bridge::programUserFlash(CY_DATA_BUFFER& data, UINT32 address) {
    data.transferCount = 0;
    if (!isUserFlashRange(data, address)) return CY_ERROR_REQUEST_FAILED;
    std::memcpy(userFlash.data() + address, data.buffer, data.length);
    data.transferCount = data.length;
    return CY_SUCCESS;
}

CY_RETURN_STATUS Bridge::readUserFlash(CY_DATA_BUFFER& data, UINT32 address) const {
    data.transferCount = 0;
    if (!isUserFlashRange(data, address)) return CY_ERROR_REQUEST_FAILED;
    std::memcpy(data.buffer, userFlash.data() + address, data.length);
    data.transferCount = data.length;
    return CY_SUCCESS;
}

int Bridge::control(std::uint8_t type, std::uint8_t request, std::uint16_t value, std::uint16_t index,
                    std::uint8_t* data, std::uint16_t length) {
    constexpr std::uint8_t kVendorToDevice = 0x40;  // vendor request, recipient device; bit 7 is the direction
    if ((type & 0x7F) != kVendorToDevice) return LIBUSB_ERROR_PIPE;
    const bool in = (type & 0x80) != 0;
    const auto address = static_cast<std::uint32_t>(value) << 16 | index;
    switch (request) {
        case 0xB0:
            return in ? answer(data, length, kFirmwareVersion, sizeof kFirmwareVersion) : LIBUSB_ERROR_PIPE;
        case 0xB1:
            return in ? answer(data, length, kSiliconId, sizeof kSiliconId) : LIBUSB_ERROR_PIPE;
        case 0xBD:
            return in ? answer(data, length, kSignature, sizeof kSignature) : LIBUSB_ERROR_PIPE;
        case 0xCB:
            return resetSpi(value, length);
        case 0xCC:
            return spiStatus(in, value, data, length);
        case 0xE2:
            return setConfigurationMode(value, index);
        default:
            return configurationRequest(request, in, address, data, length);
    }
}

int Bridge::configurationRequest(std::uint8_t request, bool in, std::uint32_t address, std::uint8_t* data,
                                 std::uint16_t length) {
    if (!inConfigurationMode) return LIBUSB_ERROR_PIPE;
    if (request == 0xB2 && in) return internalFlashRequest(true, address, data, length);
    if (request == 0xB3 && !in) return internalFlashRequest(false, address, data, length);
    if (request == 0xB5 && in) return answer(data, length, block.data(), kBlockSize);
    if (request == 0xB6 && !in && length == kBlockSize) {
        std::copy_n(data, kBlockSize, block.begin());
        return length;
    }
    if (request == 0xBA && length == 0) return whyUnusable(block).empty() ? 0 : LIBUSB_ERROR_PIPE;
    return LIBUSB_ERROR_PIPE;
}

int Bridge::answer(std::uint8_t* data, std::uint16_t length, const void* from, std::size_t size) const {
    const std::size_t count = std::min<std::size_t>(length, size);
    std::memcpy(data, from, count);
    return static_cast<int>(count);
}

int Bridge::setConfigurationMode(std::uint16_t value, std::uint16_t index) {
    struct Values {
        std::uint16_t value;
        std::uint16_t index;
        Access pair;
        bool on;
    };
    constexpr Values kValues[] = {{0x5C3E, 0x82D4, Access::Library, true},
                                  {0x5C37, 0x8BD1, Access::Library, false},
                                  {0xA6BC, 0xB1B0, Access::Letters, true},
                                  {0xA6BC, 0xB9B0, Access::Letters, false}};
    for (const Values& known : kValues) {
        if (known.value != value || known.index != index) continue;
        if (access != Access::Both && access != known.pair) return LIBUSB_ERROR_PIPE;
        inConfigurationMode = known.on;
        return 0;
    }
    return LIBUSB_ERROR_PIPE;
}

int Bridge::resetSpi(std::uint16_t value, std::uint16_t length) {
    if (value != kSpiBlock || length != 0 || !isSpi(kSpiBlock)) return LIBUSB_ERROR_PIPE;
    isSpiUnfinished = false;
    if (isSettingLostByReset) spi = spiConfig(blockInEffect.data() + at::kScb0Record);
    return 0;
}

int Bridge::spiStatus(bool in, std::uint16_t value, std::uint8_t* data, std::uint16_t length) const {
    if (!in || value != kSpiBlock || !isSpi(kSpiBlock)) return LIBUSB_ERROR_PIPE;
    const std::uint8_t bytesLeft[] = {std::uint8_t{isSpiUnfinished}, 0, 0, 0};  // all 0: idle
    return answer(data, length, bytesLeft, sizeof bytesLeft);
}

int Bridge::internalFlashRequest(bool in, std::uint32_t address, std::uint8_t* data, std::uint16_t length) {
    if (address >= kInternalFlashSize || length == 0) return LIBUSB_ERROR_PIPE;
    const std::size_t count = std::min<std::size_t>(length, kInternalFlashSize - address);
    if (in) {
        std::copy_n(internalFlash.begin() + address, count, data);
    } else {
        std::copy_n(data, count, internalFlash.begin() + address);
    }
    return static_cast<int>(count);
}

}  // namespace sim
