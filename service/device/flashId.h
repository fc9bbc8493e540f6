// Proof that the flash can be reached: its ID.
#pragma once

#include <string>

#include "service/operation.h"

namespace tavo {

/// Takes the flash as flash operations do, reads its ID and lets go again; the Neuron is restarted.
/// @return "EF 40 14". Throws Error: no flash answers, a step failed, or something is still held.
std::string readFlashId(Operation& op);

}  // namespace tavo
