#include "service/device/spiReset.h"

#include <libusb.h>

#include "platform/cyusbserial.h"
#include "service/device/vendorRequest.h"

namespace tavo {
namespace {

constexpr unsigned char kSpiReset = 0xCB;
constexpr unsigned short kSecondBlock = 0x8000;  // bit 15 of wValue: the bridge's other serial block

bool operator==(const CY_SPI_CONFIG& a, const CY_SPI_CONFIG& b) {
    return a.frequency == b.frequency && a.dataWidth == b.dataWidth && a.protocol == b.protocol &&
           a.isMsbFirst == b.isMsbFirst && a.isMaster == b.isMaster && a.isContinuousMode == b.isContinuousMode &&
           a.isSelectPrecede == b.isSelectPrecede && a.isCpha == b.isCpha && a.isCpol == b.isCpol;
}

}  // namespace

TAVO_STATUS endUnfinishedTransfer(const DeviceInfo& info, std::string& text) {
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    if (scb0.openStatus != CY_SUCCESS) return cypressToTavo(scb0.openStatus);
    CY_SPI_CONFIG before{};
    const bool known = CyGetSpiConfig(scb0.handle, &before) == CY_SUCCESS;
    // Nobody knows whether the reset takes the setting with it.
    const int result = sendVendorRequest(scb0, kSpiReset, info.scb0InterfaceNumber == 0 ? 0 : kSecondBlock, 0);
    if (result == LIBUSB_ERROR_PIPE) text = "the bridge takes no reset of its SPI block";
    if (result < 0) return result == LIBUSB_ERROR_PIPE ? TAVO_SUCCESS : vendorRequestStatus(result);
    CY_SPI_CONFIG after{};
    if (!known || CyGetSpiConfig(scb0.handle, &after) != CY_SUCCESS || after == before) return TAVO_SUCCESS;
    text += "; its setting had changed and was put back";
    return cypressToTavo(CySetSpiConfig(scb0.handle, &before));
}

}  // namespace tavo
