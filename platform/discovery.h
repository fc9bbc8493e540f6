// Finds the attached interfaces and fills a DeviceInfo for each.
#pragma once

#include <string>
#include <vector>

#include "tavo/deviceAccess.h"

namespace platform {

/// One attached interface as discovery found it.
struct AttachedDevice {
    DeviceInfo info;          ///< numbers, serial number, IDs, port path; Neuron ID where the user flash holds one
    CY_RETURN_STATUS status;  ///< CY_SUCCESS, or why its description could not be read (CY_ERROR_ACCESS_DENIED)
    std::string manufacturer;
    std::string product;
    bool scb0Found = false;  ///< a vendor-class SPI or I2C interface (USB class FF, subclass 02 or 03)
    bool scb0IsSpi = false;
    bool configFound = false;  ///< the manufacturing interface (class FF, subclass 05)
};

/// Every attached interface with an expected vendor and product ID, in bus order. Devices that this
/// user may not open are listed too, with their status. Blocks for a few control transfers a device;
/// device numbers in the records are good until the next call.
/// @return CY_SUCCESS, or the status of the device list when USB itself cannot be used.
TAVO_API CY_RETURN_STATUS discoverDevices(std::vector<AttachedDevice>& devices);

}  // namespace platform
