// A picture of an image in its chip.
#pragma once

#include <string>
#include <vector>

#include "cli/image.h"

namespace cli {

/// @param flashSize  bytes; 0: the smallest power of two that holds the image
std::vector<std::string> drawMap(const Image& image, std::uint32_t flashSize);

}  // namespace cli
