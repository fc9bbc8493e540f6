#include "sim/functions.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

constexpr std::string_view kNames[] = {
    "CyGetListofDevices",
    "CyGetDeviceInfo",
    "CyGetPortPath",
    "CyGetKernelDriver",
    "CyOpen",
    "CyClose",
    "CySpiReadWrite",
    "CyGetSpiConfig",
    "CySetSpiConfig",
    "CyProgUserFlash",
    "CyReadUserFlash",
    "CyGetGpioValue",
    "CySetGpioValue",
    "libusb_control_transfer",
    "ldv_open",
    "ldv_write",
    "ldv_read",
    "ldv_close",
    "sleep",
};
static_assert(std::size(kNames) == static_cast<std::size_t>(Function::Count));

}  // namespace

Function functionNamed(std::string_view name) {
    return static_cast<Function>(std::find(std::begin(kNames), std::end(kNames), name) - std::begin(kNames));
}

}  // namespace sim
