#include "platform/usb/portPathOf.h"

#include <cstring>
#include <string>

namespace usb {

CY_RETURN_STATUS portPathOf(libusb_device* device, char* path, UINT32 size) {
    unsigned char ports[7];  // USB allows seven tiers
    const int depth = libusb_get_port_numbers(device, ports, sizeof ports);
    std::string text = std::to_string(libusb_get_bus_number(device));
    for (int i = 0; i < depth; ++i) {
        text += i == 0 ? '-' : '.';
        text += std::to_string(ports[i]);
    }
    if (depth <= 0) text += "-0";
    if (text.size() >= size) return CY_ERROR_INVALID_PARAMETER;
    std::memcpy(path, text.c_str(), text.size() + 1);
    return CY_SUCCESS;
}

}  // namespace usb
