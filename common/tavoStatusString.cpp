#include <array>

#include "tavo/status.h"

namespace {

constexpr std::array<const char*, 31> kMessages = {
    "success",
    "wrong combination of usb device vid/pid",
    "file not found",
    "HEX file format error",
    "FLASH programming failed",
    "wrong size of Cypress config file",
    "feature unsupported on this OS",
    "transaction failed",
    "access denied",
    "driver init failed",
    "device info fetch failed",
    "opening device failed",
    "invalid parameter",
    "request failed",
    "download failed",
    "invalid signature",
    "invalid firmware",
    "device not found",
    "timeout",
    "pipe halted",
    "buffer overflow",
    "invalid handle",
    "memory alloc failed",
    "device busy",
    "device does not acknowledge",
    "arbitration error",
    "i2c error",
    "i2c bus busy",
    "i2c stop bit set",
    "monitor exists",
    "Wrong file extension. Cypress Configs have the file extension .bin",
};
static_assert(kMessages.size() == TAVO_WRONG_FILE_EXTENSION + 1, "one message a status");

}  // namespace

const char* tavoStatusString(TAVO_STATUS status) {
    if (status >= kMessages.size()) return "unknown error";
    return kMessages[status];
}
