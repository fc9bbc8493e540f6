#include "tavo/bridge.h"

// The bridge leaves the bus when it is restarted and comes back with another device number: here a
// person unplugs it.

TAVO_STATUS resetCypress(const DeviceInfo&) {
    return TAVO_UNSUPPORTED_ON_OS;
}

TAVO_STATUS cyclePort(const DeviceInfo&) {
    return TAVO_UNSUPPORTED_ON_OS;
}
