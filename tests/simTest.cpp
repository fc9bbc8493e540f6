// The simulated interface behaves like the parts it stands for.
#include <libusb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "platform/cyusbserial.h"
#include "platform/ldv.h"
#include "platform/portPath.h"
#include "sim/options.h"
#include "tests/rigTest.h"

namespace fs = std::filesystem;
using sim::Bridge;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes header(std::uint8_t opcode, unsigned address, const Bytes& data) {
    Bytes bytes(4 + data.size());
    bytes[0] = opcode;
    bytes[1] = static_cast<std::uint8_t>(address >> 16);
    bytes[2] = static_cast<std::uint8_t>(address >> 8);
    bytes[3] = static_cast<std::uint8_t>(address);
    std::copy(data.begin(), data.end(), bytes.begin() + 4);
    return bytes;
}

// The chip alone, 64 KiB.
class FlashChipTest : public testing::Test {
protected:
    Bytes send(const Bytes& out) {
        Bytes in(out.size());
        chip.transfer(out.data(), in.data(), out.size());
        return in;
    }
    std::uint8_t status() { return send({0x05, 0})[1]; }
    void write(const Bytes& out) {
        send({0x06});
        send(out);
        clock.skip(3'000'000);
    }
    Bytes read(unsigned address, std::size_t count) {
        Bytes in = send(header(0x03, address, Bytes(count)));
        return {in.begin() + 4, in.end()};
    }

    Bytes cells = Bytes(65536, 0xFF);
    std::vector<std::string> violations;
    sim::Clock clock{sim::Pace::Virtual};
    sim::FlashChip chip{cells, 16, 0, clock, violations};
};

