// Built with the vendor's bridge library in place of the other files here: what that library lacks.
#include "platform/portPath.h"
#include "platform/usb/kernelDriverOf.h"
#include "platform/usb/portPathOf.h"
#include "tavo/export.h"

extern "C" {
// The bridge library wants to be set up before its first use and left at the end.
CY_RETURN_STATUS CyLibraryInit();
CY_RETURN_STATUS CyLibraryExit();
}

namespace {

struct BridgeLibrary {
    BridgeLibrary() : ready(CyLibraryInit() == CY_SUCCESS) {}
    ~BridgeLibrary() {
        if (ready) CyLibraryExit();
    }
    bool ready;
};
const BridgeLibrary bridgeLibrary;

/// Calls use(device) on the device behind a number. The default context is the bridge library's as well: both
/// see the devices in one order.
template <class Use>
CY_RETURN_STATUS withDevice(UINT8 deviceNumber, Use use) {
    if (libusb_init(nullptr) != LIBUSB_SUCCESS) return CY_ERROR_DRIVER_INIT_FAILED;
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(nullptr, &list);
    CY_RETURN_STATUS status = CY_ERROR_INVALID_PARAMETER;
    if (deviceNumber < count) status = use(list[deviceNumber]);
    if (count >= 0) libusb_free_device_list(list, 1);
    libusb_exit(nullptr);
    return status;
}

}  // namespace

extern "C" {

TAVO_API CY_RETURN_STATUS CyGetPortPath(UINT8 deviceNumber, char* path, UINT32 size) {
    if (path == nullptr) return CY_ERROR_INVALID_PARAMETER;
    return withDevice(deviceNumber, [&](libusb_device* device) { return usb::portPathOf(device, path, size); });
}

TAVO_API CY_RETURN_STATUS CyGetKernelDriver(UINT8 deviceNumber, UINT8 interfaceNumber, char* name, UINT32 size) {
    if (name == nullptr) return CY_ERROR_INVALID_PARAMETER;
    return withDevice(deviceNumber,
                      [&](libusb_device* device) { return usb::kernelDriverOf(device, interfaceNumber, name, size); });
}

}  // extern "C"
