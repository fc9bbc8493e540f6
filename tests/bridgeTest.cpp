// Vendor requests, configuration block, its update from a file, and the Neuron ID record.
#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <span>

#include "platform/cyusbserial.h"
#include "tavo/Configurator.h"
#include "tavo/bridge.h"
#include "tavo/cyboot.h"
#include "tests/rigTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Block = std::array<unsigned char, 512>;

const char kControl[] = "libusb_control_transfer";
constexpr int kTimedOut = -7;  // LIBUSB_ERROR_TIMEOUT
constexpr int kStalled = -9;   // LIBUSB_ERROR_PIPE
const char kEnter[] = "control 40 E2 5C3E 82D4 0";
const char kLeave[] = "control 40 E2 5C37 8BD1 0";
const char kReadBlock[] = "control C0 B5 0000 0000 512";
const char kWriteBlock[] = "control 40 B6 0000 0000 512";
const char kSiliconId[] = "control C0 B1 0000 0000 4";
const char kReadFlash[] = "control C0 B2 0001 2345 300";
const char kProgFlash[] = "control 40 B3 0001 2345 300";
const char k32[] = "12345678901234567890123456789012";
const char k33[] = "123456789012345678901234567890123";

NeuronId idOf(const char* text) {
    NeuronId id;
    id.fromString(text, nullptr);
    return id;
}

std::uint32_t wordAt(const Block& block, std::size_t offset) {
    std::uint32_t word;
    std::memcpy(&word, &block[offset], sizeof word);
    return word;
}

/// What every write sets, made anew: word 168, the serial descriptor and the checksum.
void bringUpToDate(Block& block, const std::string& serial) {
    std::memset(&block[168], 0xFF, 4);
    std::memset(&block[370], 0, 66);
    block[370] = static_cast<unsigned char>(2 + 2 * serial.size());
    block[371] = 3;
    for (std::size_t i = 0; i < serial.size(); ++i) block[372 + 2 * i] = static_cast<unsigned char>(serial[i]);
    std::uint32_t sum = 0;
    for (std::size_t offset = 12; offset < 512; offset += 4) sum += wordAt(block, offset);
    std::memcpy(&block[8], &sum, 4);
}

class BridgeTest : public RigTest {
protected:
    std::span<unsigned char, 512> userFlash() { return rig.board().bridge.userFlash; }
    /// What the bridge holds now; it takes effect at the next replug.
    Block blockInBridge() {
        Block block;
        std::copy_n(rig.board().bridge.block.begin(), block.size(), block.begin());
        return block;
    }

    /// The bridge's block with bytes all over it changed: those the library sets and those it passes on.
    Block foreignBlock() {
        Block block = blockInBridge();
        for (const int i : {4, 8, 12, 27, 29, 52, 167, 168, 171, 172, 369, 371, 435, 436, 511}) block[i] ^= 0x5A;
        return block;
    }
};

// --- vendor requests

struct VendorRequest {
    const char* name;
    std::function<CY_RETURN_STATUS(CY_HANDLE)> send;
    const char* packet;
    int least;  // bytes that count as a success
    CY_RETURN_STATUS timedOut;
    UINT32 timeout = 5000;
};

unsigned char data[512];
UINT32 siliconId;
CY_FLASH_BUFFER flashBuffer{data, 300, 77, 0x12345};

// A caller in C may pass any byte.
CY_RETURN_STATUS enableWithByte2(CY_HANDLE handle) {
    const auto untyped = reinterpret_cast<void (*)()>(&CyFlashConfigEnable);
    return reinterpret_cast<CY_RETURN_STATUS (*)(CY_HANDLE, unsigned char)>(untyped)(handle, 2);
}

const VendorRequest kRequests[] = {
    {"Enter", [](CY_HANDLE h) { return CyFlashConfigEnable(h, true); }, kEnter, 0, CY_ERROR_IO_TIMEOUT},
    {"EnterByAnyByte", enableWithByte2, kEnter, 0, CY_ERROR_IO_TIMEOUT},
    {"Leave", [](CY_HANDLE h) { return CyFlashConfigEnable(h, false); }, kLeave, 0, CY_ERROR_IO_TIMEOUT},
    {"SiliconId", [](CY_HANDLE h) { return CyGetSiliconID(h, &siliconId); }, kSiliconId, 0, CY_ERROR_IO_TIMEOUT},
    {"ReadConfig", [](CY_HANDLE h) { return CyReadDeviceConfig(h, data); }, kReadBlock, 512, CY_ERROR_REQUEST_FAILED},
    {"WriteConfig", [](CY_HANDLE h) { return CyWriteDeviceConfig(h, data); }, kWriteBlock, 512,
     CY_ERROR_REQUEST_FAILED},
    {"ReadFlash", [](CY_HANDLE h) { return CyReadFlash(h, &flashBuffer, 9); }, kReadFlash, 1, CY_ERROR_IO_TIMEOUT, 9},
    {"ProgFlash", [](CY_HANDLE h) { return CyProgFlash(h, &flashBuffer, 9); }, kProgFlash, 1, CY_ERROR_IO_TIMEOUT, 9},
    {"ValidateChecksum", CyValidateChecksum, "control 40 BA 0000 0000 0", 0, CY_ERROR_REQUEST_FAILED},
};

