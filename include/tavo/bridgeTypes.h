// The types of the bridge library (libcyusbserial) that appear in this library's own interface.
// Values and sizes are those the bridge library publishes for 64-bit Linux, so that either
// implementation of its functions can be linked.
#pragma once

#include <cstdint>

/// A byte.
using UINT8 = unsigned char;
/// A byte.
using UCHAR = unsigned char;
/// 16 bits.
using UINT16 = unsigned short;
/// 32 bits.
using UINT32 = unsigned int;
/// True or false.
using BOOL = bool;  // one byte on Linux
/// An opened interface of the bridge.
using CY_HANDLE = void*;

static_assert(sizeof(UINT16) == 2 && sizeof(UINT32) == 4 && sizeof(BOOL) == 1,
              "64-bit Linux ABI of the bridge library");

/// Result of every bridge-level call. Values above 22 do not exist; a caller may still meet one in
/// a damaged result, so the type holds all 32 bits.
enum CY_RETURN_STATUS : std::uint32_t {
    CY_SUCCESS = 0,
    CY_ERROR_ACCESS_DENIED = 1,
    CY_ERROR_DRIVER_INIT_FAILED = 2,
    CY_ERROR_DEVICE_INFO_FETCH_FAILED = 3,
    CY_ERROR_DRIVER_OPEN_FAILED = 4,
    CY_ERROR_INVALID_PARAMETER = 5,
    CY_ERROR_REQUEST_FAILED = 6,
    CY_ERROR_DOWNLOAD_FAILED = 7,
    CY_ERROR_FIRMWARE_INVALID_SIGNATURE = 8,
    CY_ERROR_INVALID_FIRMWARE = 9,
    CY_ERROR_DEVICE_NOT_FOUND = 10,
    CY_ERROR_IO_TIMEOUT = 11,
    CY_ERROR_PIPE_HALTED = 12,
    CY_ERROR_BUFFER_OVERFLOW = 13,
    CY_ERROR_INVALID_HANDLE = 14,
    CY_ERROR_ALLOCATION_FAILED = 15,
    CY_ERROR_I2C_DEVICE_BUSY = 16,
    CY_ERROR_I2C_NAK_ERROR = 17,
    CY_ERROR_I2C_ARBITRATION_ERROR = 18,
    CY_ERROR_I2C_BUS_ERROR = 19,
    CY_ERROR_I2C_BUS_BUSY = 20,
    CY_ERROR_I2C_STOP_BIT_SET = 21,
    CY_ERROR_STATUS_MONITOR_EXIST = 22,
};
