#include "tavo/Configurator.h"
#include "tavo/bridge.h"

TAVO_STATUS configureScb0(DeviceInfo& deviceInfo, SCB0_MODE mode) {
    return cypressToTavo(Configurator(deviceInfo).configureScb0(mode == SCB0_SPI));
}
