// Gives an interface another serial number. The configuration block that was there is kept in a file first.
//
//   setSerial DEVICE SERIAL BACKUP.bin
#include <tavo/service/configuration.h>

#include <iostream>

int main(int argc, char** argv) try {
    if (argc != 4) throw tavo::Error(tavo::Problem::BadArgument, "usage: setSerial DEVICE SERIAL BACKUP.bin");
    tavo::Device device = tavo::Device::open(argv[1]);
    const tavo::ConfigurationPlan plan = tavo::planSerialNumber(device, argv[2]);  // nothing is written yet
    if (!plan.changesAnything()) {
        std::cout << "the block has that serial number already\n";
        return 0;
    }
    for (const tavo::ByteChange& change : tavo::compareConfiguration(plan.before, plan.after)) {
        std::cout << "offset " << change.offset << ": " << +change.before << " -> " << +change.after << '\n';
    }
    tavo::saveConfiguration(argv[3], plan.before, /*replace=*/false);
    writeConfiguration(device, plan, {});  // and reads it back
    std::cout << "written; unplug and replug to apply\n";
    return 0;
} catch (const tavo::Error& error) {
    std::cerr << error.what() << "\nthe device: " << error.state.text() << "\nwhat next:  " << error.hint << '\n';
    return 1;
}
