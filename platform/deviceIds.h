// The USB IDs of interfaces this product serves. The udev rule is generated from the same list.
#pragma once

#include <cstdint>

#include "tavo/export.h"

/// Calls X(vendorId, productId, what) for every expected combination.
#define TAVO_DEVICE_IDS(X)                                    \
    X(0x04B4, 0x0004, "CY7C65211, block 0 SPI or I2C")        \
    X(0x04B4, 0x0009, "CY7C65215, block 0 SPI or I2C, 1 CDC") \
    X(0x04B4, 0x000A, "CY7C65215, both blocks SPI or I2C")

namespace platform {

/// Accepts one more combination for the rest of the process (`tavo-util --usb-id`).
TAVO_API void allowDeviceId(std::uint16_t vendorId, std::uint16_t productId);

/// True for an interface that this product serves.
TAVO_API bool isDeviceIdExpected(std::uint16_t vendorId, std::uint16_t productId);

}  // namespace platform
