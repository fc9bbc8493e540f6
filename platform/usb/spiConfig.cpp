#include "platform/usb/request.h"
#include "tavo/export.h"

namespace {

// The record of the requests C2 and C3, which the configuration block holds too. All other bytes
// (transfer mode at 6, loopback at 13, two reserved at 14) are 0.
using usb::SpiRecord;
constexpr int kRecordSize = std::tuple_size_v<SpiRecord>;
enum Offset : std::size_t {
    kFrequency = 0,  // Hz, little-endian
    kDataWidth = 4,
    kProtocol = 5,
    kMsbFirst = 7,
    kMaster = 8,
    kContinuous = 9,
    kSelectPrecedes = 10,
    kCpha = 11,
    kCpol = 12,
};

constexpr UINT32 kMinFrequency = 1000;
constexpr UINT32 kMaxFrequency = 3000000;
constexpr UCHAR kMinDataWidth = 4;
constexpr UCHAR kMaxDataWidth = 16;

SpiRecord encode(const CY_SPI_CONFIG& config) {
    SpiRecord record{};
    for (std::size_t i = 0; i < 4; ++i) record[kFrequency + i] = static_cast<UCHAR>(config.frequency >> (8 * i));
    record[kDataWidth] = config.dataWidth;
    record[kProtocol] = static_cast<UCHAR>(config.protocol);
    record[kMsbFirst] = config.isMsbFirst;
    record[kMaster] = config.isMaster;
    record[kContinuous] = config.isContinuousMode;
    record[kSelectPrecedes] = config.isSelectPrecede;
    record[kCpha] = config.isCpha;
    record[kCpol] = config.isCpol;
    return record;
}

CY_SPI_CONFIG decode(const SpiRecord& record) {
    CY_SPI_CONFIG config{};
    config.frequency = usb::frequencyOf(record);
    config.dataWidth = record[kDataWidth];
    config.protocol = static_cast<CY_SPI_PROTOCOL>(record[kProtocol]);
    config.isMsbFirst = record[kMsbFirst] != 0;
    config.isMaster = record[kMaster] != 0;
    config.isContinuousMode = record[kContinuous] != 0;
    config.isSelectPrecede = record[kSelectPrecedes] != 0;
    config.isCpha = record[kCpha] != 0;
    config.isCpol = record[kCpol] != 0;
    return config;
}

/// What the bridge library refuses without asking the chip, but for one thing: it refuses
/// isSelectPrecede with every protocol. The chip stores and returns that flag with Motorola too, its
/// own configuration block has it set, and who changes a configuration writes back what was read:
/// refusing it would leave a bridge that starts as SPI by its block without flash access.
CY_RETURN_STATUS check(const CY_SPI_CONFIG& config) {
    if (config.frequency < kMinFrequency || config.frequency > kMaxFrequency) return CY_ERROR_INVALID_PARAMETER;
    if (config.dataWidth < kMinDataWidth || config.dataWidth > kMaxDataWidth) return CY_ERROR_INVALID_PARAMETER;
    switch (config.protocol) {
        case CY_SPI_MOTOROLA:
            return CY_SUCCESS;
        case CY_SPI_TI:
            return !config.isCpol && config.isCpha && !config.isContinuousMode ? CY_SUCCESS : CY_ERROR_REQUEST_FAILED;
        case CY_SPI_NS:
            return !config.isCpol && !config.isCpha ? CY_SUCCESS : CY_ERROR_REQUEST_FAILED;
    }
    return CY_ERROR_INVALID_PARAMETER;
}

}  // namespace

UINT32 usb::frequencyOf(const SpiRecord& record) {
    UINT32 frequency = 0;
    for (std::size_t i = 0; i < 4; ++i) frequency |= static_cast<UINT32>(record[kFrequency + i]) << (8 * i);
    return frequency;
}

extern "C" {

TAVO_API CY_RETURN_STATUS CyGetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    if (config == nullptr) return CY_ERROR_INVALID_PARAMETER;
    const usb::Claim& claim = usb::claimOf(handle);
    if (!claim.isSpi()) return CY_ERROR_REQUEST_FAILED;
    claim.spi().begin(claim);
    SpiRecord record{};
    const int result = usb::requestIn(claim, usb::kSpiGetConfig, claim.block(), 0, record.data(), kRecordSize);
    if (result != kRecordSize) return usb::failureOf(result);
    claim.spi().remember(record);
    *config = decode(record);
    return CY_SUCCESS;
}

TAVO_API CY_RETURN_STATUS CySetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    if (config == nullptr) return CY_ERROR_INVALID_PARAMETER;
    const usb::Claim& claim = usb::claimOf(handle);
    if (!claim.isSpi()) return CY_ERROR_REQUEST_FAILED;
    if (const CY_RETURN_STATUS status = check(*config); status != CY_SUCCESS) return status;
    claim.spi().begin(claim);
    SpiRecord record = encode(*config);
    const int result = usb::requestOut(claim, usb::kSpiSetConfig, claim.block(), 0, record.data(), kRecordSize);
    const bool taken = result == kRecordSize;
    claim.spi().remember(taken ? std::optional(record) : std::nullopt);  // a failed one may have arrived
    return taken ? CY_SUCCESS : usb::failureOf(result);
}

}  // extern "C"
