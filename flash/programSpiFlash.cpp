#include <Poco/Thread.h>

#include "flash/flashAccess.h"
#include "flash/writeImage.h"
#include "tavo/SpiNand.h"
#include "tavo/flash.h"

namespace {

constexpr long kSettleMs = 100;
constexpr long kBootMs = 1500;  // the Neuron starts its new firmware

TAVO_STATUS program(DeviceInfo& deviceInfo, const char* path, void (*progress)(char)) {
    FlashAccess access(deviceInfo);
    if (const auto result = access.take(kSettleMs); result != CY_SUCCESS) return cypressToTavo(result);
    const CyHandle scb0(deviceInfo.scb0DeviceNumber, deviceInfo.scb0InterfaceNumber);
    if (scb0.openStatus != CY_SUCCESS) return cypressToTavo(scb0.openStatus);

    SpiNand flash(scb0);
    if (const auto result = flash.disableWriteProtection(); result != CY_SUCCESS) return cypressToTavo(result);
    if (const auto result = flash.erase(); result != CY_SUCCESS) return cypressToTavo(result);
    return writeImage(flash, path, progress);
}

}  // namespace

TAVO_STATUS programSpiFlash(DeviceInfo& deviceInfo, const char* path, void (*progress)(char)) {
    const TAVO_STATUS result = program(deviceInfo, path, progress);
    if (result == TAVO_SUCCESS) Poco::Thread::sleep(kBootMs);  // everything has been released
    return result;
}
