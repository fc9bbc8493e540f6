// Seeing that an interface is well again: what the releases of an operation have left on its lines.
#pragma once

#include "platform/cyusbserial.h"
#include "service/operation.h"
#include "tavo/service/configuration.h"

namespace tavo {

/// The SPI clock, as the library sets it, and the fastest that a flash operation may be told to take.
inline constexpr UINT32 kUsualClockHz = 900000;
inline constexpr UINT32 kFastestClockHz = 3000000;

/// True for a setting that flash operations work with: master, mode 0, 8-bit words, and one of those clocks.
bool isFlashMaster(const CY_SPI_CONFIG& config);
/// Whether the configuration block makes SCB0 so at power-up.
bool isAsTheBlockHasIt(const CY_SPI_CONFIG& config, const ConfigurationBlock& block);
/// Outside of a flash operation: whether one that was cut off has left SCB0 so. At the usual clock nothing else
/// does; at another one the block is read, since that may make such a master too. One that cannot be read makes
/// none known: false. Throws nothing.
bool isLeftByRun(Operation& op, const CY_SPI_CONFIG& config);

/// Reads pins 8 and 14 and the SPI setting of SCB0 back into op.state. What the bridge does not have (pin 14
/// of the smaller parts, an SPI block) stays NotLooked; what cannot be read is Unknown. Scb0State::SpiMaster
/// is a master as isLeftByRun tells it. Three requests, no waits; throws nothing.
void lookAtLines(Operation& op);

/// lookAtLines after the releases of an operation; what is still held, or not known to be released, is
/// released once more and looked at again. op.state tells the outcome; the caller decides whether it is a
/// failure. Not ended by a cancellation; throws nothing.
/// @param giveScb0Back  false leaves SCB0 as it is.
void letGo(Operation& op, bool giveScb0Back);

/// True when nothing is held, and the reset line and SCB0 were seen to be released.
bool isSeenReleased(const DeviceState& state);
/// The failure of an operation that went well and could not let go of what it took. Names recover.
Error stillHeld(const Operation& op);
/// A failure as it has to be told when something is still held: that too, and recover first.
Error andStillHeld(const Error& error, const Operation& op);

}  // namespace tavo
