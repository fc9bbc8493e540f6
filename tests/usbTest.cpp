// The bridge library's functions against a scripted libusb: setup packets, endpoints, lengths, order,
// and what is left behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "platform/cyusbserial.h"
#include "platform/deviceLock.h"
#include "platform/discovery.h"
#include "platform/portPath.h"
#include "tests/scriptedUsb.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

libusb_endpoint_descriptor endpoint(uint8_t address, uint8_t type) {
    libusb_endpoint_descriptor descriptor{};
    descriptor.bEndpointAddress = address;
    descriptor.bmAttributes = type;
    descriptor.wMaxPacketSize = 64;
    return descriptor;
}

InterfaceSpec serialBlock(unsigned char subclass, uint8_t out, uint8_t in, uint8_t interrupt) {
    // Interrupt endpoints stand before and after: addresses go by type and direction, not by place.
    return {0xFF, subclass, {endpoint(interrupt, 3), endpoint(out, 2), endpoint(in, 2), endpoint(0x8F, 3)}};
}

const InterfaceSpec kManufacturing{0xFF, 0x05, {}};
constexpr auto kReset = "40 CB 0000 0000 0";
constexpr auto kResetOfBlock1 = "40 CB 8000 0000 0";

const InterfaceSpec kKeyboard{0x03, 0x01, {endpoint(0x81, 3)}};

class UsbTest : public testing::Test {
protected:
    UsbTest() {
        usb = ScriptedUsb{};
        bridge.interfaces = {serialBlock(0x02, 0x01, 0x82, 0x83), serialBlock(0x02, 0x04, 0x85, 0x86), kManufacturing};
        hub.address = 1;
        hub.vendorId = 0x1D6B;
        hub.productId = 0x0002;
        hub.ports = {};
        usb.attached = {&hub, &bridge};
        UINT8 count = 0;
        EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
        EXPECT_EQ(count, 2);
    }

    void TearDown() override {
        if (handle != nullptr) {
            EXPECT_EQ(CyClose(handle), CY_SUCCESS);
        }
        for (const Step& step : usb.script) ADD_FAILURE() << "never called: " << step.call;
        usb.attached.clear();
        UINT8 count = 1;
        EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
        EXPECT_EQ(count, 0);
        EXPECT_THAT(usb.open, IsEmpty());
        EXPECT_THAT(usb.transfers, IsEmpty());
        EXPECT_EQ(usb.configs, 0);
        for (const libusb_device* device : {&hub, &bridge}) {
            EXPECT_EQ(device->references, 0);
            EXPECT_THAT(device->claims, IsEmpty());
        }
    }

    CY_HANDLE open(UINT8 interface = 0) {
        CY_HANDLE opened = nullptr;
        EXPECT_EQ(CyOpen(kBridge, interface, &opened), CY_SUCCESS);
        return opened;
    }

    void expect(std::initializer_list<Step> steps) { usb.script.insert(usb.script.end(), steps); }
    /// Comes before the first SPI request of a process to an interface. Each test plugs its device in anew.
    void expectFirstReset(UINT8 interface = 0) { expect({control(interface == 0 ? kReset : kResetOfBlock1)}); }
    /// An interface that another program has claimed is tried again every 20 ms for half a second.
    void expectAllOfTheWait() { usb.script.insert(usb.script.end(), 25, sleepStep(20)); }

    static constexpr UINT8 kBridge = 1;
    ScriptedUsb& usb = scriptedUsb();
    libusb_device hub;
    libusb_device bridge;
    CY_HANDLE handle = nullptr;  // closed by TearDown
};

// Devices and handles

TEST_F(UsbTest, HandlesOnOneInterfaceShareAClaimAndTheLastOneGivesTheDriverBack) {
    bridge.boundDrivers = {0, 1};
    CY_HANDLE first = open();
    CY_HANDLE second = open();
    EXPECT_NE(first, second);
    EXPECT_EQ(usb.open.size(), 1U);
    CY_HANDLE other = open(1);
    EXPECT_EQ(usb.open.size(), 2U);
    EXPECT_THAT(bridge.boundDrivers, IsEmpty());
    EXPECT_EQ(CyClose(first), CY_SUCCESS);
    EXPECT_EQ(CyClose(first), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(bridge.claims.size(), 2U);
    EXPECT_EQ(CyClose(second), CY_SUCCESS);
    EXPECT_THAT(bridge.boundDrivers, ElementsAre(0));
    EXPECT_EQ(CyClose(other), CY_SUCCESS);
    EXPECT_THAT(bridge.boundDrivers, ElementsAre(0, 1));
}

TEST_F(UsbTest, AHandleOutlivesTheListItsDeviceWasFoundIn) {
    handle = open();
    usb.attached = {&hub};
    UINT8 count = 0;
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
    EXPECT_EQ(count, 1);
    CY_HANDLE none = nullptr;
    EXPECT_EQ(CyOpen(kBridge, 0, &none), CY_ERROR_INVALID_PARAMETER);
    expect({control("40 DB 0008 0001 0")});
    EXPECT_EQ(CySetGpioValue(handle, 8, 1), CY_SUCCESS);
}

TEST_F(UsbTest, AListIsTakenThroughANewContextUnlessAHandleIsOpen) {
    UINT8 count = 0;
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
    const int made = usb.contextsMade;
    const int contexts = usb.contextsOpen;
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);  // sees what was plugged in where no udev tells
    EXPECT_EQ(usb.contextsMade, made + 1);
    handle = open();
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
    EXPECT_EQ(usb.contextsMade, made + 1);
    EXPECT_EQ(usb.contextsOpen, contexts);
}

TEST_F(UsbTest, TheRecordBehindAHandleHasTheLibusbHandleWhereVendorRequestsLook) {
    handle = open(1);
    libusb_device_handle* stored = nullptr;
    std::memcpy(&stored, static_cast<char*>(handle) + 31, sizeof stored);
    EXPECT_EQ(stored, *usb.open.begin());
    EXPECT_EQ(static_cast<unsigned char*>(handle)[3], 1);
    expect({control(kResetOfBlock1)});
    EXPECT_EQ(libusb_control_transfer(libusbHandleOf(handle), 0x40, 0xCB, 0x8000, 0, nullptr, 0, 5000), 0);
}

