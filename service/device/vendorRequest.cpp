#include "service/device/vendorRequest.h"

#include <libusb.h>

#include "platform/cyusbserial.h"

namespace tavo {
namespace {

constexpr unsigned char kVendorOut = 0x40;  // bmRequestType: to the device, vendor request
constexpr unsigned kTimeoutMs = 1000;

}  // namespace

int sendVendorRequest(const CyHandle& handle, unsigned char code, unsigned short value, unsigned short index) {
    return libusb_control_transfer(libusbHandleOf(handle.handle), kVendorOut, code, value, index, nullptr, 0,
                                   kTimeoutMs);
}

TAVO_STATUS vendorRequestStatus(int result) {
    if (result >= 0) return TAVO_SUCCESS;
    if (result == LIBUSB_ERROR_NO_DEVICE) return TAVO_DEVICE_NOT_FOUND;
    return result == LIBUSB_ERROR_TIMEOUT ? TAVO_TIMEOUT : TAVO_REQUEST_FAILED;
}

}  // namespace tavo
