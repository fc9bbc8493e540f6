// Setup of the bridge: the role of its serial block 0 (SCB0) and its 512-byte configuration block.
#pragma once

#include "tavo/deviceAccess.h"

/// Holds the caller's DeviceInfo and, when destroyed, makes SCB0 a slave if it has made it master.
/// No bridge handle stays open between its operations. Results are bridge statuses, unless told
/// otherwise that of the first step that failed.
///
/// The configuration operations switch the bridge to configuration-flash mode and back. They leave it
/// in that mode when the read or the write of the block fails, or the way back itself. What they
/// write takes effect when the bridge is plugged in again.
class Configurator {
public:
    /// @param deviceInfo  borrowed; must outlive the object. No I/O.
    TAVO_API explicit Configurator(DeviceInfo& deviceInfo);
    /// Makes SCB0 an SPI slave if spiMasterSet, with the clock and mode of setupSpi, not those it had
    /// before; a failure is not reported.
    TAVO_API ~Configurator();
    Configurator(const Configurator&) = delete;
    Configurator& operator=(const Configurator&) = delete;

    /// Makes SCB0 an SPI master or slave: 900 kHz, mode 0, 8-bit words, most significant bit first,
    /// select held over a transfer. Writes nothing when the block is set up that way already; bit
    /// order and select-precede are not compared.
    /// @return the status of the open or of the write; a failed read is not reported when the
    ///         write succeeds.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS setupSpi(bool master);

    /// Reads the 512-byte configuration block into data (room for 512 bytes, owned by the caller; may
    /// be filled after a failure too).
    [[nodiscard]] TAVO_API CY_RETURN_STATUS readConfigData(unsigned char* data);

    /// Writes a configuration block with its serial-number descriptor, the word at offset 168 and
    /// its checksum brought up to date. Nothing is read back.
    /// @param data    512 bytes, or null to rewrite the block that is in the bridge. Nothing in them is
    ///                checked: not the signature, not the vendor ID, not the checksum.
    /// @param serial  the new serial-number text without prefix, or null to keep the one in the
    ///                DeviceInfo, whatever serialNumberValid, data and the bridge say.
    ///                A text of up to 32 characters that SerialNumber::fromStringWithoutPrefix does not
    ///                take (empty, or not all printable ASCII: "Gerät 7") writes an empty serial
    ///                number and is a success: check it first.
    ///                The caller's DeviceInfo shows what is written from the moment the block is made,
    ///                also when a later step fails.
    /// @return CY_ERROR_INVALID_PARAMETER, with nothing touched, for a serial text (new or kept) of
    ///         more than 32 characters. When the last step fails, leaving the mode, the block has been
    ///         written.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS writeConfigData(const unsigned char* data, const char* serial);

    /// Sets SCB0's mode and settings in the block: SPI (1 MHz, master) or I2C (100 kHz, master). Reads
    /// the block, then writes it; both as above, with the serial number of the DeviceInfo.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS configureScb0(bool spi);

    DeviceInfo& deviceInfo;     ///< of the caller; borrowed
    bool spiMasterSet = false;  ///< the last write of this object made SCB0 SPI master
};
