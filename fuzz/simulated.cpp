#include "fuzz/simulated.h"

#include <Poco/Thread.h>

void Poco::ThreadImpl::sleepImpl(long milliseconds) {
    sim::rig().sleep(milliseconds);
}

namespace fuzz {

sim::Rig& freshRig() {
    sim::Options options;
    options.pace = sim::Pace::Virtual;
    options.flashSize = sim::kSmallestFlash;
    sim::Rig& rig = sim::rig();
    rig.keepJournal = false;
    rig.reset(options);
    return rig;
}

DeviceInfo deviceInfo() {
    DeviceInfo info;
    info.scb0DeviceNumber = info.configDeviceNumber = 0;
    info.scb0InterfaceNumber = 0;
    info.configInterfaceNumber = 1;
    info.serialNumber = "00001234";
    info.serialNumberValid = 1;
    info.vendorId = 0x04B4;
    info.productId = 0x0004;
    return info;
}

}  // namespace fuzz
