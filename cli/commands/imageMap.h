// A chip as a picture of letters.
#pragma once

#include <string>
#include <vector>

#include "tavo/service/image.h"

namespace cli {

/// A line of explanation, then the grid row by row, each with its address.
/// @param legend  what the letters mean
std::vector<std::string> drawMap(const tavo::ImageMap& map, const std::string& legend);

}  // namespace cli
