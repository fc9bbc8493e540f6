#include "tavo/cyboot.h"

#include <libusb.h>

#include <climits>
#include <cstring>

#include "bridge/configBlock.h"
#include "platform/cyusbserial.h"

namespace {

// bmRequestType (USB 2.0, 9.3): a vendor request to the device itself
constexpr unsigned char kIn = 0xC0;
constexpr unsigned char kOut = 0x40;

constexpr unsigned int kTimeout = 5000;      // ms
constexpr UINT32 kLongestTransfer = 0xFFFF;  // wLength has 16 bits

/// One vendor request and what counts as its success.
struct Request {
    unsigned char type;
    unsigned char code;
    UINT16 value;
    UINT16 index;
    UINT16 length;
    int least;  // result of libusb_control_transfer, from least to most
    int most;
    CY_RETURN_STATUS timedOut;
};

constexpr int kBlock = configBlock::kSize;

// Access values of configuration-flash mode: fixed pairs that the bridge compares.
constexpr Request kEnterConfig{kOut, 0xE2, 0x5C3E, 0x82D4, 0, 0, INT_MAX, CY_ERROR_IO_TIMEOUT};
constexpr Request kLeaveConfig{kOut, 0xE2, 0x5C37, 0x8BD1, 0, 0, INT_MAX, CY_ERROR_IO_TIMEOUT};
constexpr Request kSiliconId{kIn, 0xB1, 0, 0, sizeof(UINT32), 0, INT_MAX, CY_ERROR_IO_TIMEOUT};
// value, index and length: of the caller's CY_FLASH_BUFFER
constexpr Request kReadFlash{kIn, 0xB2, 0, 0, 0, 1, INT_MAX, CY_ERROR_IO_TIMEOUT};
constexpr Request kProgFlash{kOut, 0xB3, 0, 0, 0, 1, INT_MAX, CY_ERROR_IO_TIMEOUT};
// Half a block is worth nothing: the whole of it, or a failure.
constexpr Request kReadConfig{kIn, 0xB5, 0, 0, kBlock, kBlock, kBlock, CY_ERROR_REQUEST_FAILED};
constexpr Request kWriteConfig{kOut, 0xB6, 0, 0, kBlock, kBlock, kBlock, CY_ERROR_REQUEST_FAILED};
constexpr Request kValidateChecksum{kOut, 0xBA, 0, 0, 0, 0, INT_MAX, CY_ERROR_REQUEST_FAILED};

/// @param transferred  may be null; the byte count, 0 after a failure.
CY_RETURN_STATUS send(CY_HANDLE handle, const Request& request, UCHAR* data, unsigned int timeout = kTimeout,
                      UINT32* transferred = nullptr) {
    const int result = libusb_control_transfer(libusbHandleOf(handle), request.type, request.code, request.value,
                                               request.index, data, request.length, timeout);
    const bool succeeded = result >= request.least && result <= request.most;
    if (transferred != nullptr) *transferred = succeeded ? static_cast<UINT32>(result) : 0;
    if (succeeded) return CY_SUCCESS;
    return result == LIBUSB_ERROR_TIMEOUT ? request.timedOut : CY_ERROR_REQUEST_FAILED;
}

CY_RETURN_STATUS sendBlock(CY_HANDLE handle, const Request& request, UCHAR* data) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    if (data == nullptr) return CY_ERROR_INVALID_PARAMETER;
    return send(handle, request, data);
}

CY_RETURN_STATUS sendFlash(CY_HANDLE handle, Request request, CY_FLASH_BUFFER* flash, UINT32 timeout) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    if (flash == nullptr || flash->buffer == nullptr) return CY_ERROR_INVALID_PARAMETER;
    if (flash->length == 0 || flash->length > kLongestTransfer) return CY_ERROR_INVALID_PARAMETER;
    request.value = static_cast<UINT16>(flash->address >> 16);
    request.index = static_cast<UINT16>(flash->address);
    request.length = static_cast<UINT16>(flash->length);
    return send(handle, request, flash->buffer, timeout, &flash->transferCount);
}

}  // namespace

CY_RETURN_STATUS CyFlashConfigEnable(CY_HANDLE handle, BOOL enable) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    unsigned char byte;  // a caller in C may pass a byte that is neither 0 nor 1
    std::memcpy(&byte, &enable, sizeof byte);
    return send(handle, byte != 0 ? kEnterConfig : kLeaveConfig, nullptr);
}

CY_RETURN_STATUS CyReadDeviceConfig(CY_HANDLE handle, UCHAR* deviceConfig) {
    return sendBlock(handle, kReadConfig, deviceConfig);
}

CY_RETURN_STATUS CyWriteDeviceConfig(CY_HANDLE handle, UCHAR* deviceConfig) {
    return sendBlock(handle, kWriteConfig, deviceConfig);
}

CY_RETURN_STATUS CyGetSiliconID(CY_HANDLE handle, UINT32* siliconId) {
    return sendBlock(handle, kSiliconId, reinterpret_cast<UCHAR*>(siliconId));
}

CY_RETURN_STATUS CyReadFlash(CY_HANDLE handle, CY_FLASH_BUFFER* flashBuffer, UINT32 timeout) {
    return sendFlash(handle, kReadFlash, flashBuffer, timeout);
}

CY_RETURN_STATUS CyProgFlash(CY_HANDLE handle, CY_FLASH_BUFFER* flashBuffer, UINT32 timeout) {
    return sendFlash(handle, kProgFlash, flashBuffer, timeout);
}

CY_RETURN_STATUS CyValidateChecksum(CY_HANDLE handle) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    return send(handle, kValidateChecksum, nullptr);
}
