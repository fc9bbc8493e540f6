// The parts of an interface as they hang together.
#pragma once

#include <string>
#include <vector>

#include "cli/output/console.h"
#include "tavo/service/overview.h"

namespace cli {

/// A row each, drawn as a tree: "   `- Neuron   FAIL held in reset - what to do".
std::vector<Line> picture(const std::vector<tavo::Part>& parts, bool isUtf8);

}  // namespace cli
