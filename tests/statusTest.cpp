#include "tavo/status.h"

#include <gtest/gtest.h>

#include <cstring>

// The messages are a contract: programs compare and people search them.
TEST(Status, EveryCodeHasItsMessageAndUnknownCodesHaveOne) {
    const char* const expected[] = {
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
    for (std::uint32_t code = 0; code < std::size(expected); ++code) {
        EXPECT_STREQ(tavoStatusString(static_cast<TAVO_STATUS>(code)), expected[code]) << code;
    }
    for (const std::uint32_t code : {31u, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        EXPECT_STREQ(tavoStatusString(static_cast<TAVO_STATUS>(code)), "unknown error") << code;
    }
}

TEST(Status, BridgeStatusesMoveUpBySevenAndUnknownOnesAreTold) {
    EXPECT_EQ(cypressToTavo(CY_SUCCESS), TAVO_SUCCESS);
    for (std::uint32_t status = 1; status <= 22; ++status) {
        EXPECT_EQ(cypressToTavo(static_cast<CY_RETURN_STATUS>(status)), status + 7);
    }
    for (const std::uint32_t status : {23u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(cypressToTavo(static_cast<CY_RETURN_STATUS>(status)), TAVO_UNKNOWN_ERROR);
    }
}
