#include "platform/usb/bus.h"
#include "tavo/export.h"

extern "C" {

TAVO_API CY_RETURN_STATUS CyOpen(UINT8 deviceNumber, UINT8 interfaceNumber, CY_HANDLE* handle) {
    if (handle == nullptr) return CY_ERROR_INVALID_PARAMETER;
    return usb::Bus::instance().open(deviceNumber, interfaceNumber, *handle);
}

TAVO_API CY_RETURN_STATUS CyClose(CY_HANDLE handle) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    return usb::Bus::instance().close(handle);
}

}  // extern "C"
