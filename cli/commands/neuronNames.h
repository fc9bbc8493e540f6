// The Neuron's codes in JSON.
#pragma once

#include <cstdint>

#include "cli/output/report.h"

namespace cli {

/// {"name": "configured", "raw": 4}
inline Json namedJson(const char* name, std::uint8_t raw) {
    return {{"name", name}, {"raw", raw}};
}

}  // namespace cli
