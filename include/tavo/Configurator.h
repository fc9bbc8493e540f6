// Setup of the bridge: the role of its serial block 0 (SCB0) and its 512-byte configuration block.
#pragma once

#include "tavo/deviceAccess.h"

/// Holds the caller's DeviceInfo and undoes, when destroyed, the SPI setup it has made itself.
/// No bridge handle stays open between its operations. Results are bridge statuses.
class Configurator {
public:
    /// @param deviceInfo  borrowed; must outlive the object. No I/O.
    TAVO_API explicit Configurator(DeviceInfo& deviceInfo);
    /// Makes SCB0 an SPI slave again if spiMasterSet; a failure is not reported.
    TAVO_API ~Configurator();
    Configurator(const Configurator&) = delete;
    Configurator& operator=(const Configurator&) = delete;

    /// Makes SCB0 an SPI master or slave: 900 kHz, mode 0, 8-bit words, most significant bit first,
    /// select held over a transfer. Writes nothing when the block is set up that way already.
    /// @return the status of the open or of the write; a failed read is not reported when the
    ///         write succeeds.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS setupSpi(bool master);

    /// Reads the 512-byte configuration block into data (room for 512 bytes, owned by the caller).
    /// After a failed read the bridge stays in configuration-flash mode; the interface is closed.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS readConfigData(unsigned char* data);

    /// Writes a configuration block with its serial-number descriptor, the word at offset 168 and
    /// its checksum brought up to date. It takes effect when the bridge is plugged in again.
    /// @param data    512 bytes, or null to rewrite the block that is in the bridge.
    /// @param serial  the new serial-number text without prefix, or null to keep the device's.
    ///                The caller's DeviceInfo shows it from the moment the block is made, also when
    ///                a later step fails.
    /// @return CY_ERROR_INVALID_PARAMETER, with nothing touched, for a serial text (new or kept) of
    ///         more than 32 characters; otherwise the status of the first step that failed.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS writeConfigData(const unsigned char* data, const char* serial);

    /// Sets SCB0's mode and settings in the block: SPI (1 MHz, master) or I2C (100 kHz, master).
    [[nodiscard]] TAVO_API CY_RETURN_STATUS configureScb0(bool spi);

    DeviceInfo& deviceInfo;
    bool spiMasterSet = false;  ///< the last write of this object made SCB0 SPI master
};
