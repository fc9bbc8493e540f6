// Seeing that an interface is well again: what the releases of an operation have left on its lines.
#pragma once

#include "platform/cyusbserial.h"
#include "service/operation.h"

namespace tavo {

/// True for the setting that flash operations work with: master, 900 kHz, mode 0, 8-bit words. Outside of
/// one it means that a run was cut off. A master with another setting is what the configuration block makes
/// at power-up.
bool isFlashMaster(const CY_SPI_CONFIG& config);

/// Reads pins 8 and 14 and the SPI setting of SCB0 back into op.state. What the bridge does not have (pin 14
/// of the smaller parts, an SPI block) stays NotLooked; what cannot be read is Unknown. Scb0State::SpiMaster
/// is a master as flash operations make it. Three requests, no waits; throws nothing.
void lookAtLines(Operation& op);

/// lookAtLines after the releases of an operation; what is still held, or not known to be released, is
/// released once more and looked at again. op.state tells the outcome; the caller decides whether it is a
/// failure. Not ended by a cancellation; throws nothing.
/// @param giveScb0Back  false leaves SCB0 as it is.
void letGo(Operation& op, bool giveScb0Back);

/// Without power nothing is held, and an interface starts afresh when it is plugged in: of one that is gone, nothing
/// is told of its lines and SCB0. @return true when it is gone
bool forgetLinesOfGone(Operation& op);
/// True when nothing is held, and the reset line and SCB0 were seen to be released.
bool isSeenReleased(const DeviceState& state);
/// The failure of an operation that went well and could not let go of what it took. Names recover.
Error stillHeld(const Operation& op);
/// A failure as it has to be told when something is still held: that too, and recover first.
Error andStillHeld(const Error& error, const Operation& op);

}  // namespace tavo
