// Where a device is plugged in: the one fact about a device that the bridge library does not tell.
#pragma once

#include "tavo/bridgeTypes.h"

extern "C" {

/// The stable port path of a device ("1-4.2": bus 1, port 4, port 2 of the hub there), NUL-terminated.
/// @param deviceNumber  index into the list of the last CyGetListofDevices.
/// @return CY_ERROR_INVALID_PARAMETER for a bad number or too little room; then path is unchanged.
CY_RETURN_STATUS CyGetPortPath(UINT8 deviceNumber, char* path, UINT32 size);

}  // extern "C"
