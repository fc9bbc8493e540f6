// The kernel driver that holds an interface.
#pragma once

#include <libusb.h>

#include "tavo/bridgeTypes.h"

namespace usb {

/// As CyGetKernelDriver (platform/portPath.h), for a device that was found.
CY_RETURN_STATUS kernelDriverOf(libusb_device* device, UINT8 interfaceNumber, char* name, UINT32 size);

}  // namespace usb
