// The Neuron's reset and service lines as steps of an operation.
#pragma once

#include "service/operation.h"

namespace tavo {

inline constexpr long kBootMs = 1500;  ///< the Neuron's start once its reset line is up

/// Pulses a line low for 25 ms, as the library does. doing completes "cannot ...". Afterwards both lines are
/// looked at; throws Error when one stays low, or when the bridge has no such pin.
void pulse(Operation& op, unsigned char pin, const char* doing);

/// Both lines low, the service line half a second later, 11.5 s in all; released on every way out.
void holdResetAndService(Operation& op);

}  // namespace tavo
