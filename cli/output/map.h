// A chip as a picture of letters.
#pragma once

#include "cli/output/report.h"
#include "tavo/service/image.h"

namespace cli {

/// Tells a map: "map" of the result, and the grid with its ranges beside it or, where there is no room, below.
void tellMap(Report& report, const tavo::ImageMap& map);

}  // namespace cli
