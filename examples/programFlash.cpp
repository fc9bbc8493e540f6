// Programs the first attached interface from an Intel HEX file.
//
//   programFlash FILE.hex                     on a device
//   tavo-sim board -- programFlash FILE.hex   on a simulated interface kept in the folder board
#include <tavo/platform/discovery.h>
#include <tavo/tavo.h>

#include <iostream>
#include <vector>

namespace {

void showProgress(char percent) {
    std::cerr << '\r' << int{percent} << " %" << std::flush;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " FILE.hex\n";
        return 2;
    }
    std::vector<platform::AttachedDevice> devices;
    if (platform::discoverDevices(devices) != CY_SUCCESS || devices.empty()) {
        std::cerr << "no interface is attached\n";
        return 3;
    }
    DeviceInfo& device = devices.front().info;
    std::cerr << "programming " << device.serialNumber.text << " at " << device.portPath << '\n';
    // The chip is erased before the file is opened: a host program checks the file first.
    const TAVO_STATUS status = programSpiFlash(device, argv[1], showProgress);
    std::cerr << '\n';
    std::cout << tavoStatusString(status) << '\n';
    return status == TAVO_SUCCESS ? 0 : 1;
}
