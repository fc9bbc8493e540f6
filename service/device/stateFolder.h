// Where this host keeps what it must not forget of an interface.
#pragma once

#include <string>

#include "tavo/service/device.h"

namespace tavo {

/// A name for a new file of this interface there, in a folder that exists; begin and ending are parts of it. Empty
/// for an interface in memory, which is gone with its process. Throws Error (FileSystem).
std::string newStateFile(const DeviceDescription& device, const std::string& begin, const std::string& ending);

}  // namespace tavo
