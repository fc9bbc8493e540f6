// The flash chip's commands, one transfer each, and the waits between them.
#pragma once

#include <cstdint>
#include <string>

#include "service/device/health.h"
#include "service/operation.h"
#include "tavo/SpiNand.h"
#include "tavo/service/flash.h"

namespace tavo {

/// Data bytes of one read: as many as a record of the library's dump has.
inline constexpr std::uint32_t kReadChunk = 255;
/// Data bytes of one long read. With the command it makes 4,100 bytes, which bridges have been seen to take.
inline constexpr std::uint32_t kLongRead = 4096;

/// A wait for an idle chip.
struct BusyWait {
    double longest;    ///< seconds, by data sheets; ten times that is a failure
    const char* what;  ///< "a page program"
    /// When a cancellation ends the wait: letting the Neuron go to a busy flash is no good, so never before
    /// the step should long be done; Never as long as the chip answers.
    enum class Stop : std::uint8_t { AtOnce, WhenLate, Never } stop;
    /// So many polls are made without a sleep between them: one takes a USB frame by itself.
    unsigned prompt = 0;
};

/// Longest whole-chip erase of that size by data sheets, in seconds.
double longestErase(std::uint32_t size);
/// The same, or what the chip tells if that is more: a limit should not end what would have come well.
double longestErase(const FlashChip& chip);
/// Typical whole-chip erase, in seconds.
double usualErase(const FlashChip& chip);

/// What one page took.
struct PageOutcome {
    unsigned attempts = 0;
    CY_RETURN_STATUS status = CY_SUCCESS;  ///< of the last attempt
};

/// Statuses are those of the transfer that failed. Waits throw Error: cancelled, or busy for too long.
class FlashDriver {
public:
    static constexpr unsigned kAttempts = 3;

    /// handle: borrowed, open on SCB0.
    FlashDriver(Operation& op, const CyHandle& handle) : op_(op), handle_(handle), primitives_(handle) {}

    CY_RETURN_STATUS readId(FlashChip& chip) const;
    CY_RETURN_STATUS readSize(FlashChip& chip) const;
    /// size: at most kLongRead - 1.
    CY_RETURN_STATUS readSfdp(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const;
    CY_RETURN_STATUS readStatus(std::uint8_t& status) const { return primitives_.readStatus(status); }
    /// Polls until the chip is idle. status: as it was read last.
    CY_RETURN_STATUS waitUntilIdle(const BusyWait& wait, std::uint8_t& status) const;

    /// Clears block protection, where it is set. The chip may be busy afterwards.
    CY_RETURN_STATUS unprotect() const { return primitives_.disableWriteProtection(); }
    /// Erases everything and waits for the end. Throws Error when the chip says that it is still protected.
    CY_RETURN_STATUS eraseChip(const FlashChip& chip) const;
    /// Erases the block at that address and waits for the end. Throws as eraseChip.
    CY_RETURN_STATUS eraseBlock(const EraseType& type, std::uint32_t address) const;
    /// Before the first read: waits for what a killed run has begun.
    CY_RETURN_STATUS waitUntilReadable() const;
    /// Waits until the chip is idle, then reads. size: at most kReadChunk.
    CY_RETURN_STATUS read(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const;
    /// Reads an idle chip. size: at most kLongRead.
    CY_RETURN_STATUS readLong(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const;
    /// Before the first page: the status write of unprotect may still be going on.
    CY_RETURN_STATUS waitUntilWritable() const;
    /// Programs up to kPageSize bytes of one page of an idle chip, which is waited for but not read back. A step that
    /// fails costs an attempt.
    PageOutcome programPage(const FlashChip& chip, std::uint32_t address, const std::uint8_t* data,
                            std::uint32_t size) const;

private:
    CY_RETURN_STATUS attempt(std::uint8_t* out, std::uint32_t address, std::uint32_t size, double longest) const;
    CY_RETURN_STATUS erase(std::uint8_t* command, std::uint32_t size, double longest) const;
    CY_RETURN_STATUS fetch(std::uint8_t command, std::uint32_t header, std::uint32_t address, std::uint8_t* data,
                           std::uint32_t size) const;
    CY_RETURN_STATUS transfer(std::uint8_t* out, std::uint8_t* in, std::uint32_t length) const;
    CY_RETURN_STATUS enableWrite() const;

    Operation& op_;
    const CyHandle& handle_;
    SpiNand primitives_;
};

}  // namespace tavo
