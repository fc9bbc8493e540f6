#include "platform/portPath.h"
#include "platform/usb/bus.h"
#include "platform/usb/kernelDriverOf.h"
#include "platform/usb/portPathOf.h"
#include "tavo/export.h"

extern "C" {

TAVO_API CY_RETURN_STATUS CyGetListofDevices(UINT8* numDevices) {
    if (numDevices == nullptr) return CY_ERROR_INVALID_PARAMETER;
    return usb::Bus::instance().refresh(*numDevices);
}

TAVO_API CY_RETURN_STATUS CyGetPortPath(UINT8 deviceNumber, char* path, UINT32 size) {
    if (path == nullptr) return CY_ERROR_INVALID_PARAMETER;
    const usb::BorrowedDevice device = usb::Bus::instance().device(deviceNumber);
    return device ? usb::portPathOf(device.get(), path, size) : CY_ERROR_INVALID_PARAMETER;
}

TAVO_API CY_RETURN_STATUS CyGetKernelDriver(UINT8 deviceNumber, UINT8 interfaceNumber, char* name, UINT32 size) {
    if (name == nullptr) return CY_ERROR_INVALID_PARAMETER;
    const usb::BorrowedDevice device = usb::Bus::instance().device(deviceNumber);
    return device ? usb::kernelDriverOf(device.get(), interfaceNumber, name, size) : CY_ERROR_INVALID_PARAMETER;
}

}  // extern "C"
