#include "platform/usb/request.h"

namespace usb {
namespace {

constexpr UINT8 kIn = 0xC0;  // vendor request, recipient device
constexpr UINT8 kOut = 0x40;

}  // namespace

int requestIn(const Claim& claim, Request request, UINT16 value, UINT16 index, UCHAR* data, UINT32 length,
              UINT32 timeout) {
    return libusb_control_transfer(claim.usb(), kIn, request, value, index, data, static_cast<UINT16>(length), timeout);
}

int requestOut(const Claim& claim, Request request, UINT16 value, UINT16 index, UCHAR* data, UINT32 length,
               UINT32 timeout) {
    return libusb_control_transfer(claim.usb(), kOut, request, value, index, data, static_cast<UINT16>(length),
                                   timeout);
}

CY_RETURN_STATUS failureOf(int result) {
    return result == LIBUSB_ERROR_TIMEOUT ? CY_ERROR_IO_TIMEOUT : failureWithoutTimeout(result);
}

CY_RETURN_STATUS failureWithoutTimeout(int result) {
    return result == LIBUSB_ERROR_NO_DEVICE ? CY_ERROR_DEVICE_NOT_FOUND : CY_ERROR_REQUEST_FAILED;
}

}  // namespace usb
