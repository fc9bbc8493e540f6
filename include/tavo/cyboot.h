// Vendor requests to the bridge on USB endpoint 0 that the bridge library does not offer.
//
// Each function issues one control transfer to the device of an open CY_HANDLE and blocks until
// the device answers or the time-out passes. A null handle gives CY_ERROR_INVALID_HANDLE; after it
// a null or zero argument, or a length above 65535, gives CY_ERROR_INVALID_PARAMETER; nothing is sent
// and transferCount not set then. After a failed read the buffer may be partly filled. No retries.
#pragma once

#include "tavo/bridgeTypes.h"
#include "tavo/export.h"

/// Argument of CyReadFlash and CyProgFlash.
struct CY_FLASH_BUFFER {
    UCHAR* buffer;         ///< data to write, or room for data to read; borrowed
    UINT32 length;         ///< bytes to transfer, 1 to 65535 (16-bit wLength)
    UINT32 transferCount;  ///< set by the function: bytes transferred, 0 after a failure
    UINT32 address;        ///< flash address of the first byte
};

extern "C" {

/// Enters (any non-zero enable) or leaves configuration-flash mode. 5000 ms.
/// CY_ERROR_IO_TIMEOUT or CY_ERROR_REQUEST_FAILED on failure.
TAVO_API CY_RETURN_STATUS CyFlashConfigEnable(CY_HANDLE handle, BOOL enable);

/// Reads the 512-byte configuration block into deviceConfig. Only in configuration-flash mode.
/// 5000 ms. Anything but 512 bytes, a time-out included, is CY_ERROR_REQUEST_FAILED.
TAVO_API CY_RETURN_STATUS CyReadDeviceConfig(CY_HANDLE handle, UCHAR* deviceConfig);

/// Writes the 512-byte configuration block. Only in configuration-flash mode. Results as above.
TAVO_API CY_RETURN_STATUS CyWriteDeviceConfig(CY_HANDLE handle, UCHAR* deviceConfig);

/// The 4 bytes of the silicon ID, as received. 5000 ms. The byte count is not checked: what did not
/// come keeps its value. Results as CyFlashConfigEnable.
TAVO_API CY_RETURN_STATUS CyGetSiliconID(CY_HANDLE handle, UINT32* siliconId);

/// Reads the bridge's internal flash. A short transfer is a success; see transferCount.
/// CY_ERROR_IO_TIMEOUT, or CY_ERROR_REQUEST_FAILED also for a transfer of no byte.
/// @param timeout  milliseconds; 0 waits without end
TAVO_API CY_RETURN_STATUS CyReadFlash(CY_HANDLE handle, CY_FLASH_BUFFER* flashBuffer, UINT32 timeout);

/// Programs the bridge's internal flash. Results as CyReadFlash.
TAVO_API CY_RETURN_STATUS CyProgFlash(CY_HANDLE handle, CY_FLASH_BUFFER* flashBuffer, UINT32 timeout);

/// Asks the bridge to validate its flash checksum. 5000 ms. Any failure, a time-out included, is
/// CY_ERROR_REQUEST_FAILED.
TAVO_API CY_RETURN_STATUS CyValidateChecksum(CY_HANDLE handle);

}  // extern "C"
