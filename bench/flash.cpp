// The flash operations on the simulated interface without waits: CPU alone, or exact traffic.
//   program DIR SIZE FILE.hex    dump DIR SIZE OUT.hex    count
// The chip's content is DIR/flash.bin.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "sim/rig.h"
#include "tavo/Configurator.h"
#include "tavo/SpiNand.h"
#include "tavo/flash.h"
#include "tavo/hexFileWriter.h"

namespace {

struct Traffic {
    std::uint64_t bytes, transfers, sleeps;
    Traffic operator-(const Traffic& before) const {
        return {bytes - before.bytes, transfers - before.transfers, sleeps - before.sleeps};
    }
};

Traffic traffic() {
    const auto& rig = sim::rig();
    return {rig.spiBytes, rig.spiTransfers, rig.calls("sleep")};
}

void setScene(const std::string& folder, std::uint32_t size, unsigned busyPolls) {
    sim::Options options;
    options.folder = folder;
    options.flashSize = size;
    options.pace = sim::Pace::Fast;
    options.busyPolls = busyPolls;
    sim::rig().keepJournal = false;
    sim::rig().reset(options);
}

std::string hexFile(std::uint32_t size) {
    const auto path = std::filesystem::temp_directory_path() / "tavo-bench.hex";
    std::ofstream file(path);
    unsigned char data[16] = {};
    g_extAddress = 0;
    for (std::uint32_t address = 0; address < size; address += sizeof data) {
        data[0] = static_cast<unsigned char>(address >> 8);
        HandleAddressOverflow(&file, address);
        writeToHexFile(&file, data, sizeof data, getLowBytes(address), HEX_DATA);
    }
    setEofHexFile(&file);
    return path;
}

bool holds(const char* what, std::uint64_t value, std::uint64_t expected) {
    const bool equal = value == expected;
    std::printf("%-60s %12llu  %s\n", what, static_cast<unsigned long long>(value), equal ? "exact" : "WRONG");
    return equal;
}

bool countPage() {
    setScene("", 1 << 20, 1);
    DeviceInfo device;
    Configurator configurator(device);
    GPIO gpio(device);
    const IOPin reset(gpio, 8, IOPin::HIGH);
    const CyHandle scb0(0, 0);
    SpiNand flash(scb0);
    unsigned char page[260] = {}, readBack[260];
    bool done = configurator.setupSpi(true) == CY_SUCCESS && reset.set(IOPin::LOW) == CY_SUCCESS;
    const Traffic before = traffic();
    done &= flash.writePage(0, page, readBack, 256) == CY_SUCCESS;
    const Traffic page1 = traffic() - before;
    done &= holds("page, busy for one poll: bytes", page1.bytes, 527);
    done &= holds("page, busy for one poll: transfers", page1.transfers, 6);
    return done & holds("page, busy for one poll: sleeps of 1 ms", page1.sleeps, 1);
}

bool countProgram() {
    setScene("", 1 << 20, 1);
    DeviceInfo device;
    const std::string file = hexFile(1 << 20);
    bool done = eraseSpiFlash(device) == TAVO_SUCCESS;
    const Traffic erase = traffic();
    done &= programSpiFlash(device, file.c_str(), nullptr) == TAVO_SUCCESS;
    std::filesystem::remove(file);
    return done & holds("1 MiB image, erase left out: bytes", (traffic() - erase - erase).bytes, 2158592);
}

bool countDump() {
    setScene("", 1 << 24, 0);
    DeviceInfo device;
    constexpr std::uint64_t kJedecId = 4;
    const bool done = readSpiFlash(device, "/dev/null", nullptr) == TAVO_SUCCESS;
    return done & holds("16 MiB dump, JEDEC ID left out: bytes", traffic().bytes - kJedecId, 17171980);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "count") == 0)
        return static_cast<int>(!countPage() | !countProgram() | !countDump());
    if (argc != 5) return 2;
    setScene(argv[2], static_cast<std::uint32_t>(std::stoul(argv[3])), 0);
    DeviceInfo device;
    const bool program = std::strcmp(argv[1], "program") == 0;
    const TAVO_STATUS result =
        program ? programSpiFlash(device, argv[4], nullptr) : readSpiFlash(device, argv[4], nullptr);
    for (const auto& violation : sim::rig().violations()) std::fprintf(stderr, "%s\n", violation.c_str());
    return result == TAVO_SUCCESS && sim::rig().violations().empty() ? 0 : 1;
}