struct OpenCase {
    const char* name;
    int openResult;
    UINT8 interface;
    CY_RETURN_STATUS status;
};
class UsbOpenFailure : public UsbTest, public testing::WithParamInterface<OpenCase> {};
TEST_P(UsbOpenFailure, HasItsStatusAndLeavesNothingOpen) {
    bridge.openResult = GetParam().openResult;
    bridge.foreignClaims = {1};
    if (GetParam().interface == 1) expectAllOfTheWait();
    CY_HANDLE opened = nullptr;
    EXPECT_EQ(CyOpen(kBridge, GetParam().interface, &opened), GetParam().status);
    EXPECT_EQ(opened, nullptr);
    EXPECT_THAT(usb.open, IsEmpty());
}
template <typename Case>
std::string caseName(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(, UsbOpenFailure,
                         testing::Values(OpenCase{"NoPermission", LIBUSB_ERROR_ACCESS, 0, CY_ERROR_ACCESS_DENIED},
                                         OpenCase{"Unplugged", LIBUSB_ERROR_NO_DEVICE, 0, CY_ERROR_DEVICE_NOT_FOUND},
                                         OpenCase{"NoMemory", LIBUSB_ERROR_NO_MEM, 0, CY_ERROR_ALLOCATION_FAILED},
                                         OpenCase{"OtherError", LIBUSB_ERROR_IO, 0, CY_ERROR_DRIVER_OPEN_FAILED},
                                         OpenCase{"HeldElsewhere", LIBUSB_SUCCESS, 1, CY_ERROR_DRIVER_OPEN_FAILED},
                                         OpenCase{"NoInterface", LIBUSB_SUCCESS, 3, CY_ERROR_DRIVER_OPEN_FAILED}),
                         caseName<OpenCase>);

TEST_F(UsbTest, AShortClaimByAnotherProgramIsWaitedFor) {
    bridge.foreignClaims = {0};
    Step otherLetsGo = sleepStep(20);
    otherLetsGo.meanwhile = [&] { bridge.foreignClaims.clear(); };
    expect({sleepStep(20), otherLetsGo});
    handle = open();
}

TEST_F(UsbTest, ADescriptionKeepsWhatIsKnownWithoutPermission) {
    CY_DEVICE_INFO info{};
    EXPECT_EQ(CyGetDeviceInfo(kBridge, &info), CY_SUCCESS);
    EXPECT_STREQ(reinterpret_cast<char*>(info.serialNum), "00001234");
    EXPECT_EQ(info.numInterfaces, 3);
    EXPECT_EQ(info.deviceType[2], CY_TYPE_MFG);
    bridge.strings[2] = "!";
    EXPECT_EQ(CyGetDeviceInfo(kBridge, &info), CY_ERROR_DEVICE_INFO_FETCH_FAILED);
    bridge.openResult = LIBUSB_ERROR_ACCESS;
    EXPECT_EQ(CyGetDeviceInfo(kBridge, &info), CY_ERROR_ACCESS_DENIED);
    EXPECT_EQ(info.vidPid.pid, 0x0004);
    EXPECT_EQ(info.deviceType[0], CY_TYPE_SPI);
    EXPECT_EQ(CyGetDeviceInfo(2, &info), CY_ERROR_INVALID_PARAMETER);
}

TEST_F(UsbTest, ADeviceKeepsItsNumberWhileOthersComeAndGo) {
    libusb_device other;
    other.ports = {1};
    other.address = 6;
    const auto placeOf = [](UINT8 number) {
        char path[16] = "none";
        CyGetPortPath(number, path, sizeof path);
        return std::string(path);
    };
    UINT8 count = 0;
    usb.attached = {&other, &bridge, &hub};
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
    EXPECT_EQ(count, 3);
    EXPECT_THAT((std::vector{placeOf(0), placeOf(1), placeOf(2)}), ElementsAre("1-0", "1-4.2", "1-1"));
    usb.attached = {&bridge};
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
    EXPECT_EQ(count, 2);
    EXPECT_THAT((std::vector{placeOf(0), placeOf(1), placeOf(2)}), ElementsAre("none", "1-4.2", "none"));
}

TEST_F(UsbTest, ABusOfMoreThan255DevicesHas255Numbers) {
    std::vector<libusb_device> many(256, hub);
    usb.attached.clear();
    for (libusb_device& device : many) {
        device.ports = {3, static_cast<uint8_t>(usb.attached.size())};
        usb.attached.push_back(&device);
    }
    const auto countThem = [] {
        UINT8 count = 0;
        std::exit(CyGetListofDevices(&count) == CY_SUCCESS ? count : 0);
    };
    EXPECT_EXIT(countThem(), testing::ExitedWithCode(255), "");  // a process of its own: numbers stay with their places
    usb.attached.clear();
}

TEST_F(UsbTest, ABoundKernelDriverIsToldAndLeftAlone) {
    bridge.busNumber = 250;  // the machine of the test has no such bus, so its own devices do not answer
    bridge.boundDrivers = {0};
    char name[8] = "as was";
    EXPECT_EQ(CyGetKernelDriver(kBridge, 0, name, 7), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyGetKernelDriver(3, 0, name, 8), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyGetKernelDriver(kBridge, 0, nullptr, 8), CY_ERROR_INVALID_PARAMETER);
    EXPECT_STREQ(name, "as was");
    EXPECT_EQ(CyGetKernelDriver(kBridge, 0, name, 8), CY_SUCCESS);
    EXPECT_STREQ(name, "unknown");
    EXPECT_EQ(CyGetKernelDriver(kBridge, 1, name, 8), CY_SUCCESS);
    EXPECT_STREQ(name, "");
    EXPECT_THAT(bridge.boundDrivers, ElementsAre(0));
    for (const auto& [result, status] : {std::pair{LIBUSB_ERROR_ACCESS, CY_ERROR_ACCESS_DENIED},
                                         {LIBUSB_ERROR_NO_DEVICE, CY_ERROR_DEVICE_NOT_FOUND},
                                         {LIBUSB_ERROR_IO, CY_ERROR_DRIVER_OPEN_FAILED}}) {
        bridge.openResult = result;
        EXPECT_EQ(CyGetKernelDriver(kBridge, 0, name, 8), status);
    }
}

TEST_F(UsbTest, OtherDevicesAreDescribedUnopened) {
    hub.openResult = LIBUSB_ERROR_IO;
    CY_DEVICE_INFO info{};
    EXPECT_EQ(CyGetDeviceInfo(0, &info), CY_SUCCESS);
    EXPECT_EQ(info.vidPid.vid, 0x1D6B);
    EXPECT_EQ(info.productName[0], 0);
    bridge.openResult = LIBUSB_ERROR_IO;
    EXPECT_EQ(CyGetDeviceInfo(kBridge, &info), CY_ERROR_DEVICE_INFO_FETCH_FAILED);
    bridge.interfaces = {kKeyboard};  // the bridge's IDs alone
    EXPECT_EQ(CyGetDeviceInfo(kBridge, &info), CY_SUCCESS);
}

TEST_F(UsbTest, APortPathIsTheKernelsNameOfThePlace) {
    char path[] = "?234567";
    EXPECT_EQ(CyGetPortPath(kBridge, path, 5), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(path[0], '?');
    EXPECT_EQ(CyGetPortPath(kBridge, path, 6), CY_SUCCESS);
    EXPECT_STREQ(path, "1-4.2");
    EXPECT_EQ(path[6], '7') << "written beyond the size";
    EXPECT_EQ(CyGetPortPath(0, path, 6), CY_SUCCESS);
    EXPECT_STREQ(path, "1-0");
}

// Discovery

const Bytes kOurs = {'C', 'Y', 'U', 'S'};
constexpr auto kSignature = "C0 BD 0000 0000 4";
constexpr auto kNeuronIdRecord = "C0 E1 0000 0000 128";

class UsbDiscoveryTest : public UsbTest {
protected:
    UsbDiscoveryTest() {
        // A place of its own: the lock of a place counts on the whole machine.
        const auto pid = static_cast<unsigned>(getpid());
        bridge.ports = {4, static_cast<uint8_t>(pid), static_cast<uint8_t>(pid >> 8), static_cast<uint8_t>(pid >> 16)};
        char path[32] = {};
        EXPECT_EQ(CyGetPortPath(kBridge, path, sizeof path), CY_SUCCESS);
        place = path;
    }
    ~UsbDiscoveryTest() override {
        for (const char* folder : {"/run/lock", "/tmp"}) {
            std::filesystem::remove(std::string(folder) + "/tavo-util-" + place + ".lock");
        }
    }

    std::vector<platform::AttachedDevice> discover() {
        std::vector<platform::AttachedDevice> devices;
        EXPECT_EQ(platform::discoverDevices(devices), CY_SUCCESS);
        EXPECT_THAT(bridge.claims, IsEmpty());
        return devices;
    }

    std::string place;
};

TEST_F(UsbDiscoveryTest, ListsAClosedDeviceBesideAnOpenOne) {
    libusb_device denied;
    denied.interfaces = {serialBlock(0x03, 0x01, 0x82, 0x83), kManufacturing};
    denied.openResult = LIBUSB_ERROR_ACCESS;
    denied.ports = {7};
    usb.attached = {&hub, &denied, &bridge};
    Bytes record(128, 0);
    std::copy_n("\x05\x01\x02\x03\x04\x05", 6, record.begin());
    expect({control(kSignature, kOurs), control(kNeuronIdRecord, record)});
    auto devices = discover();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].status, CY_ERROR_ACCESS_DENIED);
    EXPECT_STREQ(devices[0].info.portPath, "1-7");
    EXPECT_FALSE(devices[0].info.serialNumberValid);
    EXPECT_TRUE(devices[0].scb0Found && !devices[0].scb0IsSpi);
    const DeviceInfo& info = devices[1].info;
    EXPECT_EQ(devices[1].status, CY_SUCCESS);
    EXPECT_EQ(devices[1].lockHolder, 0);
    char path[32] = {};
    EXPECT_EQ(CyGetPortPath(info.configDeviceNumber, path, sizeof path), CY_SUCCESS);
    EXPECT_EQ(path, place);
    EXPECT_EQ(info.configInterfaceNumber, 2);
    EXPECT_STREQ(info.serialNumber.text, "00001234");
    EXPECT_TRUE(info.serialNumberValid && info.neuronIdValid);
    EXPECT_EQ(hex(info.neuronId.bytes, 6), "05 01 02 03 04 05");
    usb.attached.clear();
    EXPECT_THAT(discover(), IsEmpty());
    EXPECT_EQ(denied.references, 0);
}

