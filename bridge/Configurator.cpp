#include "tavo/Configurator.h"

#include <algorithm>
#include <cstring>

#include "bridge/configBlock.h"
#include "platform/cyusbserial.h"
#include "tavo/cyboot.h"

namespace {

constexpr UINT32 kSpiClockHz = 900000;
constexpr UCHAR kSpiWordBits = 8;

// Bit order and "select precedes" play no part: the flash's configuration has always had them right.
bool isSetUp(const CY_SPI_CONFIG& config, bool master) {
    return config.frequency == kSpiClockHz && config.dataWidth == kSpiWordBits && config.protocol == CY_SPI_MOTOROLA &&
           config.isMaster == master && config.isContinuousMode && !config.isCpha && !config.isCpol;
}

// SPI mode 0, most significant bit first, select held over a whole transfer (a flash command is one
// select period). isSelectPrecede keeps the value read.
void setUp(CY_SPI_CONFIG& config, bool master) {
    config.frequency = kSpiClockHz;
    config.dataWidth = kSpiWordBits;
    config.protocol = CY_SPI_MOTOROLA;
    config.isMsbFirst = true;
    config.isMaster = master;
    config.isContinuousMode = true;
    config.isCpha = false;
    config.isCpol = false;
}

bool fitsDescriptor(const char* serial) {
    return strnlen(serial, configBlock::kMaxSerialLength + 1) <= configBlock::kMaxSerialLength;
}

// False for a text, new or kept, that the descriptor cannot hold. A new one is looked at as given
// too: fromStringWithoutPrefix leaves out what it does not take.
bool chooseSerial(const DeviceInfo& deviceInfo, const char* newSerial, SerialNumber& chosen) {
    if (newSerial == nullptr)
        chosen = deviceInfo.serialNumber.text;
    else if (fitsDescriptor(newSerial))
        chosen.fromStringWithoutPrefix(newSerial);
    else
        return false;
    return fitsDescriptor(chosen.text);
}

}  // namespace

Configurator::Configurator(DeviceInfo& device) : deviceInfo(device) {}

Configurator::~Configurator() {
    // Nobody is left to be told of a failure.
    if (spiMasterSet) static_cast<void>(setupSpi(false));
}

CY_RETURN_STATUS Configurator::setupSpi(bool master) {
    const CyHandle scb0(deviceInfo.scb0DeviceNumber, deviceInfo.scb0InterfaceNumber);
    if (scb0.openStatus != CY_SUCCESS) return scb0.openStatus;

    CY_SPI_CONFIG config{};
    const CY_RETURN_STATUS readResult = CyGetSpiConfig(scb0.handle, &config);
    if (readResult == CY_SUCCESS && isSetUp(config, master)) return CY_SUCCESS;

    // A block that cannot be read can still be set: the failed read itself is not reported.
    setUp(config, master);
    const CY_RETURN_STATUS result = CySetSpiConfig(scb0.handle, &config);
    spiMasterSet = result == CY_SUCCESS && master;
    return result;
}

CY_RETURN_STATUS Configurator::readConfigData(unsigned char* data) {
    const CyHandle config(deviceInfo.configDeviceNumber, deviceInfo.configInterfaceNumber);
    if (config.openStatus != CY_SUCCESS) return config.openStatus;
    if (const auto status = CyFlashConfigEnable(config.handle, true); status != CY_SUCCESS) return status;
    if (const auto status = CyReadDeviceConfig(config.handle, data); status != CY_SUCCESS) return status;
    return CyFlashConfigEnable(config.handle, false);
}

CY_RETURN_STATUS Configurator::writeConfigData(const unsigned char* data, const char* serial) {
    SerialNumber text;
    if (!chooseSerial(deviceInfo, serial, text)) return CY_ERROR_INVALID_PARAMETER;
    const CyHandle config(deviceInfo.configDeviceNumber, deviceInfo.configInterfaceNumber);
    if (config.openStatus != CY_SUCCESS) return config.openStatus;
    UINT32 siliconId = 0;  // only a bridge that answers this is written to
    if (const auto status = CyGetSiliconID(config.handle, &siliconId); status != CY_SUCCESS) return status;
    if (const auto status = CyFlashConfigEnable(config.handle, true); status != CY_SUCCESS) return status;

    configBlock::Block block;
    if (data != nullptr)
        std::copy_n(data, block.size(), block.begin());
    else if (const auto status = CyReadDeviceConfig(config.handle, block.data()); status != CY_SUCCESS)
        return status;

    if (serial != nullptr) deviceInfo.serialNumber = text.text;
    configBlock::finish(block, text.text);
    if (const auto status = CyWriteDeviceConfig(config.handle, block.data()); status != CY_SUCCESS) return status;
    return CyFlashConfigEnable(config.handle, false);
}

CY_RETURN_STATUS Configurator::configureScb0(bool spi) {
    // Known before the block is read that the write will refuse it.
    if (!fitsDescriptor(deviceInfo.serialNumber.text)) return CY_ERROR_INVALID_PARAMETER;
    configBlock::Block block;
    if (const auto status = readConfigData(block.data()); status != CY_SUCCESS) return status;
    configBlock::setScb0(block, spi);
    return writeConfigData(block.data(), nullptr);
}
