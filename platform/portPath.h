// What the bridge library does not tell about a device: where it is plugged in, and which kernel driver holds it.
#pragma once

#include "tavo/bridgeTypes.h"

extern "C" {

/// The stable port path of a device ("1-4.2": bus 1, port 4, port 2 of the hub there), NUL-terminated.
/// @param deviceNumber  index into the list of the last CyGetListofDevices.
/// @return CY_ERROR_INVALID_PARAMETER for a bad number or too little room; then path is unchanged.
CY_RETURN_STATUS CyGetPortPath(UINT8 deviceNumber, char* path, UINT32 size);

/// The name of the kernel driver that holds an interface now ("cdc_acm"), NUL-terminated; empty when there is
/// none, "unknown" when there is one that the system does not name. Nothing is claimed or detached, so it shows
/// a driver that CyOpen would take the interface from, too; another program's claim is no driver.
/// @param deviceNumber  index into the list of the last CyGetListofDevices.
/// @return CY_ERROR_INVALID_PARAMETER for a bad number or too little room, otherwise why the system did not
///         tell (CY_ERROR_ACCESS_DENIED); then name is unchanged.
CY_RETURN_STATUS CyGetKernelDriver(UINT8 deviceNumber, UINT8 interfaceNumber, char* name, UINT32 size);

}  // extern "C"
