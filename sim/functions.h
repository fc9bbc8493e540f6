// The functions whose place the simulated interface takes.
#pragma once

#include <string_view>

namespace sim {

enum class Function : unsigned {
    CyGetListofDevices,
    CyGetDeviceInfo,
    CyGetPortPath,
    CyGetKernelDriver,
    CyOpen,
    CyClose,
    CySpiReadWrite,
    CyGetSpiConfig,
    CySetSpiConfig,
    CyProgUserFlash,
    CyReadUserFlash,
    CyGetGpioValue,
    CySetGpioValue,
    libusb_control_transfer,
    ldv_open,
    ldv_write,
    ldv_read,
    ldv_close,
    sleep,
    Count,
};

/// Function::Count for a name that is none of them.
Function functionNamed(std::string_view name);

}  // namespace sim