TEST_F(UsbDiscoveryTest, AnErasedUserFlashGivesNoNeuronId) {
    for (const Bytes& record : {Bytes(128, 0xFF), Bytes(128, 0x00), Bytes(5, 0x11)}) {
        expect({control(kSignature, kOurs), control(kNeuronIdRecord, record)});
        EXPECT_FALSE(discover().at(0).info.neuronIdValid);
    }
}

TEST_F(UsbDiscoveryTest, OnlyTheRightAnswerMakesADeviceABridge) {
    const Bytes bootLoader = {'C', 'Y', 'B', 'L'};
    for (const Step& answer :
         {control(kSignature, bootLoader), control(kSignature, {'C', 'Y', 'U'}), controlFails(kSignature, 0),
          controlFails(kSignature, LIBUSB_ERROR_PIPE), controlFails(kSignature, LIBUSB_ERROR_NO_DEVICE)}) {
        expect({answer});
        EXPECT_THAT(discover(), IsEmpty()) << answer.result;
    }
    expect({controlFails(kSignature, LIBUSB_ERROR_TIMEOUT)});
    EXPECT_EQ(discover().at(0).status, CY_ERROR_IO_TIMEOUT) << "a bridge that hangs is shown";
    expect({controlFails(kSignature, LIBUSB_ERROR_IO)});
    EXPECT_EQ(discover().at(0).status, CY_ERROR_REQUEST_FAILED);
}

