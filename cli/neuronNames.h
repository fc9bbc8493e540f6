// The Neuron's codes by name.
#pragma once

#include <cstdint>
#include <string>

#include "cli/report.h"
#include "cli/session.h"
#include "tavo/neuron.h"

namespace cli {

// Names of ISO/IEC 14908-1; "unknown" for a code without one.
const char* nodeStateName(std::uint8_t state);
const char* resetCauseName(std::uint8_t cause);
const char* errorLogName(std::uint8_t error);

std::string named(const char* name, std::uint8_t raw);  ///< "configured (0x04)"
Json namedJson(const char* name, std::uint8_t raw);     ///< {"name": "configured", "raw": 4}

/// Reads the Neuron's status, or throws Failure.
NeuronState neuronState(Session& session);

}  // namespace cli
