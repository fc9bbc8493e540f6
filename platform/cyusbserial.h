// The records and functions of the bridge library (libcyusbserial) that we call. Sizes and offsets
// are those of its 64-bit Linux build.
#pragma once

#include <cstddef>
#include <cstring>

#include "tavo/bridgeTypes.h"

struct libusb_device_handle;

enum CY_SPI_PROTOCOL : std::uint32_t { CY_SPI_MOTOROLA = 0, CY_SPI_TI = 1, CY_SPI_NS = 2 };

enum CY_DEVICE_TYPE : std::uint32_t {
    CY_TYPE_DISABLED = 0,
    CY_TYPE_UART = 1,
    CY_TYPE_SPI = 2,
    CY_TYPE_I2C = 3,
    CY_TYPE_JTAG = 4,
    CY_TYPE_MFG = 5,
};

enum CY_DEVICE_CLASS : std::uint32_t {
    CY_CLASS_DISABLED = 0,
    CY_CLASS_CDC = 2,
    CY_CLASS_PHDC = 0x0F,
    CY_CLASS_VENDOR = 0xFF,
};

struct CY_DATA_BUFFER {
    UCHAR* buffer;
    UINT32 length;
    UINT32 transferCount;
};
static_assert(sizeof(CY_DATA_BUFFER) == 16);

struct CY_SPI_CONFIG {
    UINT32 frequency;  // Hz, 1000 to 3000000
    UCHAR dataWidth;   // bits, 4 to 16
    CY_SPI_PROTOCOL protocol;
    BOOL isMsbFirst;
    BOOL isMaster;
    BOOL isContinuousMode;
    BOOL isSelectPrecede;
    BOOL isCpha;
    BOOL isCpol;
};
static_assert(sizeof(CY_SPI_CONFIG) == 20 && offsetof(CY_SPI_CONFIG, protocol) == 8 &&
              offsetof(CY_SPI_CONFIG, isMsbFirst) == 12 && offsetof(CY_SPI_CONFIG, isCpol) == 17);

struct CY_VID_PID {
    UINT16 vid;
    UINT16 pid;
};

inline constexpr std::size_t CY_STRING_DESCRIPTOR_SIZE = 256;
inline constexpr std::size_t CY_MAX_DEVICE_INTERFACE = 5;

struct CY_DEVICE_INFO {
    CY_VID_PID vidPid;
    UCHAR numInterfaces;
    UCHAR manufacturerName[CY_STRING_DESCRIPTOR_SIZE];
    UCHAR productName[CY_STRING_DESCRIPTOR_SIZE];
    UCHAR serialNum[CY_STRING_DESCRIPTOR_SIZE];
    UCHAR deviceFriendlyName[CY_STRING_DESCRIPTOR_SIZE];
    CY_DEVICE_TYPE deviceType[CY_MAX_DEVICE_INTERFACE];
    CY_DEVICE_CLASS deviceClass[CY_MAX_DEVICE_INTERFACE];
};
static_assert(sizeof(CY_DEVICE_INFO) == 1072 && offsetof(CY_DEVICE_INFO, serialNum) == 517 &&
              offsetof(CY_DEVICE_INFO, deviceType) == 1032);

/// What a CY_HANDLE points to starts with these bytes: the bridge library keeps its record
/// byte-packed, with the libusb device handle 31 bytes into it.
inline constexpr std::size_t CY_HANDLE_LIBUSB_OFFSET = 31;

/// The opened device of a handle, for vendor requests that the bridge library has no function for.
inline libusb_device_handle* libusbHandleOf(CY_HANDLE handle) {
    libusb_device_handle* device;  // not aligned inside the record
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the pointer itself is copied
    std::memcpy(&device, static_cast<const unsigned char*>(handle) + CY_HANDLE_LIBUSB_OFFSET, sizeof device);
    return device;
}

extern "C" {

// Counts all USB devices; a device number is an index into that list, good until the next call. Ours keeps the
// number of a device that stays plugged in, and counts the places of those that have gone.
CY_RETURN_STATUS CyGetListofDevices(UINT8* numDevices);
// CY_ERROR_ACCESS_DENIED without permission, CY_ERROR_INVALID_PARAMETER for a bad number,
// CY_ERROR_DEVICE_INFO_FETCH_FAILED otherwise.
CY_RETURN_STATUS CyGetDeviceInfo(UINT8 deviceNumber, CY_DEVICE_INFO* deviceInfo);

// CY_ERROR_ACCESS_DENIED without permission, CY_ERROR_INVALID_PARAMETER for a bad number,
// CY_ERROR_DRIVER_OPEN_FAILED when the interface is not there or somebody else has it. Ours waits up to
// 0.5 s for the claim of another program to end.
CY_RETURN_STATUS CyOpen(UINT8 deviceNumber, UINT8 interfaceNumber, CY_HANDLE* handle);
CY_RETURN_STATUS CyClose(CY_HANDLE handle);

CY_RETURN_STATUS CyGetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config);
CY_RETURN_STATUS CySetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config);
// A null or empty record: that side is absent. timeout in ms, 0 waits without limit.
CY_RETURN_STATUS CySpiReadWrite(CY_HANDLE handle, CY_DATA_BUFFER* readBuffer, CY_DATA_BUFFER* writeBuffer,
                                UINT32 timeout);

// A pin that the part does not have, or that its configuration block does not make a GPIO, is refused:
// CY_ERROR_REQUEST_FAILED, from both. A device that is gone is CY_ERROR_DEVICE_NOT_FOUND. Ours reports a set that
// got no answer as CY_ERROR_IO_TIMEOUT; a get that got none is CY_ERROR_REQUEST_FAILED as well, so only an answer
// for another pin on the same handle tells a missing pin from a bridge that is silent.
CY_RETURN_STATUS CyGetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8* value);
CY_RETURN_STATUS CySetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8 value);

CY_RETURN_STATUS CyProgUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress, UINT32 timeout);
CY_RETURN_STATUS CyReadUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress, UINT32 timeout);

}  // extern "C"