TEST_F(UsbDiscoveryTest, ADeviceWithoutTheManufacturingInterfaceIsNeitherListedNorAsked) {
    bridge.productId = 0x000A;
    for (const InterfaceSpec& only : {kKeyboard, serialBlock(0x02, 0x01, 0x82, 0x83), InterfaceSpec{0x03, 0x05, {}}}) {
        bridge.interfaces = {only};
        EXPECT_THAT(discover(), IsEmpty());
    }
}

TEST_F(UsbDiscoveryTest, ASerialBlockAboveInterface0IsNotBlock0) {
    for (const unsigned char subclass : Bytes{0x02, 0x03}) {
        bridge.interfaces = {
            {0x02, 0x02, {}}, {0x0A, 0x00, {}}, serialBlock(subclass, 0x04, 0x85, 0x86), kManufacturing};
        expect({control(kSignature, kOurs), control(kNeuronIdRecord, Bytes(128, 0xFF))});
        const auto devices = discover();
        EXPECT_FALSE(devices.at(0).scb0Found || devices[0].scb0IsSpi);
        EXPECT_EQ(devices[0].info.configInterfaceNumber, 3);
    }
}

TEST_F(UsbDiscoveryTest, ADeviceThatDoesNotOpenIsListedWithItsStatus) {
    bridge.openResult = LIBUSB_ERROR_IO;
    EXPECT_EQ(discover().at(0).status, CY_ERROR_DEVICE_INFO_FETCH_FAILED);
}

TEST_F(UsbDiscoveryTest, ADeviceClaimedWithoutTheLockIsBusy) {
    bridge.foreignClaims = {2};
    expectAllOfTheWait();
    const auto devices = discover();
    EXPECT_EQ(devices.at(0).lockHolder, -1);
    EXPECT_EQ(devices[0].status, CY_SUCCESS);
    EXPECT_STREQ(devices[0].info.serialNumber.text, "00001234");
}

TEST_F(UsbDiscoveryTest, ADeviceThatThisProcessHasLockedIsReadAsAlways) {
    const platform::DeviceLock own(place);
    handle = open(2);
    expect({control(kSignature, kOurs), control(kNeuronIdRecord, Bytes(128, 0x05))});
    std::vector<platform::AttachedDevice> devices;
    EXPECT_EQ(platform::discoverDevices(devices), CY_SUCCESS);
    EXPECT_EQ(devices.at(0).lockHolder, 0);
    EXPECT_TRUE(devices[0].info.neuronIdValid);
}

TEST_F(UsbDiscoveryTest, ALookIsWaitedForAndARunIsNot) {
    std::optional<platform::DeviceLock> look(std::in_place, place, platform::LockPurpose::Look);
    Step lookEnds = sleepStep(20);
    lookEnds.meanwhile = [&] { look.reset(); };
    expect({sleepStep(20), lookEnds});
    const platform::DeviceLock run(place);
    EXPECT_TRUE(run.isHeld());
    EXPECT_TRUE(platform::DeviceLock(place, platform::LockPurpose::Look).isBusy());
    EXPECT_TRUE(platform::DeviceLock(place).isBusy());
}

// Requests on endpoint 0

TEST_F(UsbTest, WrongArgumentsSendNothing) {
    CY_SPI_CONFIG config{};
    UINT8 level = 0;
    UCHAR byte = 0;
    CY_DATA_BUFFER one{&byte, 1, 0};
    CY_DATA_BUFFER empty{&byte, 0, 0};
    CY_DATA_BUFFER missing{nullptr, 1, 0};
    Bytes large(65536);
    CY_DATA_BUFFER tooLong{large.data(), 65536, 0};
    EXPECT_EQ(CyGetSpiConfig(nullptr, &config), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CySetSpiConfig(nullptr, nullptr), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CySpiReadWrite(nullptr, &one, &one, 1), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CyGetGpioValue(nullptr, 8, &level), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CySetGpioValue(nullptr, 8, 0), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CyReadUserFlash(nullptr, &one, 0, 1), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CyClose(nullptr), CY_ERROR_INVALID_HANDLE);
    EXPECT_EQ(CyGetListofDevices(nullptr), CY_ERROR_INVALID_PARAMETER);
    handle = open();
    EXPECT_EQ(CyGetSpiConfig(handle, nullptr), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyGetGpioValue(handle, 8, nullptr), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CySpiReadWrite(handle, nullptr, &empty, 1), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CySpiReadWrite(handle, &missing, nullptr, 1), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CySpiReadWrite(handle, nullptr, &tooLong, 1), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CySpiReadWrite(handle, &one, &tooLong, 1), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyProgUserFlash(handle, &empty, 0, 1), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyProgUserFlash(handle, &tooLong, 0, 1), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CyReadUserFlash(handle, &one, 0x10000, 1), CY_ERROR_INVALID_PARAMETER);
}

TEST_F(UsbTest, AnSpiConfigurationIsThe16ByteRecordOfItsBlock) {
    handle = open(1);
    expectFirstReset(1);
    expect({control("C0 C2 8000 0000 16", {0xA0, 0xBB, 0x0D, 0, 8, 1, 0, 1, 0, 1, 1, 1, 0, 0, 0, 0})});
    CY_SPI_CONFIG config{};
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_SUCCESS);
    EXPECT_EQ(config.frequency, 900000U);
    EXPECT_TRUE(config.isCpha && !config.isCpol);
    EXPECT_TRUE(config.isMsbFirst && !config.isMaster && config.isContinuousMode && config.isSelectPrecede);
    EXPECT_EQ(config.protocol, CY_SPI_TI);
    config.protocol = CY_SPI_MOTOROLA;
    config.isMaster = true;
    // isSelectPrecede goes back as it was read: the chip's own configuration block has it set.
    expect({control("40 C3 8000 0000 16 | A0 BB 0D 00 08 00 00 01 01 01 01 01 00 00 00 00")});
    EXPECT_EQ(CySetSpiConfig(handle, &config), CY_SUCCESS);
}

