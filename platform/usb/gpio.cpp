#include "platform/usb/request.h"
#include "tavo/export.h"

extern "C" {

TAVO_API CY_RETURN_STATUS CyGetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8* value) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    if (value == nullptr) return CY_ERROR_INVALID_PARAMETER;
    UCHAR answer[2] = {};  // status, 0 when the pin has a level; then the level
    const int result = usb::requestIn(usb::claimOf(handle), usb::kGpioGet, pin, 0, answer, sizeof answer);
    if (result != static_cast<int>(sizeof answer)) return usb::failureWithoutTimeout(result);
    if (answer[0] != 0) return CY_ERROR_REQUEST_FAILED;
    *value = answer[1];
    return CY_SUCCESS;
}

TAVO_API CY_RETURN_STATUS CySetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8 value) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    const UINT16 level = value != 0 ? 1 : 0;
    const int result = usb::requestOut(usb::claimOf(handle), usb::kGpioSet, pin, level, nullptr, 0);
    return result >= 0 ? CY_SUCCESS : usb::failureOf(result);
}

}  // extern "C"
