#include <Poco/Thread.h>

#include <cstdio>
#include <fstream>

#include "flash/flashAccess.h"
#include "tavo/SpiNand.h"
#include "tavo/flash.h"
#include "tavo/hexFileWriter.h"

namespace {

constexpr long kSettleMs = 100;
constexpr long kBootMs = 1500;          // the Neuron starts again
constexpr unsigned char kChunk = 0xFF;  // the largest byte count of a record

char percentOf(unsigned int address, unsigned int lastAddress) {
    if (lastAddress == 0) return 100;  // a chip of one byte: its only chunk is all of it
    return static_cast<char>(static_cast<double>(address) / lastAddress * 100.0);
}

TAVO_STATUS dumpChunks(SpiNand& flash, std::ofstream& file, unsigned int size, void (*progress)(char)) {
    const unsigned int lastAddress = size - 1;
    for (unsigned int address = 0; address <= lastAddress; address += kChunk) {
        HandleAddressOverflow(&file, address);
        const auto result = WriteSPIFlashDataToHexFile(&file, flash, kChunk, address, lastAddress);
        if (result != CY_SUCCESS) return cypressToTavo(result);
        if (!file) return TAVO_REQUEST_FAILED;  // a full disk, say: the rest would be lost too
        if (progress != nullptr) progress(percentOf(address, lastAddress));
    }
    setEofHexFile(&file);
    return file ? TAVO_SUCCESS : TAVO_REQUEST_FAILED;
}

TAVO_STATUS dump(DeviceInfo& deviceInfo, const char* path, void (*progress)(char)) {
    FlashAccess access(deviceInfo);
    if (const auto result = access.take(kSettleMs); result != CY_SUCCESS) return cypressToTavo(result);
    // A failed open comes back from getFlashSize.
    const CyHandle scb0(deviceInfo.scb0DeviceNumber, deviceInfo.scb0InterfaceNumber);
    SpiNand flash(scb0);

    g_extAddress = 0;
    unsigned int size = 0;
    if (const auto result = flash.getFlashSize(size); result != CY_SUCCESS) return cypressToTavo(result);
    std::printf("FlashSize: %d Bytes\n", static_cast<int>(size));  // signed: 2 GiB shows as negative

    std::ofstream file(path);
    if (!file.is_open()) return TAVO_FILE_NOT_FOUND;
    return dumpChunks(flash, file, size, progress);
}

}  // namespace

TAVO_STATUS readSpiFlash(DeviceInfo& deviceInfo, const char* path, void (*progress)(char)) {
    const TAVO_STATUS result = dump(deviceInfo, path, progress);
    if (result == TAVO_SUCCESS) Poco::Thread::sleep(kBootMs);  // everything has been released
    return result;
}
