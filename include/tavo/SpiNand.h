// Driver of the JEDEC SPI NOR flash that holds the Neuron's firmware.
#pragma once

#include "tavo/deviceAccess.h"

/// Speaks JEDEC standard SPI flash commands over an open bridge handle.
///
/// The bridge's SCB0 must be SPI master (Configurator::setupSpi) and the Neuron held in reset.
/// Every operation blocks; each transfer takes at most 10 s, a wait for a busy chip at most
/// 1,200,000 polls of 1 ms. Results are bridge statuses. An operation on a handle that is not open
/// returns the handle's openStatus and sends nothing. Unless told otherwise below, a failing step
/// ends an operation with its status and leaves the outputs as they were.
///
/// Page buffer: 4 header bytes that the driver fills (command, 24-bit address, most significant
/// byte first), then the data. n data bytes take n + 4 bytes. Address bits above 23 are not sent.
///
/// Success of a command says that it was sent, and that the chip was idle where it is waited for;
/// only writePage reads back. A line that reads 00 without a chip is idle at once.
class SpiNand {
public:
    /// @param handle  borrowed; must stay open while the driver is used. No I/O.
    TAVO_API explicit SpiNand(const CyHandle& handle);

    /// Sends Write Enable (0x06).
    [[nodiscard]] TAVO_API CY_RETURN_STATUS enableWrite() const;
    /// Reads the status register (0x05).
    [[nodiscard]] TAVO_API CY_RETURN_STATUS readStatus(unsigned char& status) const;
    /// Write Enable, then Write Status Register (0x01). Does not wait for the write cycle to end.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS writeStatus(unsigned char value) const;
    /// Size of the chip in bytes: 2 raised to the capacity code of the JEDEC ID (0x9F). Maker and
    /// memory type are not looked at. Does not wait for a busy chip, which gives no ID.
    /// CY_ERROR_REQUEST_FAILED for a code of 32 or more: an absent chip reads FF.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS getFlashSize(unsigned int& size) const;
    /// busy = write in progress (status bit 0).
    [[nodiscard]] TAVO_API CY_RETURN_STATUS isOpInProgress(bool& busy) const;
    /// Returns once the chip is idle, polling every 1 ms. CY_ERROR_IO_TIMEOUT after 1,200,000 polls
    /// (over 20 minutes; the longest chip erase in data sheets is under 10).
    [[nodiscard]] TAVO_API CY_RETURN_STATUS waitForOpInProgress() const;
    /// Writes status 0x00, all bits of it, when any of the protection bits 0x9C is set. Does not wait
    /// for the cycle, nor look whether the chip took it (it does not while its write-protect pin is low).
    [[nodiscard]] TAVO_API CY_RETURN_STATUS disableWriteProtection() const;
    /// Erases the whole chip (0xC7) and waits until it is idle again.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS erase() const;
    /// Reads size - 4 bytes from address into buffer from byte 4 on; bytes 0 to 3 carry no data.
    /// @param buffer  holds no data after a failure; it is zeroed before the transfer.
    /// @param size    bytes of buffer, header included; at least 4.
    /// @return CY_ERROR_REQUEST_FAILED when the wait for an idle chip failed, whatever the reason;
    ///         CY_ERROR_ALLOCATION_FAILED without memory; otherwise the transfer's status.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS readPage(unsigned int address, unsigned char* buffer,
                                                     unsigned int size) const;
    /// False when all length data bytes of the page buffer are 0xFF. No I/O.
    [[nodiscard]] TAVO_API bool checkIfPageNeedsToBeProgrammed(unsigned char* page, unsigned int length) const;
    /// Programs the length data bytes of page at address and verifies them, in up to 3 attempts. A
    /// step that fails costs an attempt, as a difference does; its status is dropped.
    /// The chip must be erased there: a blank page is a success without traffic, whatever the cells hold.
    /// The bytes must not cross a multiple of 256, where the chip wraps around; this is not checked.
    /// @param page      length + 4 bytes; the header is written by the driver.
    /// @param readBack  length + 4 bytes; receives the last verification read.
    /// @return CY_ERROR_DOWNLOAD_FAILED after the third failed attempt.
    [[nodiscard]] TAVO_API CY_RETURN_STATUS writePage(unsigned int address, unsigned char* page,
                                                      unsigned char* readBack, unsigned int length) const;

private:
    const CyHandle& handle_;
};
