// Finds the attached interfaces and fills a DeviceInfo for each.
#pragma once

#include <string>
#include <vector>

#include "tavo/deviceAccess.h"

namespace platform {

/// One attached interface as discovery found it.
struct AttachedDevice {
    DeviceInfo info;           ///< numbers, serial number, IDs, port path; Neuron ID where the user flash holds one
    CY_RETURN_STATUS status;   ///< CY_SUCCESS, or why its description could not be read (CY_ERROR_ACCESS_DENIED)
    std::string manufacturer;  ///< as the device tells it
    std::string product;       ///< as the device tells it
    bool scb0Found = false;    ///< a vendor-class SPI or I2C interface (USB class FF, subclass 02 or 03)
    bool scb0IsSpi = false;    ///< serial block 0 is an SPI master or slave
    bool configFound = false;  ///< the manufacturing interface (class FF, subclass 05); true in every listed one
    /// Who keeps others off it: 0 nobody, or this process; the process ID of the holder of its lock; -1 for
    /// somebody who cannot be named (a lock without a name, or its interface claimed without the lock).
    int lockHolder = 0;
};

/// Every attached interface, in bus order: an expected vendor and product ID, a manufacturing interface, and
/// the bridge's answer to the signature request. A device that cannot be asked is listed by its descriptors
/// alone: one that this user may not open or that does not answer has its status, one that another process
/// has locked or claimed has its lockHolder and no Neuron ID; a locked one is left alone. One that this very
/// process has locked is read as if it were not.
/// Blocks for a few control transfers a device, at most 0.5 s for each one that another program has claimed,
/// 2 s for each one that another discovery looks at. Device numbers in the records are good as long as the
/// device stays plugged in; with the vendor's bridge library, until the next call.
/// @return CY_SUCCESS, or the status of the device list when USB itself cannot be used.
TAVO_API CY_RETURN_STATUS discoverDevices(std::vector<AttachedDevice>& devices);

/// The name a device is locked by (DeviceLock): its port path, without one its serial number.
TAVO_API std::string lockName(const AttachedDevice& device);

}  // namespace platform
