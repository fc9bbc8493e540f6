#include "tavo/Configurator.h"

#include "platform/cyusbserial.h"

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
