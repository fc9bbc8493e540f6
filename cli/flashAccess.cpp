#include "cli/flashAccess.h"

#include <Poco/Thread.h>

#include <cstdio>

#include "cli/image.h"
#include "common/neuronPins.h"
#include "platform/cyusbserial.h"
#include "tavo/Configurator.h"
#include "tavo/SpiNand.h"

namespace cli {
namespace {

constexpr long kSettle = 100;       // ms from the reset of the Neuron to the first transfer
constexpr UINT32 kTimeout = 10000;  // ms
constexpr UCHAR kReadJedecId = 0x9F;

struct Maker {
    std::uint8_t id;
    const char* name;
};
// JEDEC JEP106, first bank, makers of serial NOR flash.
constexpr Maker kMakers[] = {{0x01, "Spansion"}, {0x1C, "Eon"},       {0x1F, "Adesto"},   {0x20, "Micron"},
                             {0x37, "AMIC"},     {0x62, "ON Semi"},   {0x85, "Puya"},     {0x8C, "ESMT"},
                             {0x9D, "ISSI"},     {0xBF, "Microchip"}, {0xC2, "Macronix"}, {0xC8, "GigaDevice"},
                             {0xEF, "Winbond"}};

struct EraseTime {
    std::uint32_t upTo;
    const char* text;
};
// Typical to longest whole-chip erase over the data sheets of common parts.
constexpr EraseTime kEraseTimes[] = {{128U << 10, "usually under 3 s"}, {512U << 10, "usually 1 to 6 s"},
                                     {1U << 20, "usually 2 to 12 s"},   {2U << 20, "usually 3 to 25 s"},
                                     {4U << 20, "usually 10 to 50 s"},  {8U << 20, "usually 20 to 100 s"},
                                     {16U << 20, "usually 40 to 200 s"}};

CY_RETURN_STATUS readId(const CyHandle& handle, FlashChip& chip) {
    UCHAR out[4] = {kReadJedecId};
    UCHAR in[4] = {};
    CY_DATA_BUFFER write{out, sizeof out, 0};
    CY_DATA_BUFFER read{in, sizeof in, 0};
    const CY_RETURN_STATUS status = CySpiReadWrite(handle.handle, &read, &write, kTimeout);
    if (status != CY_SUCCESS) return status;
    chip.maker = in[1];
    chip.memoryType = in[2];
    chip.capacityCode = in[3];
    return CY_SUCCESS;
}

TAVO_STATUS lookAt(DeviceInfo& device, FlashChip& chip, const char*& step) {
    step = "make SCB0 an SPI master";
    Configurator configurator(device);
    if (const auto status = configurator.setupSpi(true); status != CY_SUCCESS) return cypressToTavo(status);
    step = "hold the Neuron in reset";
    GPIO gpio(device);
    const IOPin reset(gpio, kNeuronResetPin, IOPin::HIGH);
    if (const auto status = reset.set(IOPin::LOW); status != CY_SUCCESS) return cypressToTavo(status);
    Poco::Thread::sleep(kSettle);
    step = "open the flash interface";
    const CyHandle handle(device.scb0DeviceNumber, device.scb0InterfaceNumber);
    if (handle.openStatus != CY_SUCCESS) return cypressToTavo(handle.openStatus);
    step = "read the flash ID";
    if (const auto status = readId(handle, chip); status != CY_SUCCESS) return cypressToTavo(status);
    step = "tell the flash size by the ID";
    return cypressToTavo(SpiNand(handle).getFlashSize(chip.size));
}

std::string idText(const FlashChip& chip) {
    char text[16];
    std::snprintf(text, sizeof text, "%02X %02X %02X", chip.maker, chip.memoryType, chip.capacityCode);
    return text;
}

bool isAbsent(const FlashChip& chip) {
    const auto all = [&](unsigned value) {
        return chip.maker == value && chip.memoryType == value && chip.capacityCode == value;
    };
    return all(0xFF) || all(0x00);
}

}  // namespace

FlashChip inspectFlash(Session& session) {
    FlashChip chip;
    const char* step = "";
    const TAVO_STATUS status = session.tryCall("look at the flash", [&] { return lookAt(session.info(), chip, step); });
    if (isAbsent(chip) && (status == TAVO_SUCCESS || chip.maker == 0xFF)) {
        throw Failure{Exit::FailedUnchanged,
                      "no flash answers at " + session.deviceName() + " (ID " + idText(chip) + ")",
                      "check the flash and its wiring; tavo-util doctor tells more",
                      {}};
    }
    if (status != TAVO_SUCCESS) {
        const std::string id = chip.maker == 0 ? "" : " " + idText(chip);
        throw libraryFailure(status, Side::Bridge, step + id + " on " + session.deviceName());
    }
    session.log.write(Detail::Step, "flash: " + chipText(chip));
    return chip;
}

void requireAddressable(const FlashChip& chip) {
    if (chip.size <= kAddressable) return;
    throw Failure{
        Exit::FailedUnchanged,
        "the flash says it holds " + sizeText(chip.size) + " (ID " + idText(chip) + "); 24 address bits reach 16 MiB",
        "a smaller chip is expected here: is the ID read well? tavo-util doctor",
        {}};
}

std::string makerName(std::uint8_t maker) {
    for (const auto& row : kMakers) {
        if (row.id == maker) return row.name;
    }
    return "";
}

std::string chipText(const FlashChip& chip) {
    const std::string name = makerName(chip.maker);
    return (name.empty() ? "unknown maker" : name) + ", ID " + idText(chip) + ", " + sizeText(chip.size);
}

std::string usualEraseTime(std::uint32_t size) {
    for (const auto& row : kEraseTimes) {
        if (size <= row.upTo) return row.text;
    }
    return "may take minutes";
}

}  // namespace cli
