#include "flash/flashAccess.h"
#include "tavo/SpiNand.h"
#include "tavo/flash.h"

namespace {

constexpr long kSettleMs = 50;

}  // namespace

TAVO_STATUS eraseSpiFlash(DeviceInfo& deviceInfo) {
    FlashAccess access(deviceInfo);
    if (const auto result = access.take(kSettleMs); result != CY_SUCCESS) return cypressToTavo(result);

    const SpiNand flash(access.pinHandle());
    if (const auto result = flash.disableWriteProtection(); result != CY_SUCCESS) return cypressToTavo(result);
    return cypressToTavo(flash.erase());
}
