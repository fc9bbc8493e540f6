// The bridge's vendor requests on endpoint 0, as far as the functions here use them.
#pragma once

#include "platform/usb/bus.h"

namespace usb {

enum Request : UINT8 {
    kSpiGetConfig = 0xC2,
    kSpiSetConfig = 0xC3,
    kSpiTransfer = 0xCA,  // wValue bit 0 read, bit 1 write, bit 15 block; wIndex length
    kSpiReset = 0xCB,
    kSpiStatus = 0xCC,  // four bytes, all zero when idle
    kGpioGet = 0xDA,
    kGpioSet = 0xDB,
    kUserFlashProgram = 0xE0,
    kUserFlashRead = 0xE1,
};

inline constexpr UINT32 kRequestTimeout = 5000;     // ms
inline constexpr UINT32 kMaxTransferSize = 0xFFFF;  // lengths and addresses travel in 16-bit fields

/// Device-to-host and host-to-device requests, recipient device. The result is libusb's: a count or an error.
int requestIn(const Claim& claim, Request request, UINT16 value, UINT16 index, UCHAR* data, UINT32 length,
              UINT32 timeout = kRequestTimeout);
int requestOut(const Claim& claim, Request request, UINT16 value, UINT16 index, UCHAR* data, UINT32 length,
               UINT32 timeout = kRequestTimeout);

/// The status of a request that did not do what it should. A device that is gone is reported as such
/// by every function, where the bridge library mostly says "request failed": it is what a user can act on.
CY_RETURN_STATUS failureOf(int result);
/// Same, with a timeout that is only a failed request.
CY_RETURN_STATUS failureWithoutTimeout(int result);

}  // namespace usb
