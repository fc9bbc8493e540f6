// Commands in hints, as they can be pasted where more than one interface is attached.
#pragma once

#include <string>

#include "cli/arguments/options.h"
#include "tavo/service/device.h"

namespace cli {

/// The options that choose the device again, as on a command line: "-d usb:1-4.2". Empty when none was named.
std::string deviceOptions(const GlobalOptions& options);
/// The same for one of several that were found.
std::string deviceOptions(const GlobalOptions& options, const tavo::DeviceDescription& device);

/// Puts the options into each command of a hint that works on a device: the service layer, whose hints these are, does
/// not know how the device was chosen.
std::string withDevice(const std::string& hint, const std::string& options);

}  // namespace cli