TEST_F(FlashChipTest, AnswersItsIdAndNothingToUnknownCommands) {
    EXPECT_EQ(send({0x9F, 0, 0, 0}), (Bytes{0xFF, 0xEF, 0x40, 16}));
    EXPECT_EQ(send({0xAB, 0, 0}), (Bytes{0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(status(), 0x00);
    EXPECT_THAT(violations, IsEmpty());
}

TEST_F(FlashChipTest, EachWritingCommandNeedsItsOwnWriteEnable) {
    const Bytes commands[] = {header(0x02, 0, {0x00}), {0xC7}, {0x01, 0x1C}, header(0x20, 0, {}), header(0xD8, 0, {})};
    cells[0] = 0x55;
    for (const Bytes& command : commands) send(command);
    EXPECT_EQ(cells[0], 0x55);
    EXPECT_EQ(status(), 0x00);
    EXPECT_EQ(violations.size(), std::size(commands));

    send({0x06});
    EXPECT_EQ(status(), sim::FlashChip::kWriteEnabled);
    write(header(0x02, 0, {0x11}));
    EXPECT_EQ(cells[0], 0x11);
    EXPECT_EQ(status(), 0x00) << "the latch falls with the write";
}

TEST_F(FlashChipTest, ProgrammingClearsBitsAndWrapsInsideItsPage) {
    write(header(0x02, 0x01FE, {0xF0, 0xF1, 0xF2}));
    EXPECT_EQ(read(0x01FE, 3), (Bytes{0xF0, 0xF1, 0xFF}));
    EXPECT_EQ(read(0x0100, 1), (Bytes{0xF2}));
    EXPECT_THAT(violations, IsEmpty());
    write(header(0x02, 0x01FE, {0x0F}));
    EXPECT_EQ(read(0x01FE, 1), (Bytes{0x00}));
    EXPECT_THAT(violations, ElementsAre("Page Program at 0x0001FE over bytes that are not erased"));
}

TEST_F(FlashChipTest, KeepsTheLast256BytesOfALongerProgram) {
    Bytes data(258, 0x00);
    data[256] = 0x56;
    data[257] = 0x57;
    data[2] = 0x22;
    write(header(0x02, 0x0400, data));
    EXPECT_EQ(read(0x0400, 4), (Bytes{0x56, 0x57, 0x22, 0x00}));
    EXPECT_EQ(read(0x0500, 1), (Bytes{0xFF}));
}

TEST_F(FlashChipTest, ReadsWrapAtTheEndAndIgnoreHighAddressBits) {
    cells[0xFFFF] = 0xAA;
    cells[0] = 0xBB;
    EXPECT_EQ(read(0xFFFF, 2), (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(read(0x12FFFF, 1), (Bytes{0xAA}));
    EXPECT_EQ(read(0, 65538)[65536], 0xBB);
}

TEST_F(FlashChipTest, IsBusyForItsTimeAndIgnoresAllButReadStatus) {
    send({0x06});
    send(header(0x02, 0, {0x00}));
    EXPECT_EQ(status(), sim::FlashChip::kBusy | sim::FlashChip::kWriteEnabled);
    EXPECT_EQ(send({0x9F, 0}), (Bytes{0xFF, 0xFF}));
    send({0x06});
    EXPECT_THAT(violations,
                ElementsAre("command 0x9F while the flash is busy", "command 0x06 while the flash is busy"));
    clock.skip(699);
    EXPECT_TRUE(chip.isBusy());
    clock.skip(1);
    EXPECT_EQ(status(), 0x00);
}

TEST_F(FlashChipTest, StaysBusyForTheNumberOfStatusReadsAskedFor) {
    chip.busyPolls = 2;
    write({0xC7});
    EXPECT_EQ(status() & 1, 1);
    EXPECT_EQ(status() & 1, 1);
    EXPECT_EQ(status() & 1, 0);
}

TEST_F(FlashChipTest, ProtectionBitsMakeProgramAndEraseDoNothing) {
    cells[1] = 0x00;
    write({0x01, 0xFF});
    EXPECT_EQ(status(), sim::FlashChip::kProtection);
    write(header(0x02, 0, {0x00}));
    write({0xC7});
    EXPECT_EQ(read(0, 2), (Bytes{0xFF, 0x00}));
    write({0x01, 0x80});  // register protection alone does not protect the memory
    write({0xC7});
    EXPECT_EQ(read(1, 1), (Bytes{0xFF}));
}

TEST_F(FlashChipTest, ErasesSectorBlockAndChip) {
    for (const unsigned address : {0x0FFFu, 0x1000u, 0x1FFFu, 0x2000u}) cells[address] = 0;
    write(header(0x20, 0x1234, {}));
    EXPECT_EQ((Bytes{cells[0x0FFF], cells[0x1000], cells[0x1FFF], cells[0x2000]}), (Bytes{0, 0xFF, 0xFF, 0}));
    for (const unsigned address : {0x7FFFu, 0x8000u}) cells[address] = 0;
    send({0x06});
    send(header(0x52, 0x9000, {}));
    EXPECT_EQ((Bytes{cells[0x7FFF], cells[0x8000]}), (Bytes{0, 0xFF}));
    clock.skip(119'999);
    EXPECT_TRUE(chip.isBusy());
    clock.skip(1);
    EXPECT_FALSE(chip.isBusy());
    write(header(0xD8, 0x4321, {}));
    EXPECT_EQ(cells, Bytes(65536, 0xFF));

    cells[0] = 0;
    chip.lostErases = {chip.erases + 1};
    write(header(0x20, 0, {}));
    EXPECT_EQ(cells[0], 0);
    write(header(0x20, 0, {}));
    EXPECT_EQ(cells[0], 0xFF);
}

// The fields as JESD216B places them, read back by a decoder of the test's own.
TEST_F(FlashChipTest, TellsSizeErasesAndTimesOfItself) {
    const auto sfdp = [&](unsigned address, std::size_t count) {
        Bytes in = send(header(0x5A, address, Bytes(1 + count)));
        return Bytes(in.begin() + 5, in.end());
    };
    const auto word = [&](unsigned n) {  // of the basic table, from 1
        const Bytes at = sfdp(0x80 + 4 * (n - 1), 4);
        return static_cast<std::uint32_t>(at[0] | at[1] << 8 | at[2] << 16) | static_cast<std::uint32_t>(at[3]) << 24;
    };
    const auto milliseconds = [](std::uint32_t field, const std::vector<unsigned>& units) {
        return ((field & 31) + 1) * units[field >> 5];
    };
    EXPECT_EQ(sfdp(0, 16), (Bytes{'S', 'F', 'D', 'P', 6, 1, 0, 0xFF, 0, 6, 1, 16, 0x80, 0, 0, 0xFF}));
    EXPECT_EQ(word(1), 0xFF8020E5u);
    EXPECT_EQ(word(2), 65536u * 8 - 1);
    EXPECT_EQ(word(8), 0x520F200Cu);
    EXPECT_EQ(word(9), 0x0000D810u);
    const std::vector<unsigned> eraseUnits{1, 16, 128, 1000};
    EXPECT_EQ(milliseconds(word(10) >> 4 & 127, eraseUnits), 48u);
    EXPECT_EQ(milliseconds(word(10) >> 11 & 127, eraseUnits), 128u);
    EXPECT_EQ(milliseconds(word(10) >> 18 & 127, eraseUnits), 160u);
    EXPECT_EQ(word(10) >> 25, 0u) << "no fourth type";
    EXPECT_EQ(word(11) >> 4 & 15, 8u) << "pages of 256 bytes";
    EXPECT_EQ(milliseconds(word(11) >> 8 & 63, {8, 64}), 704u) << "us a page";
    EXPECT_EQ(milliseconds(word(11) >> 24 & 127, {16, 256, 4000, 64000}), 160u) << "64 KiB in all";
    EXPECT_EQ(sfdp(0xBE, 4), (Bytes{0, 0, 0xFF, 0xFF})) << "nothing behind the table";

    chip.sfdp = sim::Sfdp::Lying;
    EXPECT_EQ(word(2), 2 * 65536u * 8 - 1);
    EXPECT_EQ(word(8), 0x520F2010u);
    EXPECT_EQ(word(9), 0x0000D80Cu);
    chip.sfdp = sim::Sfdp::None;
    EXPECT_EQ(sfdp(0, 4), Bytes(4, 0xFF));
}

// Whole boards through the seam's functions.
class SimTest : public RigTest {
protected:
    CY_HANDLE open(UINT8 interfaceNumber) {
        CY_HANDLE handle = nullptr;
        EXPECT_EQ(CyOpen(0, interfaceNumber, &handle), CY_SUCCESS);
        return handle;
    }
    static Bytes spi(CY_HANDLE handle, Bytes out) {
        Bytes in(out.size());
        CY_DATA_BUFFER write{out.data(), static_cast<UINT32>(out.size()), 0};
        CY_DATA_BUFFER read{in.data(), static_cast<UINT32>(in.size()), 0};
        EXPECT_EQ(CySpiReadWrite(handle, &read, &write, 1000), CY_SUCCESS);
        EXPECT_EQ(read.transferCount, out.size());
        return in;
    }
    static CY_SPI_CONFIG master() {
        CY_SPI_CONFIG config{};
        config.frequency = 900000;
        config.dataWidth = 8;
        config.isMsbFirst = config.isMaster = config.isContinuousMode = true;
        return config;
    }
    static void makeReady(CY_HANDLE handle) {
        CY_SPI_CONFIG config = master();
        ASSERT_EQ(CySetSpiConfig(handle, &config), CY_SUCCESS);
        ASSERT_EQ(CySetGpioValue(handle, 8, 0), CY_SUCCESS);
    }
    static libusb_device_handle* usbHandle(CY_HANDLE handle) {
        libusb_device_handle* usb = nullptr;
        std::memcpy(&usb, static_cast<char*>(handle) + CY_HANDLE_LIBUSB_OFFSET, sizeof usb);
        return usb;
    }
    static int control(CY_HANDLE handle, std::uint8_t type, std::uint8_t request, std::uint16_t value = 0,
                       std::uint16_t index = 0, void* data = nullptr, std::uint16_t length = 0) {
        return libusb_control_transfer(usbHandle(handle), type, request, value, index,
                                       static_cast<unsigned char*>(data), length, 1000);
    }
    static int configurationMode(CY_HANDLE handle, bool on) {
        return on ? control(handle, 0x40, 0xE2, 0x5C3E, 0x82D4) : control(handle, 0x40, 0xE2, 0x5C37, 0x8BD1);
    }
};

TEST_F(SimTest, TheChipIsReachedOnlyByASpiMasterInMode0WithTheNeuronInReset) {
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    EXPECT_EQ(spi(handle, {0x9F, 0, 0, 0})[3], 20);
    EXPECT_THAT(rig.violations(), IsEmpty());

    void (*const spoilers[])(CY_SPI_CONFIG&) = {
        [](CY_SPI_CONFIG& c) { c.isMaster = false; },   [](CY_SPI_CONFIG& c) { c.isCpha = true; },
        [](CY_SPI_CONFIG& c) { c.isCpol = true; },      [](CY_SPI_CONFIG& c) { c.dataWidth = 16; },
        [](CY_SPI_CONFIG& c) { c.isMsbFirst = false; }, [](CY_SPI_CONFIG& c) { c.isContinuousMode = false; },
    };
    for (const auto spoil : spoilers) {
        CY_SPI_CONFIG config = master();
        spoil(config);
        EXPECT_EQ(CySetSpiConfig(handle, &config), CY_SUCCESS);
        EXPECT_EQ(spi(handle, {0x06, 0}), (Bytes{0xFF, 0xFF}));
    }
    makeReady(handle);
    CySetGpioValue(handle, 8, 1);
    EXPECT_EQ(spi(handle, {0x06, 0}), (Bytes{0xFF, 0xFF}));
    EXPECT_EQ(rig.violations().size(), std::size(spoilers) + 1);
    EXPECT_EQ(rig.violations().back(), "flash transfer while the Neuron runs");
    EXPECT_EQ(rig.board().flash.status, 0) << "no Write Enable came through";
    CyClose(handle);
    violationsExpected = true;
}

TEST_F(SimTest, ReleasingTheNeuronWhileTheFlashIsBusyIsNoted) {
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    spi(handle, {0x06});
    spi(handle, {0xC7});
    CySetGpioValue(handle, 8, 1);
    EXPECT_THAT(rig.violations(), ElementsAre("Neuron released from reset while the flash is busy"));
    CyClose(handle);
    violationsExpected = true;
}

TEST_F(SimTest, TransfersTakeTheirTimeOnTheWireAndSleepsTakeNone) {
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    spi(handle, Bytes(225, 0xAA));
    EXPECT_EQ(rig.now(), 2000u);  // 225 bytes at 900 kHz
    rig.sleep(3);
    EXPECT_EQ(rig.now(), 5000u);
    EXPECT_EQ(rig.spiBytes, 225u);
    EXPECT_EQ(rig.spiTransfers, 1u);
    CySetGpioValue(handle, 8, 1);
    CyClose(handle);
}

TEST_F(SimTest, SpiSettingsThatThePlatformRefusesAreRefused) {
    struct Case {
        CY_RETURN_STATUS status;
        void (*change)(CY_SPI_CONFIG&);
    };
    const Case cases[] = {
        {CY_ERROR_INVALID_PARAMETER, [](CY_SPI_CONFIG& c) { c.frequency = 999; }},
        {CY_ERROR_INVALID_PARAMETER, [](CY_SPI_CONFIG& c) { c.frequency = 3'000'001; }},
        {CY_ERROR_INVALID_PARAMETER, [](CY_SPI_CONFIG& c) { c.dataWidth = 3; }},
        {CY_ERROR_INVALID_PARAMETER, [](CY_SPI_CONFIG& c) { c.dataWidth = 17; }},
        {CY_ERROR_INVALID_PARAMETER, [](CY_SPI_CONFIG& c) { c.protocol = static_cast<CY_SPI_PROTOCOL>(3); }},
        {CY_ERROR_REQUEST_FAILED, [](CY_SPI_CONFIG& c) { c.protocol = CY_SPI_TI; }},
        {CY_ERROR_REQUEST_FAILED, [](CY_SPI_CONFIG& c) { c.protocol = CY_SPI_NS, c.isCpha = true; }},
    };
    const CY_HANDLE handle = open(0);
    for (const Case& each : cases) {
        CY_SPI_CONFIG config = master();
        each.change(config);
        EXPECT_EQ(CySetSpiConfig(handle, &config), each.status);
    }
    CY_SPI_CONFIG config{};
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_SUCCESS);
    EXPECT_EQ(config.frequency, 1'000'000u);
    EXPECT_FALSE(config.isMaster);
    config.isSelectPrecede = true;  // stored and given back, with Motorola framing too
    EXPECT_EQ(CySetSpiConfig(handle, &config), CY_SUCCESS);
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_SUCCESS);
    EXPECT_TRUE(config.isSelectPrecede);
    CyClose(handle);
    const CY_HANDLE manufacturing = open(1);
    EXPECT_EQ(CyGetSpiConfig(manufacturing, &config), CY_ERROR_REQUEST_FAILED);
    CyClose(manufacturing);
}

TEST_F(SimTest, ConfigurationRequestsStallOutsideConfigurationMode) {
    const CY_HANDLE handle = open(1);
    Bytes block(512);
    unsigned char id[4];
    EXPECT_EQ(control(handle, 0xC0, 0xB1, 0, 0, id, 4), 4);
    const auto tryAll = [&] {
        return std::vector<int>{control(handle, 0xC0, 0xB5, 0, 0, block.data(), 512),
                                control(handle, 0x40, 0xB6, 0, 0, block.data(), 512),
                                control(handle, 0x40, 0xB3, 0, 0x10, id, 4),
                                control(handle, 0xC0, 0xB2, 0, 0x10, id, 4), control(handle, 0x40, 0xBA)};
    };
    EXPECT_THAT(tryAll(), testing::Each(LIBUSB_ERROR_PIPE));
    EXPECT_EQ(configurationMode(handle, true), 0);
    EXPECT_THAT(tryAll(), ElementsAre(512, 512, 4, 4, 0));
    EXPECT_EQ(Bytes(block.begin(), block.begin() + 4), (Bytes{'C', 'Y', 'U', 'S'}));
    EXPECT_EQ(control(handle, 0x40, 0xE2, 0x5C3E, 0x82D5), LIBUSB_ERROR_PIPE) << "a wrong access value changes nothing";
    EXPECT_EQ(control(handle, 0xC0, 0xB5, 0, 0, block.data(), 512), 512);
    EXPECT_EQ(control(handle, 0x40, 0xB6, 0, 0, block.data(), 511), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(configurationMode(handle, false), 0);
    EXPECT_THAT(tryAll(), testing::Each(LIBUSB_ERROR_PIPE));
    libusb_device_handle* const usb = usbHandle(handle);
    CyClose(handle);
    EXPECT_EQ(libusb_control_transfer(usb, 0xC0, 0xB1, 0, 0, id, 4, 1000), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(SimTest, TheBridgeTakesTheAccessValuesThatItIsMadeFor) {
    const auto taken = [&](sim::Access access) {
        sim::Options options;
        options.access = access;
        rig.reset(options);
        const CY_HANDLE handle = open(1);
        const std::vector<int> results{configurationMode(handle, true), configurationMode(handle, false),
                                       control(handle, 0x40, 0xE2, 0xA6BC, 0xB1B0),
                                       control(handle, 0x40, 0xE2, 0xA6BC, 0xB9B0)};
        CyClose(handle);
        return results;
    };
    EXPECT_THAT(taken(sim::Access::Both), ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(taken(sim::Access::Library), ElementsAre(0, 0, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_PIPE));
    EXPECT_THAT(taken(sim::Access::Letters), ElementsAre(LIBUSB_ERROR_PIPE, LIBUSB_ERROR_PIPE, 0, 0));
}

TEST_F(SimTest, AnUnfinishedTransferHoldsUpTheOthersUntilTheSpiReset) {
    sim::Options options;
    options.pace = sim::Pace::Virtual;
    options.unfinished = true;
    rig.reset(options);
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    Bytes byte(1, 0x06);
    CY_DATA_BUFFER write{byte.data(), 1, 0};
    EXPECT_EQ(CySpiReadWrite(handle, nullptr, &write, 1000), CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(rig.now(), 1'000'000u) << "the time that it was given";
    unsigned char left[4] = {};
    const auto isIdle = [&] {
        EXPECT_EQ(control(handle, 0xC0, 0xCC, 0, 0, left, 4), 4);
        return std::all_of(std::begin(left), std::end(left), [](auto each) { return each == 0; });
    };
    EXPECT_FALSE(isIdle());
    EXPECT_EQ(control(handle, 0x40, 0xCB, 0x8000), LIBUSB_ERROR_PIPE) << "it has no second block";
    EXPECT_EQ(control(handle, 0x40, 0xCB, 0, 0, left, 4), LIBUSB_ERROR_PIPE) << "it carries no data";
    EXPECT_EQ(control(handle, 0x40, 0xCB), 0);
    EXPECT_TRUE(isIdle());
    EXPECT_EQ(spi(handle, {0x9F, 0, 0, 0})[3], 20) << "the setting is as it was";
    EXPECT_EQ(CySetGpioValue(handle, 8, 1), CY_SUCCESS);
    CyClose(handle);
}

TEST_F(SimTest, ADeniedBoardShowsWhatNeedsNoPermissionAndOpensForNobody) {
    sim::Options options;
    options.denied = true;
    rig.reset(options);
    CY_DEVICE_INFO found{};
    EXPECT_EQ(CyGetDeviceInfo(0, &found), CY_ERROR_ACCESS_DENIED);
    EXPECT_EQ(found.vidPid.vid, 0x04B4);
    EXPECT_EQ(found.deviceType[1], CY_TYPE_MFG);
    EXPECT_EQ(found.serialNum[0] | found.productName[0] | found.manufacturerName[0], 0);
    CY_HANDLE handle = nullptr;
    EXPECT_EQ(CyOpen(0, 1, &handle), CY_ERROR_ACCESS_DENIED);
    short channel = 0;
    EXPECT_EQ(ldv_open("CSN00001234", &channel), LDV_ACCESS_DENIED);
}

TEST_F(SimTest, ASmallerBridgeHasNoServicePin) {
    sim::Options options;
    options.pins = 12;
    rig.reset(options);
    const CY_HANDLE handle = open(0);
    UINT8 level = 7;
    EXPECT_EQ(CyGetGpioValue(handle, 14, &level), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(CySetGpioValue(handle, 14, 0), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(CyGetGpioValue(handle, 8, &level), CY_SUCCESS);
    CyClose(handle);
}

TEST_F(SimTest, ADeadFlashAnswersItsIdAndReadsFFFromThenOn) {
    sim::Options options;
    options.pace = sim::Pace::Virtual;
    options.flashDiesAfter = 1;
    rig.reset(options);
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    EXPECT_EQ(spi(handle, {0x9F, 0, 0, 0}), (Bytes{0xFF, 0xEF, 0x40, 20}));
    EXPECT_EQ(spi(handle, {0x05, 0}), (Bytes{0xFF, 0xFF}));
    EXPECT_EQ(spi(handle, {0x9F, 0, 0, 0}), Bytes(4, 0xFF));
    CySetGpioValue(handle, 8, 1);
    CyClose(handle);
}

TEST_F(SimTest, AWrittenBlockTakesEffectAtTheNextReplug) {
    const auto described = [] {
        CY_DEVICE_INFO found{};
        EXPECT_EQ(CyGetDeviceInfo(0, &found), CY_SUCCESS);
        return found;
    };
    EXPECT_STREQ(reinterpret_cast<const char*>(described().productName), "LON Interface");
    EXPECT_EQ(described().deviceType[0], CY_TYPE_SPI);
    EXPECT_EQ(described().deviceType[1], CY_TYPE_MFG);

    const auto block = rig.board().bridge.block;
    const auto seal = [&] {
        const std::uint32_t sum = Bridge::checksum(block);
        std::memcpy(block.data() + 8, &sum, sizeof sum);
    };
    block[0x1C] = 3;     // I2C
    block[0x94] = 0xB5;  // vendor ID
    block[0x174] = 'X';  // first unit of the serial number
    seal();
    EXPECT_EQ(described().deviceType[0], CY_TYPE_SPI);
    rig.replug();
    EXPECT_EQ(described().deviceType[0], CY_TYPE_I2C);
    EXPECT_EQ(described().vidPid.vid, 0x04B5);
    EXPECT_STREQ(reinterpret_cast<const char*>(described().serialNum), "X0001234");
    const CY_HANDLE handle = open(0);
    CY_SPI_CONFIG config = master();
    EXPECT_EQ(CySetSpiConfig(handle, &config), CY_ERROR_REQUEST_FAILED);
    CyClose(handle);

    block[0x1D] = 1;  // CDC takes two interfaces
    block[0xA8] = 0;  // no serial number
    seal();
    rig.replug();
    EXPECT_EQ(described().numInterfaces, 3);
    EXPECT_EQ(described().deviceClass[0], CY_CLASS_CDC);
    EXPECT_EQ(described().deviceType[2], CY_TYPE_MFG);
    EXPECT_EQ(described().serialNum[0], 0);
}

TEST_F(SimTest, ABridgeWithADamagedBlockVanishesFromUsb) {
    for (const std::size_t damaged : {0u, 0x100u}) {
        rig.reset();
        rig.board().bridge.block[damaged] ^= 1;
        UINT8 devices = 0;
        EXPECT_EQ(CyGetListofDevices(&devices), CY_SUCCESS);
        EXPECT_EQ(devices, 1);
        rig.replug();
        EXPECT_EQ(CyGetListofDevices(&devices), CY_SUCCESS);
        EXPECT_EQ(devices, 0);
        CY_HANDLE handle = nullptr;
        EXPECT_EQ(CyOpen(0, 0, &handle), CY_ERROR_INVALID_PARAMETER);
    }
}

TEST_F(SimTest, UserFlashTakesWholePagesOf128Bytes) {
    const CY_HANDLE handle = open(1);
    Bytes data(256, 0x5A);
    const auto write = [&](UINT32 address, UINT32 length) {
        CY_DATA_BUFFER buffer{data.data(), length, 77};
        const CY_RETURN_STATUS status = CyProgUserFlash(handle, &buffer, address, 1000);
        EXPECT_EQ(buffer.transferCount, status == CY_SUCCESS ? length : 0);
        return status;
    };
    EXPECT_EQ(write(128, 256), CY_SUCCESS);
    for (const auto& [address, length] : {std::pair{1u, 128u}, {0u, 6u}, {384u, 256u}, {512u, 128u}, {0u, 0u}}) {
        EXPECT_EQ(write(address, length), CY_ERROR_REQUEST_FAILED) << address << " " << length;
    }
    Bytes all(512);
    CY_DATA_BUFFER buffer{all.data(), 512, 0};
    EXPECT_EQ(CyReadUserFlash(handle, &buffer, 0, 1000), CY_SUCCESS);
    EXPECT_EQ((Bytes{all[127], all[128], all[383], all[384]}), (Bytes{0xFF, 0x5A, 0x5A, 0xFF}));
    CyClose(handle);
}

TEST_F(SimTest, OnlyOutputPinsCanBeDriven) {
    const CY_HANDLE handle = open(0);
    UINT8 level = 7;
    EXPECT_EQ(CySetGpioValue(handle, 14, 0), CY_SUCCESS);
    EXPECT_EQ(CyGetGpioValue(handle, 14, &level), CY_SUCCESS);
    EXPECT_EQ(level, 0);
    EXPECT_EQ(CySetGpioValue(handle, 2, 0), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(CyGetGpioValue(handle, 17, &level), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(rig.leftovers(), "1 bridge handle(s), pin 14 low");
    EXPECT_EQ(CySetGpioValue(handle, 14, 1), CY_SUCCESS);
    EXPECT_EQ(CyClose(handle), CY_SUCCESS);
    EXPECT_EQ(CyClose(handle), CY_ERROR_INVALID_HANDLE);
}

TEST_F(SimTest, TheJournalShowsEveryCallAndItsFailure) {
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    CY_SPI_CONFIG config{};
    CyGetSpiConfig(handle, &config);
    spi(handle, {0x05, 0});
    rig.sleep(1);
    Bytes page(260, 0x11);
    CY_DATA_BUFFER write{page.data(), 260, 0};
    CySpiReadWrite(handle, nullptr, &write, 1000);
    UINT8 level = 0;
    CyGetGpioValue(handle, 8, &level);
    rig.fail("CySetGpioValue", 2, CY_ERROR_IO_TIMEOUT);
    CySetGpioValue(handle, 8, 1);
    CySetGpioValue(handle, 8, 0);
    rig.fail("libusb_control_transfer", 1, 511);
    EXPECT_EQ(control(handle, 0xC0, 0xB5, 0, 0, page.data(), 200), 511);
    EXPECT_EQ(control(handle, 0xC0, 0xB5, 0, 0, page.data(), 200), LIBUSB_ERROR_PIPE);
    CyClose(handle);
    EXPECT_THAT(rig.journalWithoutPolls(),
                ElementsAre("open 0.0", "setspi master 900000", "pin 8=0", "getspi",
                            "spi 11 11 11 11 11 11 11 11 ..(260)", "pin 8?", "pin 8=1", "pin 8=0 !11",
                            "control C0 B5 0000 0000 200 !511", "control C0 B5 0000 0000 200 !-9", "close 0.0"));
    EXPECT_EQ(rig.journal[4], "spi 05 00 <2");
    EXPECT_EQ(rig.calls("CySpiReadWrite"), 2u);
}

TEST_F(SimTest, FaultsMeetTheCallTheyWerePlannedForAndNoOther) {
    CY_HANDLE handle = open(0);
    rig.fail("CyOpen", 2, CY_ERROR_ACCESS_DENIED);
    rig.failFrom("CyGetSpiConfig", 2, CY_ERROR_IO_TIMEOUT);
    CY_HANDLE other = open(1);
    CY_HANDLE third = nullptr;
    EXPECT_EQ(CyOpen(0, 0, &third), CY_ERROR_ACCESS_DENIED);
    EXPECT_EQ(third, nullptr);
    CY_SPI_CONFIG config{};
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_SUCCESS);
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_ERROR_IO_TIMEOUT);
    rig.clearFaults();
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_SUCCESS);
    rig.fail("CyClose", 1, CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(CyClose(handle), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(CyClose(other), CY_SUCCESS);
    EXPECT_THROW(rig.fail("CyOpenn", 1, 1), std::invalid_argument);
}

TEST_F(SimTest, LostProgramsAndFlippedBitsShowInTheNextRead) {
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    rig.loseProgram(2);
    rig.flipReadBit(2, 1, 7);
    for (const std::uint8_t value : Bytes{0x11, 0x22}) {
        spi(handle, {0x06});
        spi(handle, header(0x02, value, {value}));
        rig.sleep(1);
    }
    EXPECT_EQ(spi(handle, header(0x03, 0x10, Bytes(20)))[4 + 1], 0x11);
    const Bytes second = spi(handle, header(0x03, 0x21, {0, 0}));
    EXPECT_EQ((Bytes{second[4], second[5]}), (Bytes{0xFF, 0x7F}));
    CySetGpioValue(handle, 8, 1);
    CyClose(handle);
}

// Two boards in memory on one bus.
class SimBusTest : public SimTest {
protected:
    SimBusTest() {
        sim::Options options;
        options.pace = sim::Pace::Virtual;
        options.serialNumber = "00005678";
        other.reset(options);
    }
    ~SimBusTest() override { rig.reset(); }

    static CY_HANDLE open(UINT8 deviceNumber, UINT8 interfaceNumber) {
        CY_HANDLE handle = nullptr;
        EXPECT_EQ(CyOpen(deviceNumber, interfaceNumber, &handle), CY_SUCCESS);
        return handle;
    }
    static unsigned listed() {
        UINT8 devices = 0;
        EXPECT_EQ(CyGetListofDevices(&devices), CY_SUCCESS);
        return devices;
    }
    static std::string portPath(UINT8 number) {
        char path[128] = {};
        CyGetPortPath(number, path, sizeof path);
        return path;
    }
    static std::string serialNumber(UINT8 number) {
        CY_DEVICE_INFO found{};
        CyGetDeviceInfo(number, &found);
        return reinterpret_cast<const char*>(found.serialNum);
    }

    sim::Rig& other = sim::rig(1);
};

TEST_F(SimBusTest, EachBoardHasItsNumberPathHandlesFaultsAndJournal) {
    EXPECT_EQ(listed(), 2u);
    EXPECT_EQ(serialNumber(0) + " " + serialNumber(1), "00001234 00005678");
    EXPECT_NE(portPath(0), portPath(1));
    EXPECT_EQ(portPath(2), "");
    rig.journal.clear();
    other.journal.clear();
    other.fail("CyGetGpioValue", 1, CY_ERROR_IO_TIMEOUT);
    const CY_HANDLE first = open(0, 0);
    const CY_HANDLE second = open(1, 1);
    EXPECT_EQ(CySetGpioValue(second, 8, 0), CY_SUCCESS);
    UINT8 level = 7;
    EXPECT_EQ(CyGetGpioValue(first, 8, &level), CY_SUCCESS);
    EXPECT_EQ(level, 1);
    EXPECT_EQ(CyGetGpioValue(second, 8, &level), CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(other.leftovers(), "1 bridge handle(s), pin 8 low");
    EXPECT_EQ(control(second, 0x40, 0xE2, 0x5C3E, 0x82D4), 0);
    EXPECT_TRUE(other.board().bridge.inConfigurationMode);
    EXPECT_FALSE(rig.board().bridge.inConfigurationMode);
    EXPECT_EQ(CyClose(first), CY_SUCCESS);
    EXPECT_EQ(CyClose(second), CY_SUCCESS);
    EXPECT_EQ(CyClose(second), CY_ERROR_INVALID_HANDLE);
    EXPECT_THAT(rig.journal, ElementsAre("open 0.0", "pin 8?", "close 0.0", "close !14"));
    EXPECT_THAT(other.journal,
                ElementsAre("open 1.1", "pin 8=0", "pin 8? !11", "control 40 E2 5C3E 82D4 0", "close 1.1"));
    EXPECT_EQ(rig.calls("CyOpen") + other.calls("CyOpen"), 2u);

    other.fail("CyGetListofDevices", 1, CY_ERROR_REQUEST_FAILED);
    UINT8 devices = 0;
    EXPECT_EQ(CyGetListofDevices(&devices), CY_ERROR_REQUEST_FAILED) << "a fault of any board's";
    rig.reset();
    EXPECT_EQ(listed(), 1u) << "alone again";
}

TEST_F(SimBusTest, TwoLdvChannelsAtATime) {
    short first = 0;
    short second = 0;
    short third = 0;
    ASSERT_EQ(ldv_open("CSN00005678", &second), LDV_OK);
    ASSERT_EQ(ldv_open("CSN00001234", &first), LDV_OK);
    EXPECT_EQ(ldv_open("CSN00005678", &third), LDV_ALREADY_OPEN);
    EXPECT_EQ(ldv_open("CSN00009999", &third), LDV_NOT_FOUND);
    Bytes request(17);
    request[0] = 0x22;
    request[5] = 0x7F;
    request[16] = 0x51;
    EXPECT_EQ(ldv_write(second, request.data(), static_cast<unsigned short>(request.size())), LDV_OK);
    rig.sleep(100);
    unsigned char message[256];
    EXPECT_EQ(ldv_read(first, message, sizeof message), LDV_NO_MSG_AVAIL);
    EXPECT_EQ(ldv_read(second, message, sizeof message), LDV_OK);
    EXPECT_EQ(ldv_close(second), LDV_OK);
    EXPECT_EQ(ldv_read(second, message, sizeof message), LDV_NOT_OPEN);
    EXPECT_EQ(ldv_close(first), LDV_OK);
}

TEST_F(SimBusTest, AnUnpluggedBoardAnswersAsAMissingDeviceAndComesBackAnew) {
    EXPECT_EQ(listed(), 2u);
    const CY_HANDLE handle = open(0, 0);
    makeReady(handle);
    short channel = 0;
    ASSERT_EQ(ldv_open("CSN00001234", &channel), LDV_OK);
    rig.unplug();

    Bytes out(2, 0x05);
    CY_DATA_BUFFER write{out.data(), 2, 0};
    CY_SPI_CONFIG config = master();
    UINT8 level = 0;
    unsigned char message[64] = {};
    const auto answers = [&] {
        return std::vector<CY_RETURN_STATUS>{CySpiReadWrite(handle, nullptr, &write, 1000),
                                             CyGetSpiConfig(handle, &config),
                                             CySetSpiConfig(handle, &config),
                                             CyGetGpioValue(handle, 8, &level),
                                             CySetGpioValue(handle, 8, 1),
                                             CyReadUserFlash(handle, &write, 0, 1000)};
    };
    EXPECT_THAT(answers(), testing::Each(CY_ERROR_DEVICE_NOT_FOUND));
    EXPECT_EQ(control(handle, 0xC0, 0xB1, 0, 0, message, 4), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(ldv_read(channel, message, sizeof message), LDV_DEVICE_ERR);
    EXPECT_EQ(ldv_write(channel, message, 1), LDV_DEVICE_ERR);
    CY_HANDLE late = nullptr;
    EXPECT_EQ(CyOpen(0, 0, &late), CY_ERROR_DEVICE_NOT_FOUND) << "its number";
    EXPECT_EQ(portPath(0), "");
    EXPECT_EQ(listed(), 2u) << "the other one keeps its number";
    EXPECT_EQ(serialNumber(0), "");
    EXPECT_EQ(serialNumber(1), "00005678");
    other.unplug();
    EXPECT_EQ(listed(), 0u);
    other.plug();

    rig.plug();
    EXPECT_THAT(answers(), testing::Each(CY_ERROR_DEVICE_NOT_FOUND)) << "the handle is the old device's";
    EXPECT_EQ(listed(), 2u);
    const CY_HANDLE fresh = open(0, 0);
    EXPECT_EQ(CyGetSpiConfig(fresh, &config), CY_SUCCESS);
    EXPECT_FALSE(config.isMaster) << "power was gone";
    EXPECT_EQ(CyGetGpioValue(fresh, 8, &level), CY_SUCCESS);
    EXPECT_EQ(level, 1);
    EXPECT_EQ(CyClose(handle), CY_SUCCESS);
    EXPECT_EQ(ldv_close(channel), LDV_OK);
    EXPECT_EQ(CyClose(fresh), CY_SUCCESS);
}

TEST_F(SimBusTest, BoardsWorkSideBySide) {
    sim::Options options;
    options.pace = sim::Pace::Real;
    other.reset(options);
    const CY_HANDLE slow = open(1, 0);
    CY_SPI_CONFIG config = master();
    config.frequency = 100'000;
    ASSERT_EQ(CySetSpiConfig(slow, &config), CY_SUCCESS);
    ASSERT_EQ(CySetGpioValue(slow, 8, 0), CY_SUCCESS);
    std::atomic<bool> isDone = false;
    std::thread thread([&] {
        spi(slow, Bytes(6250, 0x05));  // half a second
        isDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const CY_HANDLE handle = open(0, 0);
    makeReady(handle);
    for (int i = 0; i < 100; ++i) spi(handle, {0x9F, 0, 0, 0});
    CySetGpioValue(handle, 8, 1);
    EXPECT_FALSE(isDone);
    thread.join();
    CyClose(handle);
    CySetGpioValue(slow, 8, 1);
    CyClose(slow);
}

// Boards that live in a folder.
class SimFolderTest : public SimTest {
protected:
    SimFolderTest() {
        char name[] = "/tmp/tavo-sim-XXXXXX";
        folder = ::mkdtemp(name);
        options.folder = folder;
        options.pace = sim::Pace::Virtual;
    }
    ~SimFolderTest() override {
        rig.reset();
        fs::remove_all(folder);
    }
    // Runs body in another process, which then dies as by kill -9.
    template <class Body>
    void inKilledProcess(Body body) {
        const pid_t child = ::fork();
        if (child == 0) {
            body();
            ::kill(::getpid(), SIGKILL);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
    }
    std::string refusal() {
        try {
            rig.reset(options);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    std::string folder;
    sim::Options options;
};

TEST_F(SimFolderTest, AKilledRunLeavesWhatARealInterfaceWouldHold) {
    options.flashSize = 65536;
    rig.reset(options);
    inKilledProcess([&] {
        rig.reset(options);
        const CY_HANDLE handle = open(0);
        makeReady(handle);
        spi(handle, {0x06});
        spi(handle, header(0x02, 0x1234, {0x77}));
        rig.sleep(1);
        spi(handle, {0x06});
        spi(handle, {0x01, 0x04});
    });
    options.flashSize = 0;
    rig.reset(options);
    EXPECT_EQ(rig.board().flash.cells.size(), 65536u);
    EXPECT_EQ(rig.board().flash.capacityCode, 16);
    EXPECT_EQ(rig.board().flash.cells[0x1234], 0x77);
    EXPECT_EQ(rig.board().flash.status, 0x04);
    EXPECT_EQ(rig.leftovers(), "pin 8 low");
    EXPECT_TRUE(rig.board().neuron.isHeld());
    EXPECT_TRUE(rig.board().bridge.spi.isMaster);
    EXPECT_EQ(rig.board().bridge.spi.frequency, 900000u);
    rig.replug();
    EXPECT_EQ(rig.leftovers(), "");
    EXPECT_FALSE(rig.board().bridge.spi.isMaster);
    EXPECT_EQ(rig.board().flash.status, 0x04);
}

TEST_F(SimFolderTest, ABlockWrittenInOneRunIsInEffectInTheNext) {
    inKilledProcess([&] {
        rig.reset(options);
        const CY_HANDLE handle = open(1);
        CySetGpioValue(handle, 8, 0);
        configurationMode(handle, true);
        Bridge::Block block = Bridge::factoryBlock();
        block[0x174] = 'Z';
        const std::uint32_t sum = Bridge::checksum(block);
        std::memcpy(block.data() + 8, &sum, sizeof sum);
        control(handle, 0x40, 0xB6, 0, 0, block.data(), 512);
    });
    rig.reset(options);
    CY_DEVICE_INFO found{};
    EXPECT_EQ(CyGetDeviceInfo(0, &found), CY_SUCCESS);
    EXPECT_STREQ(reinterpret_cast<const char*>(found.serialNum), "Z0001234");
    EXPECT_EQ(rig.leftovers(), "") << "it was plugged in anew";
    EXPECT_FALSE(rig.board().bridge.inConfigurationMode);
    char path[128] = {};
    EXPECT_EQ(CyGetPortPath(0, path, sizeof path), CY_SUCCESS);
    EXPECT_EQ(path, "sim:" + folder);
}

// What the Neuron of the board in that folder says in its first second after a reset and to a status
// request: the reset notice and the answer, or nothing.
class SimNeuronBootTest : public SimFolderTest {
protected:
    SimNeuronBootTest() { options.flashSize = 65536; }

    std::size_t messagesAfterReset() {
        const CY_HANDLE handle = open(0);
        EXPECT_EQ(CySetGpioValue(handle, 8, 0), CY_SUCCESS);
        EXPECT_EQ(CySetGpioValue(handle, 8, 1), CY_SUCCESS);
        CyClose(handle);
        return messages();
    }
    std::size_t messages() {
        sim::Neuron& neuron = rig.board().neuron;
        rig.sleep(300);
        Bytes request(17);
        request[0] = 0x22;
        request[5] = 0x7F;
        request[16] = 0x51;
        neuron.write(request);
        neuron.setService(true);
        neuron.setService(false);
        rig.sleep(300);
        std::size_t count = 0;
        while (neuron.read()) ++count;
        return count;
    }
    void overBus(const Bytes& command) {
        const CY_HANDLE handle = open(0);
        makeReady(handle);
        spi(handle, {0x06});
        spi(handle, command);
        rig.sleep(3000);
        EXPECT_EQ(CySetGpioValue(handle, 8, 1), CY_SUCCESS);
        CyClose(handle);
    }
    void putFlash(std::uint8_t first) const {
        Bytes content(65536, 0xFF);
        content[0] = first;
        std::ofstream(folder + "/flash.bin", std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    }

    static constexpr std::size_t kAll = 3;  // reset notice, service-pin message, answer
};

TEST_F(SimNeuronBootTest, FromItsFactoryProgramUntilTheFlashIsWrittenTo) {
    rig.reset(options);
    EXPECT_EQ(messagesAfterReset(), kAll) << "a new board works with its erased flash";
    overBus(header(0x02, 0x0100, {0x00}));
    EXPECT_EQ(messages(), 0u) << "the first page is blank";
    rig.reset(options);
    EXPECT_EQ(messages(), 0u) << "also in the next run";
    overBus(header(0x02, 0x00FF, {0x7F}));
    EXPECT_EQ(messages(), kAll) << "started again from an image";
    overBus({0xC7});
    EXPECT_EQ(messagesAfterReset(), 0u);
    rig.replug();
    EXPECT_EQ(messages(), 0u);
}

TEST_F(SimNeuronBootTest, AProgramThatProtectionStoppedIsNoProgram) {
    rig.reset(options);
    overBus({0x01, 0x1C});
    overBus({0xC7});
    EXPECT_EQ(messagesAfterReset(), kAll);
}

TEST_F(SimNeuronBootTest, FromAnImagePutThereByHand) {
    putFlash(0x12);
    rig.reset(options);
    EXPECT_EQ(messagesAfterReset(), kAll);
    rig.reset();
    putFlash(0xFF);
    rig.reset(options);
    EXPECT_EQ(messagesAfterReset(), 0u) << "its factory program is gone";
}

TEST_F(SimNeuronBootTest, InAFolderOfAnOlderVersionAsInANewOne) {
    rig.reset(options);
    open(0);
    rig.reset();
    std::ifstream file(folder + "/board.txt");
    std::string text;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("neuron.boots-from", 0) != 0) text += line + "\n";
    }
    std::ofstream(folder + "/board.txt") << text;
    rig.reset(options);
    EXPECT_EQ(messagesAfterReset(), kAll);
}

TEST_F(SimFolderTest, ASecondProcessSeesTheDeviceAndCannotOpenIt) {
    rig.reset(options);
    const CY_HANDLE held = open(0);
    const pid_t child = ::fork();
    if (child == 0) {
        sim::Board second(options);
        const int holder = second.claim();
        ::_exit(second.whyAbsent().empty() && holder == ::getppid() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    CyClose(held);
    sim::Board second(options);
    EXPECT_EQ(second.claim(), 0) << "free again with the last handle";
    CY_HANDLE handle = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(CyOpen(0, 0, &handle), CY_ERROR_DRIVER_OPEN_FAILED);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("is in use by process " + std::to_string(::getpid())));
}

TEST_F(SimFolderTest, DamagedFoldersAreRefusedWithFileAndRemedy) {
    rig.reset(options);
    rig.reset();
    options.flashSize = 4u << 20;
    EXPECT_THAT(refusal(), testing::AllOf(HasSubstr("flash.bin"), HasSubstr("1024K"), HasSubstr("leave size= out")));
    options.flashSize = 0;
    const auto damaged = [&](const std::string& file, const std::string& content) {
        std::ofstream(folder + "/" + file) << content;
        const std::string text = refusal();
        fs::remove(folder + "/" + file);
        return text;
    };
    for (const char* file : {"flash.bin", "config.bin", "user-flash.bin", "board.txt"}) {
        EXPECT_THAT(damaged(file, "rubbish"), testing::AllOf(HasSubstr(file), HasSubstr("delete")));
    }
    fs::create_directory(folder + "/board.txt");  // is there and cannot be read
    EXPECT_THAT(refusal(), testing::AllOf(HasSubstr("board.txt"), HasSubstr("make it readable")));
    fs::remove(folder + "/board.txt");
    for (const char* line : {"flash.protection=many", "flash.jedec=256"}) {
        EXPECT_THAT(damaged("board.txt", line), testing::AllOf(HasSubstr("board.txt"), HasSubstr(line)));
    }
    EXPECT_EQ(refusal(), "");

    // Damaged while this process runs: told, and nothing is thrown through the C functions.
    testing::internal::CaptureStderr();
    std::ofstream(folder + "/board.txt") << "rubbish";
    CY_HANDLE handle = nullptr;
    EXPECT_EQ(CyOpen(0, 0, &handle), CY_ERROR_DRIVER_OPEN_FAILED);
    fs::remove(folder + "/board.txt");
    handle = open(0);
    fs::remove_all(folder);
    EXPECT_EQ(CyClose(handle), CY_SUCCESS);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::AllOf(HasSubstr("line 1 is not KEY=VALUE"), HasSubstr("folder that this user may write to")));
}

TEST_F(SimFolderTest, TavoSimUnplugsAndPlugsInWhileAProgramRuns) {
    const auto cable = [&](const char* what) {
        const std::string tavoSim = (fs::read_symlink("/proc/self/exe").parent_path() / "tavo-sim").string();
        ASSERT_EQ(std::system((tavoSim + " " + what + " " + folder + " 2>/dev/null").c_str()), 0);
    };
    const auto listed = [] {
        UINT8 devices = 0;
        CyGetListofDevices(&devices);
        return devices;
    };
    rig.reset(options);
    const CY_HANDLE handle = open(0);
    makeReady(handle);
    cable("--unplug");
    cable("--unplug");  // no change
    UINT8 level = 0;
    EXPECT_EQ(CyGetGpioValue(handle, 8, &level), CY_ERROR_DEVICE_NOT_FOUND);
    EXPECT_EQ(listed(), 0);
    EXPECT_EQ(sim::Board(options).claim(), 0) << "the folder is free";
    cable("--plug");
    EXPECT_EQ(listed(), 1);
    EXPECT_EQ(rig.leftovers(), "1 bridge handle(s)") << "the Neuron runs again";
    CyClose(handle);

    // Between two looks at it, and between two runs.
    const CY_HANDLE second = open(0);
    makeReady(second);
    cable("--unplug");
    cable("--plug");
    EXPECT_EQ(CyGetGpioValue(second, 8, &level), CY_ERROR_DEVICE_NOT_FOUND);
    CyClose(second);
    const CY_HANDLE third = open(0);
    makeReady(third);
    rig.reset(options);
    EXPECT_EQ(rig.leftovers(), "pin 8 low");
    cable("--unplug");
    rig.reset(options);
    EXPECT_EQ(listed(), 0);
    cable("--plug");
    rig.reset(options);
    EXPECT_EQ(listed(), 1);
    EXPECT_EQ(rig.leftovers(), "");
}

// tavo-sim lies beside this program.
TEST_F(SimFolderTest, TavoSimStartsAProgramWithTheInterfaceItNames) {
    const std::string tavoSim = (fs::read_symlink("/proc/self/exe").parent_path() / "tavo-sim").string();
    const auto run = [&](const std::string& arguments) {
        const int status = std::system(("cd " + folder + " && " + tavoSim + " " + arguments + " >output 2>&1").c_str());
        std::ifstream file(folder + "/output");
        return std::pair{WEXITSTATUS(status), std::string(std::istreambuf_iterator<char>(file), {})};
    };
    const auto [status, output] = run("x,pace=fast -- sh -c 'echo \"$TAVO_SIM $LD_PRELOAD\"; exit 5'");
    EXPECT_EQ(status, 5);
    EXPECT_THAT(output, testing::AllOf(HasSubstr(folder + "/x,pace=fast /"), HasSubstr("/libtavo-sim.so")));

    EXPECT_EQ(run("x y,pace=fast sim:z -- sh -c 'echo \"$TAVO_SIM\"'").second,
              folder + "/x\n" + folder + "/y,pace=fast\n" + folder + "/z\n");

    const std::pair<std::string, int> refused[] = {{"", 2},
                                                   {"x", 2},
                                                   {"x --", 2},
                                                   {"x,size=3M -- true", 2},
                                                   {"x -- no-such-program", 127},
                                                   {"x y/../x,pace=fast -- true", 2},
                                                   {"x -d -- true", 2},
                                                   {"--unplug", 2},
                                                   {"--plug output", 1}};
    for (const auto& [arguments, expected] : refused) {
        EXPECT_EQ(run(arguments).first, expected) << arguments;
        EXPECT_THAT(run(arguments).second, HasSubstr("tavo-sim: error: "));
    }
}

TEST(SimOptions, AreReadFromTheTextAfterSim) {
    const sim::Options options = sim::parseOptions(
        "a folder,size=4M,pace=fast,jedec=24,busy=3,fault=CyOpen@2+:4,lose-program=7,"
        "sfdp=lying,lose-erase=5,access=letters,pins=12,serial=A-1,denied,unfinished,dead-flash=0");
    EXPECT_EQ(options.folder, "a folder");
    EXPECT_EQ(options.flashSize, 4u << 20);
    EXPECT_EQ(options.pace, sim::Pace::Fast);
    EXPECT_EQ(options.capacityCode, 24);
    EXPECT_EQ(options.busyPolls, 3u);
    EXPECT_THAT(options.lostPrograms, ElementsAre(7u));
    ASSERT_EQ(options.faults.size(), 1u);
    EXPECT_EQ(options.faults[0].function, "CyOpen");
    EXPECT_EQ(options.faults[0].nth, 2u);
    EXPECT_TRUE(options.faults[0].andLater);
    EXPECT_EQ(options.faults[0].status, 4);
    EXPECT_EQ(options.access, sim::Access::Letters);
    EXPECT_EQ(options.pins, 12u);
    EXPECT_EQ(options.sfdp, sim::Sfdp::Lying);
    EXPECT_THAT(options.lostErases, ElementsAre(5u));
    EXPECT_EQ(options.serialNumber, "A-1");
    EXPECT_TRUE(options.denied && options.unfinished);
    EXPECT_EQ(options.flashDiesAfter, 0u);
    EXPECT_EQ(sim::parseOptions("d").pace, sim::Pace::Real);
}

class SimOptionsRefused : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(SimOptionsRefused, NamesTheKeyAndWhatIsAccepted) {
    const auto& [text, named] = GetParam();
    try {
        sim::parseOptions(text);
        FAIL() << text;
    } catch (const std::invalid_argument& error) {
        EXPECT_THAT(error.what(), HasSubstr(named));
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, SimOptionsRefused,
    testing::Values(std::pair{"", "a folder is needed"}, std::pair{",size=1M", "a folder is needed"},
                    std::pair{"d,size=3M", "size=3M"}, std::pair{"d,size=256M", "64K to 128M"},
                    std::pair{"d,size=32K", "64K to 128M"}, std::pair{"d,size=1m", "size=1m"},
                    std::pair{"d,size=", "size="}, std::pair{"d,pace=virtual", "real or fast"},
                    std::pair{"d,jedec=256", "0 to 255"}, std::pair{"d,busy=-1", "busy=-1"},
                    std::pair{"d,fault=CyOpen:4", "FUNCTION@N:STATUS"}, std::pair{"d,fault=CyOpen@0:4", "CyOpen@0:4"},
                    std::pair{"d,fault=Nope@1:4", "none of the simulated ones"},
                    std::pair{"d,lose-program=0", "lose-program=0"}, std::pair{"d,colour=red", "known are size="},
                    std::pair{"d,,", "unknown option ''"}, std::pair{"d,pins=14", "pins=14"},
                    std::pair{"d,serial=", "1 to 32"}, std::pair{"d,sfdp=yes", "told, none or lying"},
                    std::pair{"d,lose-erase=0", "lose-erase=0"}, std::pair{"d,access=open", "both, library or letters"},
                    std::pair{"d,dead-flash=-1", "dead-flash=-1"},
                    std::pair{"d,denied=no", "unknown option 'denied=no'"}));

}  // namespace
