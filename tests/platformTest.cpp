// The companion layer's own types, discovery and the device lock, above the seam.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "platform/cyusbserial.h"
#include "platform/deviceIds.h"
#include "platform/deviceLock.h"
#include "platform/discovery.h"
#include "tests/rigTest.h"

namespace {

using testing::ElementsAre;

TEST(NeuronId, TextIsThePrefixAndExactly12Digits) {
    NeuronId id;
    bool wellFormed = false;
    EXPECT_FALSE(id.isValid());
    EXPECT_TRUE(id.fromString("iD0501020304aF", &wellFormed));
    EXPECT_TRUE(wellFormed && id.isValid());
    EXPECT_EQ(id.bytes[5], 0xAF);
    const NeuronId before = id;
    for (const char* text :
         {"", "ID", "050102030405", "ID05010203040", "ID0501020304056", "ID05010203040G", "XD050102030405"}) {
        EXPECT_FALSE(id.fromString(text, &wellFormed)) << text;
        EXPECT_FALSE(wellFormed) << text;
    }
    EXPECT_FALSE(id.fromString(nullptr, nullptr));
    EXPECT_TRUE(id == before);
    EXPECT_TRUE(id.fromString("IDFFFFFFFFFFFF", nullptr));
    EXPECT_FALSE(id.isValid()) << "well formed, but an erased record";
}

TEST(SerialNumber, TakesUpTo32PrintableCharacters) {
    SerialNumber serial;
    EXPECT_TRUE(serial.fromStringWithoutPrefix("SN 1234"));
    EXPECT_STREQ(serial.text, "SN 1234");
    EXPECT_TRUE(serial.fromStringWithoutPrefix(std::string(32, 'x').c_str()));
    for (const auto& text : {std::string(33, 'y'), std::string(), std::string("tab\t"), std::string("\xE9")}) {
        EXPECT_FALSE(serial.fromStringWithoutPrefix(text.c_str())) << text;
    }
    EXPECT_EQ(serial.text, std::string(32, 'x'));
    serial = std::string(300, 'z').c_str();
    EXPECT_EQ(std::strlen(serial.text), 255U);
    serial = serial.text + 250;
    EXPECT_STREQ(serial.text, "zzzzz");
}

TEST(DeviceIds, OneMoreCombinationCanBeAllowed) {
    DeviceInfo info;
    info.vendorId = 0x1234;
    info.productId = 0x0004;
    EXPECT_FALSE(info.areVidPidCorrect());
    platform::allowDeviceId(0x1234, 0x0004);
    EXPECT_TRUE(info.areVidPidCorrect());
    info.vendorId = 0x04B4;
    EXPECT_TRUE(info.areVidPidCorrect());
    info.productId = 0x1234;
    EXPECT_FALSE(info.areVidPidCorrect());
}

class PlatformTest : public RigTest {};

TEST_F(PlatformTest, APinThatWasSetIsReleasedWithItsObject) {
    {
        GPIO gpio(info);
        IOPin pin(gpio, 8, IOPin::HIGH);
        EXPECT_EQ(pin.set(IOPin::LOW), CY_SUCCESS);
    }
    EXPECT_THAT(rig.journal, ElementsAre("open 0.0", "pin 8=0", "pin 8=1", "close 0.0"));
}

TEST_F(PlatformTest, APulseEndsAtTheInitialLevelAndNeedsNoRelease) {
    {
        GPIO gpio(info);
        IOPin pin(gpio, 14, IOPin::RELEASED);
        EXPECT_EQ(pin.pulse(IOPin::LOW, 25), CY_SUCCESS);
    }
    EXPECT_THAT(rig.journal, ElementsAre("open 0.0", "pin 14=0", "sleep 25", "pin 14=1", "close 0.0"));
}

TEST_F(PlatformTest, APinWhoseRequestFailedIsReleasedAllTheSame) {
    rig.fail("CySetGpioValue", 1, CY_ERROR_IO_TIMEOUT);
    {
        GPIO gpio(info);
        IOPin pin(gpio, 8, IOPin::HIGH);
        EXPECT_EQ(pin.set(IOPin::LOW), CY_ERROR_IO_TIMEOUT);
    }
    EXPECT_THAT(rig.journal, ElementsAre("open 0.0", "pin 8=0 !11", "pin 8=1", "close 0.0"));
}

TEST_F(PlatformTest, PinsOfAnInterfaceThatDoesNotOpenGiveTheOpenStatus) {
    rig.fail("CyOpen", 1, CY_ERROR_DRIVER_OPEN_FAILED);
    {
        GPIO gpio(info);
        IOPin pin(gpio, 8, IOPin::HIGH);
        EXPECT_EQ(gpio.cyHandle->openStatus, CY_ERROR_DRIVER_OPEN_FAILED);
        EXPECT_EQ(pin.set(IOPin::LOW), CY_ERROR_DRIVER_OPEN_FAILED);
    }
    EXPECT_THAT(rig.journal, ElementsAre("open 0.0 !4"));
}

/// A process that holds the lock of a place until it is told to end.
class LockElsewhere {
public:
    explicit LockElsewhere(const std::string& place) {
        EXPECT_EQ(pipe(held_), 0);
        EXPECT_EQ(pipe(done_), 0);
        process = fork();
        if (process == 0) hold(place);
        char answer = 0;
        EXPECT_EQ(read(held_[0], &answer, 1), 1);
        EXPECT_EQ(answer, 'y');
    }
    ~LockElsewhere() {
        EXPECT_EQ(write(done_[1], "x", 1), 1);
        int status = -1;
        EXPECT_EQ(waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
        for (const int end : {held_[0], held_[1], done_[0], done_[1]}) close(end);
    }
    LockElsewhere(const LockElsewhere&) = delete;
    LockElsewhere& operator=(const LockElsewhere&) = delete;

    pid_t process;

private:
    [[noreturn]] void hold(const std::string& place) {
        const platform::DeviceLock lock(place);
        char byte = lock.isHeld() ? 'y' : 'n';
        if (write(held_[1], &byte, 1) != 1 || read(done_[0], &byte, 1) != 1) _exit(2);
        _exit(0);  // without releasing: the kernel does
    }

    int held_[2];
    int done_[2];
};

/// On a board with a folder, and so a place, of its own: the lock of a place counts on the whole machine.
class DiscoveryTest : public RigTest {
protected:
    DiscoveryTest() {
        sim::Options options;
        options.pace = sim::Pace::Virtual;
        options.folder = folder.string();
        rig.reset(options);
    }
    ~DiscoveryTest() override {
        rig.reset({});
        std::filesystem::remove_all(folder);
        std::string name = "tavo-util-" + place + ".lock";
        std::replace(name.begin(), name.end(), '/', '_');
        for (const char* locks : {"/run/lock", "/tmp"}) std::filesystem::remove(std::filesystem::path(locks) / name);
    }

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("tavo-discovery-" + std::to_string(getpid()));
    const std::string place = "sim:" + folder.string();
};

TEST_F(DiscoveryTest, FillsTheRecordOfAnInterface) {
    UCHAR record[128] = {0x05, 0x01, 0x02, 0x03, 0x04, 0x05};
    CY_DATA_BUFFER buffer{record, sizeof record, 0};
    {
        const CyHandle config(0, 1);
        ASSERT_EQ(CyProgUserFlash(config.handle, &buffer, 0, 1000), CY_SUCCESS);
    }
    std::vector<platform::AttachedDevice> devices(3);
    ASSERT_EQ(platform::discoverDevices(devices), CY_SUCCESS);
    ASSERT_EQ(devices.size(), 1U);
    const platform::AttachedDevice& device = devices[0];
    EXPECT_EQ(device.status, CY_SUCCESS);
    EXPECT_EQ(device.product, "LON Interface");
    EXPECT_TRUE(device.scb0Found && device.scb0IsSpi && device.configFound);
    EXPECT_EQ(device.info.scb0InterfaceNumber, 0);
    EXPECT_EQ(device.info.configInterfaceNumber, 1);
    EXPECT_STREQ(device.info.serialNumber.text, "00001234");
    EXPECT_TRUE(device.info.serialNumberValid && device.info.areVidPidCorrect());
    EXPECT_EQ(device.info.neuronIdValid, 1);
    EXPECT_EQ(std::memcmp(device.info.neuronId.bytes, record, NeuronId::kSize), 0);
    EXPECT_STRNE(device.info.portPath, "");
}

TEST_F(DiscoveryTest, GoesOnWithoutAReadableNeuronId) {
    rig.fail("CyReadUserFlash", 1, CY_ERROR_IO_TIMEOUT);
    std::vector<platform::AttachedDevice> devices;
    EXPECT_EQ(platform::discoverDevices(devices), CY_SUCCESS);
    EXPECT_EQ(devices.at(0).status, CY_SUCCESS);
    EXPECT_FALSE(devices[0].info.neuronIdValid);
    rig.fail("CyGetListofDevices", 1, CY_ERROR_DRIVER_INIT_FAILED);
    EXPECT_EQ(platform::discoverDevices(devices), CY_ERROR_DRIVER_INIT_FAILED);
    EXPECT_TRUE(devices.empty());
}

TEST_F(DiscoveryTest, LeavesADeviceThatAnotherProcessHasLockedAlone) {
    std::vector<platform::AttachedDevice> devices;
    {
        const LockElsewhere other(place);
        ASSERT_EQ(platform::discoverDevices(devices), CY_SUCCESS);
        EXPECT_EQ(devices.at(0).lockHolder, other.process);
    }
    EXPECT_STREQ(devices[0].info.serialNumber.text, "00001234");
    EXPECT_THAT(rig.journal, ElementsAre("list", "info 0"));
    rig.journal.clear();
    ASSERT_EQ(platform::discoverDevices(devices), CY_SUCCESS);
    EXPECT_EQ(devices.at(0).lockHolder, 0);
    EXPECT_THAT(rig.journal, ElementsAre("list", "info 0", "open 0.1", "control C0 BD 0000 0000 4",
                                         "userflash read 0 128", "close 0.1"));
}

class LockTest : public testing::Test {
protected:
    ~LockTest() override {
        for (const char* folder : {"/run/lock", "/tmp"}) std::filesystem::remove(file(folder));
    }
    std::filesystem::path file(const char* folder) const {
        return std::filesystem::path(folder) / ("tavo-util-" + place + ".lock");
    }
    /// Where the lock file lies on this machine.
    std::filesystem::path usedFile() const { return file(access("/run/lock", W_OK) == 0 ? "/run/lock" : "/tmp"); }

