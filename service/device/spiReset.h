// Ending a transfer that a run has left in the bridge when it was killed.
#pragma once

#include <string>

#include "tavo/deviceAccess.h"
#include "tavo/status.h"

namespace tavo {

/// Resets the bridge's SPI block, and puts its setting back should the reset have changed it. text: said better
/// when there is more to say. At most 1 s. A bridge that refuses the request has nothing to end: a success.
TAVO_STATUS endUnfinishedTransfer(const DeviceInfo& info, std::string& text);

}  // namespace tavo