TEST_F(UsbTest, AnImpossibleSpiConfigurationIsRefusedWithoutARequest) {
    handle = open();
    const CY_SPI_CONFIG good{900000, 8, CY_SPI_MOTOROLA, true, true, true, false, false, false};
    const auto status = [&](auto change) {
        CY_SPI_CONFIG config = good;
        change(config);
        return CySetSpiConfig(handle, &config);
    };
    EXPECT_EQ(status([](auto& c) { c.frequency = 999; }), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(status([](auto& c) { c.frequency = 3000001; }), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(status([](auto& c) { c.dataWidth = 17; }), CY_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(status([](auto& c) { c.protocol = CY_SPI_TI; }), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(status([](auto& c) { c.protocol = CY_SPI_NS, c.isCpha = true; }), CY_ERROR_REQUEST_FAILED);
}

TEST_F(UsbTest, SpiFunctionsNeedAnSpiInterface) {
    handle = open(2);
    CY_SPI_CONFIG config{900000, 8, CY_SPI_MOTOROLA, true, true, true, false, false, false};
    UCHAR byte = 0;
    CY_DATA_BUFFER one{&byte, 1, 0};
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(CySetSpiConfig(handle, &config), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(CySpiReadWrite(handle, nullptr, &one, 1), CY_ERROR_REQUEST_FAILED);
}

TEST_F(UsbTest, PinsAndUserFlashWorkOnAnyInterface) {
    handle = open(2);
    UINT8 level = 9;
    Bytes data(128, 0x5A);
    CY_DATA_BUFFER buffer{data.data(), 128, 0};
    expect({control("40 DB 0008 0001 0"), control("C0 DA 000E 0000 2", {0, 1}), control("C0 DA 000E 0000 2", {1, 0}),
            control("40 E0 0000 0080 128 | " + hex(data.data(), 128)), control("C0 E1 0000 0000 128", Bytes(1, 7))});
    EXPECT_EQ(CySetGpioValue(handle, 8, 200), CY_SUCCESS);
    EXPECT_EQ(CyGetGpioValue(handle, 14, &level), CY_SUCCESS);
    EXPECT_EQ(CyGetGpioValue(handle, 14, &level), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(level, 1) << "unchanged by a refused pin";
    EXPECT_EQ(CyProgUserFlash(handle, &buffer, 128, 1000), CY_SUCCESS);
    EXPECT_EQ(buffer.transferCount, 128U);
    EXPECT_EQ(CyReadUserFlash(handle, &buffer, 0, 1000), CY_SUCCESS);
    EXPECT_EQ(buffer.transferCount, 1U);
}

struct ResultCase {
    const char* name;
    const char* setup;
    int result;
    CY_RETURN_STATUS status;
};
class UsbRequestFailure : public UsbTest, public testing::WithParamInterface<ResultCase> {};
TEST_P(UsbRequestFailure, HasItsStatus) {
    handle = open();
    const std::string request = std::string(GetParam().setup).substr(3, 2);
    if (request == "C2" || request == "CA") expectFirstReset();
    expect({controlFails(GetParam().setup, GetParam().result)});
    if (request == "CA" && GetParam().result != LIBUSB_ERROR_NO_DEVICE) expect({control(kReset)});
    CY_SPI_CONFIG config{};
    UINT8 level = 0;
    UCHAR bytes[2] = {0xAB, 0xCD};
    CY_DATA_BUFFER buffer{bytes, 2, 9};  // 9: only a user-flash request writes it here
    CY_RETURN_STATUS status = CY_SUCCESS;
    if (request == "C2") status = CyGetSpiConfig(handle, &config);
    if (request == "DA") status = CyGetGpioValue(handle, 8, &level);
    if (request == "DB") status = CySetGpioValue(handle, 8, 0);
    if (request == "E0") status = CyProgUserFlash(handle, &buffer, 0, 1000);
    if (request == "CA") status = CySpiReadWrite(handle, nullptr, &buffer, 10000);
    EXPECT_EQ(status, GetParam().status);
    EXPECT_EQ(buffer.transferCount, request == "E0" ? 0U : 9U);
}
constexpr auto kGetSpi = "C0 C2 0000 0000 16", kGetPin = "C0 DA 0008 0000 2", kSetPin = "40 DB 0008 0000 0",
               kFlash = "40 E0 0000 0000 2 | AB CD", kStart = "40 CA 0002 0002 0";
INSTANTIATE_TEST_SUITE_P(
    , UsbRequestFailure,
    testing::Values(ResultCase{"ShortSpiRecord", kGetSpi, 15, CY_ERROR_REQUEST_FAILED},
                    ResultCase{"SpiRecordTimeout", kGetSpi, LIBUSB_ERROR_TIMEOUT, CY_ERROR_IO_TIMEOUT},
                    ResultCase{"SpiRecordGone", kGetSpi, LIBUSB_ERROR_NO_DEVICE, CY_ERROR_DEVICE_NOT_FOUND},
                    ResultCase{"PinStalls", kGetPin, LIBUSB_ERROR_PIPE, CY_ERROR_REQUEST_FAILED},
                    ResultCase{"ShortPin", kGetPin, 1, CY_ERROR_REQUEST_FAILED},
                    ResultCase{"PinRefused", kSetPin, LIBUSB_ERROR_PIPE, CY_ERROR_REQUEST_FAILED},
                    ResultCase{"PinGone", kSetPin, LIBUSB_ERROR_NO_DEVICE, CY_ERROR_DEVICE_NOT_FOUND},
                    ResultCase{"FlashTimeout", kFlash, LIBUSB_ERROR_TIMEOUT, CY_ERROR_IO_TIMEOUT},
                    ResultCase{"FlashTakesNothing", kFlash, 0, CY_ERROR_REQUEST_FAILED},
                    ResultCase{"StartStalls", kStart, LIBUSB_ERROR_PIPE, CY_ERROR_REQUEST_FAILED},
                    ResultCase{"StartTimeout", kStart, LIBUSB_ERROR_TIMEOUT, CY_ERROR_REQUEST_FAILED},
                    ResultCase{"StartGone", kStart, LIBUSB_ERROR_NO_DEVICE, CY_ERROR_DEVICE_NOT_FOUND}),
    caseName<ResultCase>);

// SPI transfers

const Bytes kIdle = {0, 0, 0, 0};
const Bytes kBusy = {0, 1, 0, 0};
constexpr auto kStatus = "C0 CC 0000 0000 4";

TEST_F(UsbTest, AWriteIsOverWhenTheBridgeIsIdle) {
    handle = open(1);
    usb.limit = 0;
    expectFirstReset(1);
    expect({control("40 CA 8002 0001 0"), submit("04 1 | 06"), comesBackWritten("04", 1), sleepStep(),
            control("C0 CC 8000 0000 4", kBusy), sleepStep(), control("C0 CC 8000 0000 4", kIdle)});
    UCHAR command = 0x06;
    CY_DATA_BUFFER write{&command, 1, 0};
    EXPECT_EQ(CySpiReadWrite(handle, nullptr, &write, 0), CY_SUCCESS);
    EXPECT_EQ(write.transferCount, 1U);
}

/// Writes of an interface whose clock was set to 900 kHz.
class UsbWriteTest : public UsbTest {
protected:
    UsbWriteTest() {
        handle = open();
        expectFirstReset();
        setClock(900000, "A0 BB 0D 00");
    }
    void setClock(UINT32 frequency, const std::string& bytes) {
        expect({control("40 C3 0000 0000 16 | " + bytes + " 08 00 00 01 01 01 00 00 00 00 00 00")});
        CY_SPI_CONFIG config{frequency, 8, CY_SPI_MOTOROLA, true, true, true, false, false, false};
        EXPECT_EQ(CySetSpiConfig(handle, &config), CY_SUCCESS);
    }
    void expectSent(std::size_t length) {
        char start[32];
        std::snprintf(start, sizeof start, "40 CA 0002 %04zX 0", length);
        expect({control(start),
                submit("01 " + std::to_string(length) + " | " + hex(Bytes(length, 0x5A).data(), length)),
                comesBackWritten("01", static_cast<int>(length))});
    }
    CY_RETURN_STATUS write(std::size_t length, UINT32 timeout = 10000) {
        data.assign(length, 0x5A);
        record = {data.data(), static_cast<UINT32>(length), 0};
        return CySpiReadWrite(handle, nullptr, &record, timeout);
    }

    Bytes data;
    CY_DATA_BUFFER record{};
};

TEST_F(UsbWriteTest, IsAskedAboutAtOnceWhenItsBytesTakeLessThanAFrame) {
    for (const std::size_t length : {1U, 112U}) {
        expectSent(length);
        expect({control(kStatus, kBusy), sleepStep(), control(kStatus, kIdle)});
        EXPECT_EQ(write(length), CY_SUCCESS);
    }
}

TEST_F(UsbWriteTest, IsAskedAboutAfterWhatItsBytesTakeAtTheClockSetLast) {
    const auto takes = [&](std::size_t length, long milliseconds) {
        expectSent(length);
        expect({sleepStep(milliseconds), control(kStatus, kIdle)});
        EXPECT_EQ(write(length), CY_SUCCESS) << length;
    };
    takes(113, 1);
    takes(260, 2);
    takes(2000, 2);  // all but the last 256 were shifted while the bridge took the others
    setClock(1000, "E8 03 00 00");
    takes(2, 16);
}

TEST_F(UsbWriteTest, IsNotWaitedForBeyondTheTimeOfTheCall) {
    setClock(1000, "E8 03 00 00");
    usb.limit = 5;
    usb.busyForever = true;
    expectSent(260);
    expect({control(kReset), control("C0 C2 0000 0000 16", Bytes{0xE8, 3, 0, 0, 8, 0, 0, 1, 1, 1, 0, 0, 0, 0, 0, 0})});
    EXPECT_EQ(write(260, 5), CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(record.length, 0U);
    EXPECT_LE(usb.longestSleep, 5);
}

struct StatusCase {
    const char* name;
    Step answer;
    CY_RETURN_STATUS status;
};
class UsbStatusFailure : public UsbTest, public testing::WithParamInterface<StatusCase> {};
TEST_P(UsbStatusFailure, EndsTheWrite) {
    handle = open();
    expectFirstReset();
    expect(
        {control("40 CA 0002 0001 0"), submit("01 1 | 06"), comesBackWritten("01", 1), sleepStep(), GetParam().answer});
    if (GetParam().status != CY_ERROR_DEVICE_NOT_FOUND) expect({control(kReset)});
    UCHAR command = 0x06;
    CY_DATA_BUFFER write{&command, 1, 0};
    EXPECT_EQ(CySpiReadWrite(handle, nullptr, &write, 10000), GetParam().status);
}
INSTANTIATE_TEST_SUITE_P(
    , UsbStatusFailure,
    testing::Values(StatusCase{"Short", control(kStatus, {0, 0, 0}), CY_ERROR_REQUEST_FAILED},
                    StatusCase{"Timeout", controlFails(kStatus, LIBUSB_ERROR_TIMEOUT), CY_ERROR_REQUEST_FAILED},
                    StatusCase{"Gone", controlFails(kStatus, LIBUSB_ERROR_NO_DEVICE), CY_ERROR_DEVICE_NOT_FOUND}),
    caseName<StatusCase>);

TEST_F(UsbTest, AReadPutsPiecesTogetherAndAsksForNoStatus) {
    handle = open();
    expectFirstReset();
    expect({control("40 CA 0001 0046 0"), submit("82 70"), comesBack("82", LIBUSB_TRANSFER_COMPLETED, {}),
            submit("82 70"), comesBack("82", LIBUSB_TRANSFER_COMPLETED, Bytes(64, 0x11)), submit("82 6"),
            comesBack("82", LIBUSB_TRANSFER_COMPLETED, Bytes(6, 0x22))});
    Bytes data(70);
    CY_DATA_BUFFER read{data.data(), 70, 0};
    EXPECT_EQ(CySpiReadWrite(handle, &read, nullptr, 10000), CY_SUCCESS);
    EXPECT_EQ(data[63], 0x11);
    EXPECT_EQ(data[64], 0x22);
    EXPECT_EQ(read.transferCount, 70U);
}

TEST_F(UsbTest, AReadWhoseTimeIsOverBetweenTwoPiecesIsATimeOut) {
    handle = open();
    expectFirstReset();
    Step late = comesBack("82", LIBUSB_TRANSFER_COMPLETED, Bytes(64, 0x11));
    late.meanwhile = [] { std::this_thread::sleep_for(std::chrono::milliseconds(60)); };
    expect({control("40 CA 0001 0046 0"), submit("82 70"), late, control(kReset)});
    Bytes data(70);
    CY_DATA_BUFFER read{data.data(), 70, 0};
    EXPECT_EQ(CySpiReadWrite(handle, &read, nullptr, 50), CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(read.transferCount, 64U);
}

class DuplexTest : public UsbTest {
protected:
    DuplexTest() {
        handle = open();
        expectFirstReset();
    }

    /// 9F 00 00 00 out and four bytes in, both under way.
    void expectBothInFlight() { expect({control("40 CA 0003 0004 0"), submit("82 4"), submit("01 4 | 9F 00 00 00")}); }
    void expectARead() {
        expect({control("40 CA 0001 0004 0"), submit("82 4"), comesBack("82", LIBUSB_TRANSFER_COMPLETED, Bytes(4))});
    }
    CY_RETURN_STATUS transfer(UINT32 timeout = 10000) { return CySpiReadWrite(handle, &read, &write, timeout); }

    UCHAR sent[4] = {0x9F, 0, 0, 0};
    UCHAR received[4] = {};
    CY_DATA_BUFFER read{received, 4, 0};
    CY_DATA_BUFFER write{sent, 4, 0};
};

TEST_F(DuplexTest, BothDirectionsAreInFlightAtOnceAndTheLastByteInIsTheEnd) {
    expectBothInFlight();
    expect({comesBack("82", LIBUSB_TRANSFER_COMPLETED, {0xFF}), submit("82 3"), comesBackWritten("01", 4),
            comesBack("82", LIBUSB_TRANSFER_COMPLETED, {0xEF, 0x40, 0x14})});
    EXPECT_EQ(transfer(), CY_SUCCESS);
    EXPECT_EQ(hex(received, 4), "FF EF 40 14");
}

TEST_F(DuplexTest, ASecondCallMeanwhileIsRefused) {
    CY_HANDLE other = open();
    expectBothInFlight();
    Step first = comesBackWritten("01", 4);
    first.meanwhile = [&] {
        UCHAR byte = 0;
        CY_DATA_BUFFER one{&byte, 1, 0};
        EXPECT_EQ(CySpiReadWrite(other, nullptr, &one, 10000), CY_ERROR_REQUEST_FAILED);
    };
    expect({first, comesBack("82", LIBUSB_TRANSFER_COMPLETED, Bytes(4))});
    EXPECT_EQ(transfer(), CY_SUCCESS);
    EXPECT_EQ(CyClose(other), CY_SUCCESS);
}

TEST_F(DuplexTest, WithoutMemoryNothingIsStarted) {
    usb.allocationsFail = true;
    EXPECT_EQ(transfer(), CY_ERROR_ALLOCATION_FAILED);
}

TEST_F(DuplexTest, ATransferThatCannotBeSubmittedTakesTheOtherOneBack) {
    expect({control("40 CA 0003 0004 0"), submit("82 4"), submit("01 4 | 9F 00 00 00", LIBUSB_ERROR_NO_DEVICE),
            cancel("82"), comesBack("82", LIBUSB_TRANSFER_CANCELLED)});
    EXPECT_EQ(transfer(), CY_ERROR_DEVICE_NOT_FOUND);
}

TEST_F(DuplexTest, AnEventFailureWithOneDirectionCompleteIsAFailure) {
    expectBothInFlight();
    expect({comesBackWritten("01", 4), eventsFail(), cancel("82"), comesBack("82", LIBUSB_TRANSFER_CANCELLED),
            control(kReset)});
    EXPECT_EQ(transfer(), CY_ERROR_REQUEST_FAILED);
}

TEST_F(DuplexTest, AnErrorOfEventHandlingDoesNotLeaveTransfersBehind) {
    expectBothInFlight();
    expect({eventsFail(), cancel("82"), cancel("01"), eventsFail(), comesBack("82", LIBUSB_TRANSFER_CANCELLED),
            comesBack("01", LIBUSB_TRANSFER_CANCELLED), control(kReset)});
    EXPECT_EQ(transfer(), CY_ERROR_REQUEST_FAILED);
}

struct BulkCase {
    const char* name;
    std::vector<Step> steps;  // after both directions were submitted
    CY_RETURN_STATUS status;
};
class UsbBulkFailure : public DuplexTest, public testing::WithParamInterface<BulkCase> {};
TEST_P(UsbBulkFailure, RecoversAsItsRowSays) {
    expectBothInFlight();
    usb.script.insert(usb.script.end(), GetParam().steps.begin(), GetParam().steps.end());
    EXPECT_EQ(transfer(), GetParam().status);
    // The interface is free again.
    expectARead();
    EXPECT_EQ(CySpiReadWrite(handle, &read, nullptr, 10000), CY_SUCCESS);
}

std::vector<Step> outFails(libusb_transfer_status status, std::vector<Step> recovery) {
    recovery.insert(recovery.begin(),
                    {comesBack("01", status), cancel("82"), comesBack("82", LIBUSB_TRANSFER_CANCELLED)});
    return recovery;
}
std::vector<Step> inFails(libusb_transfer_status status, std::vector<Step> recovery) {
    recovery.insert(recovery.begin(), {comesBackWritten("01", 4), comesBack("82", status, {0xFF})});
    return recovery;
}
INSTANTIATE_TEST_SUITE_P(
    , UsbBulkFailure,
    testing::Values(
        BulkCase{"OutTimeout", outFails(LIBUSB_TRANSFER_TIMED_OUT, {control(kReset)}), CY_ERROR_IO_TIMEOUT},
        BulkCase{"OutStall", outFails(LIBUSB_TRANSFER_STALL, {control(kReset), clearHalt("01")}), CY_ERROR_PIPE_HALTED},
        BulkCase{"OutOverflow", outFails(LIBUSB_TRANSFER_OVERFLOW, {control(kReset)}), CY_ERROR_BUFFER_OVERFLOW},
        BulkCase{"OutError", outFails(LIBUSB_TRANSFER_ERROR, {control(kReset)}), CY_ERROR_REQUEST_FAILED},
        BulkCase{"OutShort",
                 {comesBackWritten("01", 3), cancel("82"), comesBack("82", LIBUSB_TRANSFER_CANCELLED), control(kReset)},
                 CY_ERROR_REQUEST_FAILED},
        BulkCase{"InError", inFails(LIBUSB_TRANSFER_ERROR, {control(kReset)}), CY_ERROR_REQUEST_FAILED},
        BulkCase{"InTimeout", inFails(LIBUSB_TRANSFER_TIMED_OUT, {control(kReset)}), CY_ERROR_IO_TIMEOUT},
        BulkCase{"InOverflow", inFails(LIBUSB_TRANSFER_OVERFLOW, {control(kReset)}), CY_ERROR_BUFFER_OVERFLOW},
        BulkCase{"InStall", inFails(LIBUSB_TRANSFER_STALL, {control(kReset), clearHalt("82")}),
                 CY_ERROR_REQUEST_FAILED},
        BulkCase{"InStallsFirst",
                 {comesBack("82", LIBUSB_TRANSFER_STALL), cancel("01"), comesBack("01", LIBUSB_TRANSFER_CANCELLED),
                  control(kReset), clearHalt("82")},
                 CY_ERROR_REQUEST_FAILED},
        BulkCase{"BothTimeOut",
                 {comesBack("82", LIBUSB_TRANSFER_TIMED_OUT), cancel("01"), comesBack("01", LIBUSB_TRANSFER_TIMED_OUT),
                  control(kReset)},
                 CY_ERROR_IO_TIMEOUT},
        BulkCase{"Unplugged",
                 {comesBack("82", LIBUSB_TRANSFER_NO_DEVICE), cancel("01"), comesBack("01", LIBUSB_TRANSFER_NO_DEVICE)},
                 CY_ERROR_DEVICE_NOT_FOUND},
        BulkCase{"UnpluggedLate", inFails(LIBUSB_TRANSFER_NO_DEVICE, {}), CY_ERROR_DEVICE_NOT_FOUND}),
    caseName<BulkCase>);

/// What a reset may do to the SPI setting: after a failed transfer it is as it was.
class UsbSettingTest : public DuplexTest {
protected:
    UsbSettingTest() {
        expect({control("40 C3 0000 0000 16 | " + hex(master.data(), master.size()))});
        CY_SPI_CONFIG config{900000, 8, CY_SPI_MOTOROLA, true, true, true, false, false, false};
        EXPECT_EQ(CySetSpiConfig(handle, &config), CY_SUCCESS);
    }
    void failWith(std::initializer_list<Step> housekeeping) {
        expectBothInFlight();
        expect({comesBackWritten("01", 4), comesBack("82", LIBUSB_TRANSFER_ERROR)});
        expect(housekeeping);
        EXPECT_EQ(transfer(), CY_ERROR_REQUEST_FAILED);
    }

    const Bytes master = {0xA0, 0xBB, 0x0D, 0, 8, 0, 0, 1, 1, 1, 0, 0, 0, 0, 0, 0};
    const Bytes slave = {0x40, 0x42, 0x0F, 0, 8, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};
    const Step putBack = control("40 C3 0000 0000 16 | " + hex(master.data(), master.size()));
};
constexpr auto kReadSetting = "C0 C2 0000 0000 16";

TEST_F(UsbSettingTest, IsPutBackWhenAResetChangedIt) {
    failWith({control(kReset), control(kReadSetting, slave), putBack});
    failWith({control(kReset), control(kReadSetting, master)});
    CY_HANDLE again = open();  // another handle, and after a new list another claim, know what this process has set
    EXPECT_EQ(CyClose(handle), CY_SUCCESS);
    EXPECT_EQ(CyClose(again), CY_SUCCESS);
    UINT8 count = 0;
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
    handle = open();
    failWith({control(kReset), control(kReadSetting, slave), putBack});
}

TEST_F(UsbSettingTest, PuttingItBackNeverReplacesTheFailure) {
    failWith({controlFails(kReset, LIBUSB_ERROR_TIMEOUT)});
    failWith({control(kReset), controlFails(kReadSetting, LIBUSB_ERROR_PIPE)});
    Step refused = putBack;
    refused.result = LIBUSB_ERROR_PIPE;
    failWith({control(kReset), control(kReadSetting, slave), refused});
}

TEST_F(UsbSettingTest, OneThatNobodyKnowsIsNotPutBack) {
    Step refused = putBack;
    refused.result = LIBUSB_ERROR_TIMEOUT;
    expect({refused});
    CY_SPI_CONFIG config{900000, 8, CY_SPI_MOTOROLA, true, true, true, false, false, false};
    EXPECT_EQ(CySetSpiConfig(handle, &config), CY_ERROR_IO_TIMEOUT);
    failWith({control(kReset)});
    expect({control(kReadSetting, slave)});
    EXPECT_EQ(CyGetSpiConfig(handle, &config), CY_SUCCESS);
    failWith({control(kReset), control(kReadSetting, slave)});
}

TEST_F(UsbSettingTest, ADevicePluggedInAnewIsResetAndUnknownAgain) {
    EXPECT_EQ(CyClose(handle), CY_SUCCESS);
    bridge.address = 9;
    UINT8 count = 0;
    EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
    handle = open();
    expectFirstReset();
    failWith({control(kReset)});
}

// In a process of its own, which has no context yet.
TEST(UsbStartDeathTest, WithoutUsbTheListSaysSo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    scriptedUsb() = ScriptedUsb{};
    scriptedUsb().initResult = LIBUSB_ERROR_OTHER;
    const auto listInANewProcess = [] {
        UINT8 count = 0;
        std::_Exit(CyGetListofDevices(&count));
    };
    EXPECT_EXIT(listInANewProcess(), testing::ExitedWithCode(CY_ERROR_DRIVER_INIT_FAILED), "");
}

}  // namespace
