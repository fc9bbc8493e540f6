// The text form of a device's place on the bus.
#pragma once

#include <libusb.h>

#include "tavo/bridgeTypes.h"

namespace usb {

/// "BUS-PORT.PORT...", as the kernel names devices; a root hub is "BUS-0".
/// @return CY_ERROR_INVALID_PARAMETER when it does not fit into size bytes; then path is unchanged.
CY_RETURN_STATUS portPathOf(libusb_device* device, char* path, UINT32 size);

}  // namespace usb
