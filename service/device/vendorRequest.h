// Vendor requests without data, for which the bridge library has no function.
#pragma once

#include "tavo/deviceAccess.h"
#include "tavo/status.h"

namespace tavo {

/// At most 1 s. @return what libusb returned: 0, or a LIBUSB_ERROR
int sendVendorRequest(const CyHandle& handle, unsigned char code, unsigned short value, unsigned short index);
TAVO_STATUS vendorRequestStatus(int result);

}  // namespace tavo