    const std::string place = "test-" + std::to_string(getpid());
};

TEST_F(LockTest, ASecondProcessIsToldWhoHoldsTheDevice) {
    {
        const LockElsewhere other(place);
        const platform::DeviceLock refused(place);
        EXPECT_FALSE(refused.isHeld());
        EXPECT_TRUE(refused.isBusy());
        EXPECT_EQ(refused.holder(), other.process);
    }
    EXPECT_TRUE(platform::DeviceLock(place).isHeld()) << "a file left behind is no lock";
}

TEST_F(LockTest, ALockRetakenInOneProcessNamesThatProcess) {
    const platform::DeviceLock lock(place);
    EXPECT_EQ(lock.holder(), 0);
    const platform::DeviceLock again(place);
    EXPECT_TRUE(!again.isHeld() && again.isBusy());
    EXPECT_EQ(again.holder(), getpid());
}

TEST_F(LockTest, AMovedLockIsHeldOnce) {
    platform::DeviceLock first(place);
    platform::DeviceLock second(std::move(first));
    EXPECT_FALSE(first.isHeld());  // NOLINT(bugprone-use-after-move): what is left is part of the contract
    EXPECT_TRUE(second.isHeld());
    first = platform::DeviceLock(place);
    EXPECT_EQ(first.holder(), getpid());
    EXPECT_TRUE(platform::DeviceLock(place).isBusy());
    second = std::move(first);  // gives the lock up
    EXPECT_TRUE(platform::DeviceLock(place).isHeld());
}

TEST_F(LockTest, AnyUserMayTakeTheLockAfterAnyOther) {
    const mode_t before = umask(077);
    { const platform::DeviceLock lock(place); }
    umask(before);
    EXPECT_EQ(std::filesystem::status(usedFile()).permissions(), std::filesystem::perms{0666});
}

TEST_F(LockTest, ALinkInTheWayIsNotFollowed) {
    const std::string victim = "/tmp/tavo-victim-" + place;
    std::ofstream(victim) << "keep";
    std::filesystem::create_symlink(victim, usedFile());
    { const platform::DeviceLock lock(place); }
    std::string kept;
    std::ifstream(victim) >> kept;
    EXPECT_EQ(kept, "keep");
    std::filesystem::remove(victim);
}

TEST_F(LockTest, WhatIsNoFileIsLeftAloneAndClosed) {
    const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = openFiles();
    std::filesystem::create_directory(usedFile());
    { const platform::DeviceLock lock(place); }
    EXPECT_EQ(openFiles(), before);
    EXPECT_TRUE(std::filesystem::is_directory(usedFile()));
}

}  // namespace