class VendorRequestTest : public BridgeTest, public testing::WithParamInterface<VendorRequest> {};

TEST_P(VendorRequestTest, SendsItsPacketAndJudgesTheResult) {
    const VendorRequest& request = GetParam();
    EXPECT_EQ(request.send(nullptr), CY_ERROR_INVALID_HANDLE);
    EXPECT_THAT(rig.journal, IsEmpty());
    const CyHandle config(0, 1);
    for (const int result : {kTimedOut, kStalled, 0, 1, 511, 512}) {
        rig.journal.clear();
        flashBuffer.transferCount = 77;
        rig.fail(kControl, 1, result);
        const CY_RETURN_STATUS failure = result == kTimedOut ? request.timedOut : CY_ERROR_REQUEST_FAILED;
        EXPECT_EQ(request.send(config.handle), result >= request.least ? CY_SUCCESS : failure) << result;
        EXPECT_THAT(rig.journal, ElementsAre(StartsWith(request.packet)));
        EXPECT_EQ(flashBuffer.transferCount, request.least != 1 ? 77 : result < 0 ? 0 : static_cast<UINT32>(result));
    }
    request.send(config.handle);
    EXPECT_EQ(rig.lastTimeout, request.timeout);
}

INSTANTIATE_TEST_SUITE_P(All, VendorRequestTest, testing::ValuesIn(kRequests),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(BridgeTest, RequestsRefuseMissingDataAfterAMissingHandle) {
    const CyHandle config(0, 1);
    rig.journal.clear();
    EXPECT_EQ(CyGetSiliconID(nullptr, nullptr), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CyGetSiliconID(config.handle, nullptr), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyReadDeviceConfig(config.handle, nullptr), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyWriteDeviceConfig(config.handle, nullptr), CY_ERROR_INVALID_PARAMETER);
    for (const auto request : {CyReadFlash, CyProgFlash}) {
        EXPECT_EQ(request(nullptr, nullptr, 1), CY_ERROR_INVALID_HANDLE);
        EXPECT_EQ(request(config.handle, nullptr, 1), CY_ERROR_INVALID_PARAMETER);
        // Without buffer, without length, with one that would travel as 0.
        for (CY_FLASH_BUFFER record : {CY_FLASH_BUFFER{nullptr, 4, 77, 0}, {data, 0, 77, 0}, {data, 0x10000, 77, 0}}) {
            EXPECT_EQ(request(config.handle, &record, 1), CY_ERROR_INVALID_PARAMETER);
            EXPECT_EQ(record.transferCount, 77u);
        }
    }
    EXPECT_THAT(rig.journal, IsEmpty());
}

// --- configuration block

TEST_F(BridgeTest, ReadsTheBlockInConfigurationMode) {
    unsigned char block[512] = {};
    ASSERT_EQ(readConfigData(info, block), TAVO_SUCCESS);
    EXPECT_THAT(rig.journal, ElementsAre("open 0.1", kEnter, kReadBlock, kLeave, "close 0.1"));
    EXPECT_EQ(std::memcmp(block, blockInBridge().data(), 512), 0);
}

TEST_F(BridgeTest, WritesAGivenBlockWithItsOwnFieldsBroughtUpToDate) {
    Block expected = foreignBlock();
    ASSERT_EQ(Configurator(info).writeConfigData(expected.data(), "TAVO0042"), CY_SUCCESS);
    EXPECT_THAT(rig.journal, ElementsAre("open 0.1", kSiliconId, kEnter, kWriteBlock, kLeave, "close 0.1"));
    EXPECT_STREQ(info.serialNumber.text, "TAVO0042");
    bringUpToDate(expected, "TAVO0042");
    EXPECT_EQ(blockInBridge(), expected);
}

struct SerialCase {
    const char* kept;  // in the record
    const char* given;
    const char* written;  // null: refused
};
class SerialTest : public BridgeTest, public testing::WithParamInterface<SerialCase> {};

TEST_P(SerialTest, RewritesTheBlockInTheBridgeOrTouchesNothing) {
    const auto [kept, given, written] = GetParam();
    Block expected = blockInBridge();
    info.serialNumber = kept;
    EXPECT_EQ(updateCypressConfig(info, nullptr, given), written ? TAVO_SUCCESS : TAVO_INVALID_PARAMETER);
    EXPECT_STREQ(info.serialNumber.text, written ? written : kept);
    if (written) {
        EXPECT_THAT(rig.journal,
                    ElementsAre("open 0.1", kSiliconId, kEnter, kReadBlock, kWriteBlock, kLeave, "close 0.1"));
        bringUpToDate(expected, written);
    } else {
        EXPECT_THAT(rig.journal, IsEmpty());
    }
    EXPECT_EQ(blockInBridge(), expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, SerialTest,
                         testing::Values(SerialCase{"", nullptr, ""}, SerialCase{k32, nullptr, k32},
                                         SerialCase{"00001234", k32, k32}, SerialCase{k33, "7", "7"},
                                         SerialCase{k33, nullptr, nullptr}, SerialCase{"00001234", k33, nullptr},
                                         // Nothing of it can be taken: the number is blanked.
                                         SerialCase{"00001234", "Ger\xC3\xA4t 7", ""}, SerialCase{"00001234", "", ""}));

TEST_F(BridgeTest, SwitchesScb0AndLeavesTheRestOfTheBlock) {
    const unsigned char spi[16] = {0x40, 0x42, 0x0F, 0, 8, 0, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0};
    const unsigned char i2c[16] = {0xA0, 0x86, 0x01, 0, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    Block expected = blockInBridge();
    for (const int mode : {2, 3, 2, 0}) {
        rig.journal.clear();
        ASSERT_EQ(configureScb0(info, static_cast<SCB0_MODE>(mode)), TAVO_SUCCESS);
        EXPECT_THAT(rig.journal, ElementsAre("open 0.1", kEnter, kReadBlock, kLeave, "close 0.1",  //
                                             "open 0.1", kSiliconId, kEnter, kWriteBlock, kLeave, "close 0.1"));
        expected[28] = mode == 2 ? 2 : 3;
        std::memcpy(&expected[36], mode == 2 ? spi : i2c, 16);
        bringUpToDate(expected, "00001234");
        EXPECT_EQ(blockInBridge(), expected);
    }
}

// --- update from a file

TEST_F(BridgeTest, OnlyABinFileOf512BytesReachesTheBridge) {
    const std::filesystem::path folder = testing::TempDir() + "tavo-bridge-" + std::to_string(getpid());
    std::filesystem::create_directories(folder / "folder.bin");
    Block expected = foreignBlock();
    const auto fileOf = [&](const char* name, std::size_t size) {
        std::string bytes(expected.begin(), expected.end());
        bytes.resize(size);
        std::ofstream(folder / name, std::ios::binary) << bytes;
        return folder / name;
    };
    const auto openFiles = [] {
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    };
    const auto openBefore = openFiles();
    const std::pair<std::filesystem::path, TAVO_STATUS> refused[] = {
        {fileOf("empty.bin", 0), TAVO_WRONG_CONFIG_SIZE},
        {fileOf("short.bin", 511), TAVO_WRONG_CONFIG_SIZE},
        {fileOf("long.bin", 513), TAVO_WRONG_CONFIG_SIZE},
        {folder / "folder.bin", TAVO_WRONG_CONFIG_SIZE},
        {folder / "missing.bin", TAVO_FILE_NOT_FOUND},
        {folder / "missing.txt", TAVO_WRONG_FILE_EXTENSION},
        {fileOf("image.bin.bak", 512), TAVO_WRONG_FILE_EXTENSION},
    };
    for (const auto& [path, result] : refused)
        EXPECT_EQ(updateCypressConfig(info, path.c_str(), "NEW"), result) << path;
    EXPECT_STREQ(info.serialNumber.text, "00001234");
    EXPECT_THAT(rig.journal, IsEmpty());

    EXPECT_EQ(updateCypressConfig(info, fileOf("image.BIN", 512).c_str(), nullptr), TAVO_SUCCESS);
    bringUpToDate(expected, "00001234");
    EXPECT_EQ(blockInBridge(), expected) << "the image with the device's own serial number";
    EXPECT_EQ(openFiles(), openBefore);
    std::filesystem::remove_all(folder);
}

TEST(FileExtension, IsWhatFollowsTheLastDot) {
    for (const char* path : {"a.bin", "a.BIN", "a.b.Bin", "bin", "dir.x/.bin"})
        EXPECT_TRUE(checkFileExtension(path, "bin")) << path;
    for (const char* path : {"a.bin.bak", "a.", "config", "bin.d/config", "", "dir/bin"})
        EXPECT_FALSE(checkFileExtension(path, "bin")) << path;
    EXPECT_FALSE(checkFileExtension("a.bin", "BIN"));
}

// --- Neuron ID record

TEST_F(BridgeTest, StoresTheIdAndZerosTheRestOfItsPage) {
    std::ranges::fill(userFlash(), 0xA5);
    Block expected;
    expected.fill(0xA5);
    ASSERT_EQ(writeNeuronId(info, "05a1B2c3d4e5"), TAVO_SUCCESS);
    EXPECT_THAT(rig.journal, ElementsAre("open 0.1", "userflash write 0 128", "close 0.1"));
    EXPECT_EQ(rig.lastTimeout, 1000u);
    EXPECT_EQ(info.neuronId, NeuronId()) << "the record is not changed";
    std::fill_n(expected.begin(), 128, 0);
    std::copy_n(idOf("ID05A1B2C3D4E5").bytes, 6, expected.begin());
    EXPECT_TRUE(std::ranges::equal(userFlash(), expected));
}

TEST_F(BridgeTest, StoresTheIdOfTheChipOnceItsChannelIsClosed) {
    ASSERT_EQ(writeNeuronId(info), TAVO_SUCCESS);
    ASSERT_GE(rig.journal.size(), 4u);
    EXPECT_THAT(std::vector(rig.journal.end() - 4, rig.journal.end()),
                ElementsAre("ldv_close", "open 0.1", "userflash write 0 128", "close 0.1"));
    EXPECT_THAT(std::vector<int>(userFlash().begin(), userFlash().begin() + 7), ElementsAre(5, 1, 2, 3, 4, 5, 0));
}

TEST_F(BridgeTest, TouchesNothingForWhatIsRefusedOrDone) {
    for (const char* text : {"ID010203040506", "01020304050", "01020304050G", "", "000000000000", "FFFFFFFFFFFF"})
        EXPECT_EQ(writeNeuronId(info, text), TAVO_UNKNOWN_ERROR) << text;
    info.neuronId = idOf("ID010203040506");
    EXPECT_EQ(programNeuronIdIntoCypress(info, idOf("ID010203040506")), TAVO_SUCCESS) << "neuronIdValid is 0";
    EXPECT_EQ(resetCypress(info), TAVO_UNSUPPORTED_ON_OS);
    EXPECT_EQ(cyclePort(info), TAVO_UNSUPPORTED_ON_OS);
    info.productId = 0x1234;
    EXPECT_EQ(writeNeuronId(info), TAVO_WRONG_VID_PID);
    EXPECT_EQ(writeNeuronId(info, "no ID at all"), TAVO_WRONG_VID_PID);
    info.serialNumber = k33;
    EXPECT_EQ(configureScb0(info, SCB0_I2C), TAVO_INVALID_PARAMETER) << "not even the block is read";
    EXPECT_THAT(rig.journal, IsEmpty());
    EXPECT_EQ(programNeuronIdIntoCypress(info, idOf("ID010203040507")), TAVO_SUCCESS) << "tests no IDs";
}

// --- every platform call of every operation fails once

struct Operations {
    static TAVO_STATUS read(DeviceInfo& info) { return readConfigData(info, data); }
    static TAVO_STATUS serial(DeviceInfo& info) { return updateCypressConfig(info, nullptr, "NEW"); }
    static TAVO_STATUS toI2c(DeviceInfo& info) { return configureScb0(info, SCB0_I2C); }
    static TAVO_STATUS id(DeviceInfo& info) { return writeNeuronId(info, "010203040506"); }
    static TAVO_STATUS chipId(DeviceInfo& info) { return writeNeuronId(info); }
};

struct Fault {
    const char* name;
    TAVO_STATUS (*operation)(DeviceInfo&);
    const char* function;
    unsigned nth;
    int planned;
    TAVO_STATUS result;
    bool modeLeftOn = false;
    bool newSerialInRecord = false;
    bool written = false;  // the bridge holds the new block all the same
};

const Fault kFaults[] = {
    {"ReadOpen", Operations::read, "CyOpen", 1, CY_ERROR_DRIVER_OPEN_FAILED, TAVO_DEVICE_OPEN_FAILED},
    {"ReadEnter", Operations::read, kControl, 1, kTimedOut, TAVO_TIMEOUT},
    {"ReadBlock", Operations::read, kControl, 2, 511, TAVO_REQUEST_FAILED, true},
    {"ReadLeave", Operations::read, kControl, 3, kTimedOut, TAVO_TIMEOUT, true},
    {"WriteOpen", Operations::serial, "CyOpen", 1, CY_ERROR_ACCESS_DENIED, TAVO_ACCESS_DENIED},
    {"WriteSiliconId", Operations::serial, kControl, 1, kStalled, TAVO_REQUEST_FAILED},
    {"WriteEnter", Operations::serial, kControl, 2, kTimedOut, TAVO_TIMEOUT},
    {"WriteReadBlock", Operations::serial, kControl, 3, kTimedOut, TAVO_REQUEST_FAILED, true},
    {"WriteBlock", Operations::serial, kControl, 4, 511, TAVO_REQUEST_FAILED, true, true},
    {"WriteLeave", Operations::serial, kControl, 5, kStalled, TAVO_REQUEST_FAILED, true, true, true},
    {"Scb0Read", Operations::toI2c, kControl, 2, 0, TAVO_REQUEST_FAILED, true},
    {"Scb0LeaveAfterRead", Operations::toI2c, kControl, 3, kTimedOut, TAVO_TIMEOUT, true},
    {"Scb0Reopen", Operations::toI2c, "CyOpen", 2, CY_ERROR_DEVICE_NOT_FOUND, TAVO_DEVICE_NOT_FOUND},
    {"Scb0Write", Operations::toI2c, kControl, 6, kTimedOut, TAVO_REQUEST_FAILED, true},
    {"Scb0Leave", Operations::toI2c, kControl, 7, kTimedOut, TAVO_TIMEOUT, true, false, true},
    {"IdOpen", Operations::id, "CyOpen", 1, CY_ERROR_DRIVER_OPEN_FAILED, TAVO_DEVICE_OPEN_FAILED},
    {"IdWrite", Operations::id, "CyProgUserFlash", 1, CY_ERROR_IO_TIMEOUT, TAVO_TIMEOUT},
    {"ChipIdChannel", Operations::chipId, "ldv_open", 1, 1, TAVO_DEVICE_OPEN_FAILED},
    {"ChipIdRequest", Operations::chipId, "ldv_write", 1, 4, TAVO_TRANSACTION_FAILED},
    {"ChipIdOpen", Operations::chipId, "CyOpen", 1, CY_ERROR_DRIVER_OPEN_FAILED, TAVO_DEVICE_OPEN_FAILED},
};

TEST_F(BridgeTest, OpensTheConfigurationInterfaceThatTheRecordNames) {
    info.configDeviceNumber = 5;
    info.configInterfaceNumber = 4;
    info.scb0DeviceNumber = 3;
    for (const auto operation : {Operations::read, Operations::serial, Operations::toI2c, Operations::id}) {
        rig.journal.clear();
        rig.fail("CyOpen", 1, CY_ERROR_DRIVER_OPEN_FAILED);
        EXPECT_EQ(operation(info), TAVO_DEVICE_OPEN_FAILED);
        EXPECT_THAT(rig.journal, ElementsAre("open 5.4 !4"));
    }
}

class BridgeFault : public BridgeTest, public testing::WithParamInterface<Fault> {};

TEST_P(BridgeFault, EndsTheOperation) {
    const Fault& fault = GetParam();
    const Block block = blockInBridge();
    rig.fail(fault.function, fault.nth, fault.planned);
    EXPECT_EQ(fault.operation(info), fault.result);
    EXPECT_EQ(rig.leftovers(), "");
    // Nothing follows but the close.
    EXPECT_EQ(rig.calls(fault.function), fault.nth);
    EXPECT_EQ(rig.board().bridge.inConfigurationMode, fault.modeLeftOn);
    EXPECT_STREQ(info.serialNumber.text, fault.newSerialInRecord ? "NEW" : "00001234");
    EXPECT_EQ(blockInBridge() != block, fault.written);
    EXPECT_EQ(userFlash()[0], 0xFF);
}

INSTANTIATE_TEST_SUITE_P(Calls, BridgeFault, testing::ValuesIn(kFaults),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
