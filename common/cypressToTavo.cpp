#include <array>

#include "tavo/status.h"

namespace {

// Indexed by the bridge status: 0 stays 0, n becomes n + 7.
constexpr std::array<TAVO_STATUS, 23> kTavoStatus = {
    TAVO_SUCCESS,
    TAVO_ACCESS_DENIED,
    TAVO_DRIVER_INIT_FAILED,
    TAVO_DEVICE_INFO_FETCH_FAILED,
    TAVO_DEVICE_OPEN_FAILED,
    TAVO_INVALID_PARAMETER,
    TAVO_REQUEST_FAILED,
    TAVO_DOWNLOAD_FAILED,
    TAVO_INVALID_SIGNATURE,
    TAVO_INVALID_FIRMWARE,
    TAVO_DEVICE_NOT_FOUND,
    TAVO_TIMEOUT,
    TAVO_PIPE_HALTED,
    TAVO_BUFFER_OVERFLOW,
    TAVO_INVALID_HANDLE,
    TAVO_MEMORY_ALLOC_FAILED,
    TAVO_DEVICE_BUSY,
    TAVO_DEVICE_NO_ACK,
    TAVO_ARBITRATION_ERROR,
    TAVO_I2C_ERROR,
    TAVO_I2C_BUS_BUSY,
    TAVO_I2C_STOP_BIT_SET,
    TAVO_MONITOR_EXISTS,
};
static_assert(kTavoStatus[CY_ERROR_STATUS_MONITOR_EXIST] == CY_ERROR_STATUS_MONITOR_EXIST + 7, "one entry a status");

}  // namespace

TAVO_STATUS cypressToTavo(CY_RETURN_STATUS status) {
    if (status >= kTavoStatus.size()) return TAVO_UNKNOWN_ERROR;
    return kTavoStatus[status];
}
