// Status codes of the exported operations, their messages, and the way from a bridge status to one.
#pragma once

#include <cstdint>

#include "tavo/bridgeTypes.h"
#include "tavo/export.h"

/// Result of every exported operation that takes a DeviceInfo. 1 to 7 and 30 come from the
/// library's own checks; 8 to 29 are the bridge statuses 1 to 22 (see cypressToTavo).
enum TAVO_STATUS : std::uint32_t {
    TAVO_SUCCESS = 0,
    TAVO_WRONG_VID_PID = 1,
    TAVO_FILE_NOT_FOUND = 2,
    TAVO_HEX_FORMAT_ERROR = 3,
    TAVO_FLASH_PROGRAMMING_FAILED = 4,
    TAVO_WRONG_CONFIG_SIZE = 5,
    TAVO_UNSUPPORTED_ON_OS = 6,
    TAVO_TRANSACTION_FAILED = 7,
    TAVO_ACCESS_DENIED = 8,
    TAVO_DRIVER_INIT_FAILED = 9,
    TAVO_DEVICE_INFO_FETCH_FAILED = 10,
    TAVO_DEVICE_OPEN_FAILED = 11,
    TAVO_INVALID_PARAMETER = 12,
    TAVO_REQUEST_FAILED = 13,
    TAVO_DOWNLOAD_FAILED = 14,
    TAVO_INVALID_SIGNATURE = 15,
    TAVO_INVALID_FIRMWARE = 16,
    TAVO_DEVICE_NOT_FOUND = 17,
    TAVO_TIMEOUT = 18,
    TAVO_PIPE_HALTED = 19,
    TAVO_BUFFER_OVERFLOW = 20,
    TAVO_INVALID_HANDLE = 21,
    TAVO_MEMORY_ALLOC_FAILED = 22,
    TAVO_DEVICE_BUSY = 23,
    TAVO_DEVICE_NO_ACK = 24,
    TAVO_ARBITRATION_ERROR = 25,
    TAVO_I2C_ERROR = 26,
    TAVO_I2C_BUS_BUSY = 27,
    TAVO_I2C_STOP_BIT_SET = 28,
    TAVO_MONITOR_EXISTS = 29,
    TAVO_WRONG_FILE_EXTENSION = 30,
    TAVO_UNKNOWN_ERROR = 0xFFFFFFFF,
};

/// The English message of a status; "unknown error" for every value without one.
/// The text is a static, read-only string of the library: never null, never freed. No side effects.
[[nodiscard]] TAVO_API const char* tavoStatusString(TAVO_STATUS status);

/// The TAVO_STATUS of a bridge status: 0 stays 0, 1 to 22 become 8 to 29, anything above
/// (compared unsigned) becomes TAVO_UNKNOWN_ERROR. No side effects.
[[nodiscard]] TAVO_API TAVO_STATUS cypressToTavo(CY_RETURN_STATUS status);
