// What this process knows of the SPI side of one interface, and how it brings it back after a failure.
#pragma once

#include <array>
#include <mutex>
#include <optional>

#include "tavo/bridgeTypes.h"

namespace usb {

class Claim;

/// The record of the requests C2 and C3 (spiConfig.cpp has its fields).
using SpiRecord = std::array<UCHAR, 16>;
UINT32 frequencyOf(const SpiRecord& record);  ///< Hz

/// One per process and interface of a device; later claims of the interface get the same one. Its lock is
/// held for its own few requests, never for a transfer. What its requests answer is nobody's result: the
/// failure that led to them is.
class SpiSide {
public:
    /// Comes before the first SPI request of this process to the interface: ends a transfer that a killed
    /// run may have left unfinished, which would take the bytes of the next one. Only the first call sends
    /// anything.
    void begin(const Claim& claim);

    /// Ends the bridge's side of a transfer. False when the bridge did not answer: then it is not asked more.
    bool reset(const Claim& claim);
    /// Whether a reset leaves the chip its SPI setting is not documented: reads it, and puts back what this
    /// process has read or set last if it is another one.
    void restore(const Claim& claim);

    /// The chip has this setting, or (nothing) a setting that nobody knows.
    void remember(const std::optional<SpiRecord>& setting);
    /// The clock of that setting in Hz, 0 when it is not known.
    UINT32 frequency();

private:
    std::mutex mutex_;
    bool begun_ = false;
    std::optional<SpiRecord> setting_;
};

}  // namespace usb
