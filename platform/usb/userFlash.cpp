#include "platform/usb/request.h"
#include "tavo/export.h"

namespace {

using SendRequest = decltype(usb::requestIn);

CY_RETURN_STATUS transferUserFlash(SendRequest* send, usb::Request request, CY_HANDLE handle, CY_DATA_BUFFER* buffer,
                                   UINT32 address, UINT32 timeout) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    if (buffer == nullptr || buffer->buffer == nullptr || buffer->length == 0) return CY_ERROR_INVALID_PARAMETER;
    // Cut to 16 bits they would reach another place than the one meant.
    if (buffer->length > usb::kMaxTransferSize || address > 0xFFFF) return CY_ERROR_INVALID_PARAMETER;
    const int result =
        send(usb::claimOf(handle), request, 0, static_cast<UINT16>(address), buffer->buffer, buffer->length, timeout);
    buffer->transferCount = result > 0 ? static_cast<UINT32>(result) : 0;
    return result > 0 ? CY_SUCCESS : usb::failureOf(result);
}

}  // namespace

extern "C" {

TAVO_API CY_RETURN_STATUS CyProgUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                          UINT32 timeout) {
    return transferUserFlash(usb::requestOut, usb::kUserFlashProgram, handle, buffer, flashAddress, timeout);
}

TAVO_API CY_RETURN_STATUS CyReadUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                          UINT32 timeout) {
    return transferUserFlash(usb::requestIn, usb::kUserFlashRead, handle, buffer, flashAddress, timeout);
}

}  // extern "C"
