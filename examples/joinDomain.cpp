// Makes the Neuron a member of a domain of one byte: entry 0 of its domain table. Entry 1 and the keys stay.
//
//   joinDomain DEVICE DOMAIN SUBNET NODE      joinDomain serial:00001234 42 1 7
#include <tavo/service/neuron.h>

#include <iostream>

int main(int argc, char** argv) try {
    if (argc != 5) throw tavo::Error(tavo::Problem::BadArgument, "usage: joinDomain DEVICE DOMAIN SUBNET NODE");
    constexpr unsigned char kNotAClone = 0x80;  // ISO/IEC 14908-1
    tavo::Device device = tavo::Device::open(argv[1]);
    const tavo::DomainTable before = tavo::readDomainTable(device);
    tavo::DomainTable wanted = before;
    wanted[0].domainIdLength = 1;
    wanted[0].domainId[0] = static_cast<unsigned char>(std::stoul(argv[2]));
    wanted[0].subnet = static_cast<unsigned char>(std::stoul(argv[3]));
    wanted[0].node = static_cast<unsigned char>(std::stoul(argv[4]) | kNotAClone);
    tavo::writeDomainTable(device, before, wanted);  // returns when it was read back as it was written
    std::cout << "member of domain " << argv[2] << '\n';
    return 0;
} catch (const tavo::Error& error) {
    std::cerr << error.what() << "\nthe device: " << error.state.text() << "\nwhat next:  " << error.hint << '\n';
    return 1;
} catch (const std::logic_error& error) {  // of std::stoul
    std::cerr << "DOMAIN, SUBNET and NODE are numbers\n";
    return 1;
}
