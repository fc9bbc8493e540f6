// Built with the vendor's bridge library in place of the other files here: what that library lacks.
#include "platform/portPath.h"
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

}  // namespace

extern "C" TAVO_API CY_RETURN_STATUS CyGetPortPath(UINT8 deviceNumber, char* path, UINT32 size) {
    if (path == nullptr) return CY_ERROR_INVALID_PARAMETER;
    // The default context, which is the bridge library's as well: both see the devices in one order.
    if (libusb_init(nullptr) != LIBUSB_SUCCESS) return CY_ERROR_DRIVER_INIT_FAILED;
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(nullptr, &list);
    CY_RETURN_STATUS status = CY_ERROR_INVALID_PARAMETER;
    if (deviceNumber < count) status = usb::portPathOf(list[deviceNumber], path, size);
    if (count >= 0) libusb_free_device_list(list, 1);
    libusb_exit(nullptr);
    return status;
}
