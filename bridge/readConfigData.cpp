#include "tavo/Configurator.h"
#include "tavo/bridge.h"

TAVO_STATUS readConfigData(DeviceInfo& deviceInfo, unsigned char (&data)[512]) {
    return cypressToTavo(Configurator(deviceInfo).readConfigData(data));
}
