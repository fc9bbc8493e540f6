// The platform over the real libusb, on a device that umockdev emulates below it at the kernel's interface:
// what the scripted libusb cannot show is whether libusb agrees.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/cyusbserial.h"
#include "platform/discovery.h"
#include "platform/portPath.h"
#include "tests/emulatedUsb.h"

namespace {

using testing::ElementsAre;
using Bytes = std::vector<unsigned char>;

/// An SPI slave at 1 MHz; this emulation takes a reset for one of the setting, too.
const Bytes kPowerUpSetting = {0x40, 0x42, 0x0F, 0, 8, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};

enum class Fault { None, SilentIn, SilentOut, StallOut, ErrorOut, Unplug };

/// Answers as a bridge does whose SPI side inverts every byte.
class Bridge {
public:
    Bridge() {
        usb_.attach({[this](EmulatedUrb& urb) { submit(urb); }, [this](const char* event) { note(event); }});
    }

    void plan(Fault fault) {
        const std::lock_guard lock(usb_.mutex);
        fault_ = fault;
    }
    std::vector<std::string> takeJournal() {
        const std::lock_guard lock(usb_.mutex);
        return std::exchange(journal_, {});
    }
    std::size_t pending() {
        const std::lock_guard lock(usb_.mutex);
        return usb_.urbs.size();
    }

private:
    void note(const std::string& event) { journal_.push_back(event); }

    void submit(EmulatedUrb& urb) {
        if (urb.isControl()) {
            control(urb);
        } else if (!urb.isIn()) {
            takeOut(urb);
        }
        feedIn();
    }

    void control(EmulatedUrb& urb) {
        const usb_ctrlrequest setup = urb.setup();
        if (setup.bRequest == USB_REQ_GET_DESCRIPTOR) {
            return urb.answer(EmulatedUsb::stringDescriptor(setup.wValue & 0xFF));
        }
        char name[8];
        std::snprintf(name, sizeof name, "%02X", setup.bRequest);
        note(name);
        Bytes answer;
        if (setup.bRequest == 0xCA) reads_ = (setup.wValue & 1) != 0;
        if (setup.bRequest == 0xCC) answer = {busyPolls_-- > 0, 0, 0, 0};
        if (setup.bRequest == 0xBD) answer = {'C', 'Y', 'U', 'S'};
        if (setup.bRequest == 0xE1) answer = {5, 1, 2, 3, 4, 5};
        if (setup.bRequest == 0xCB) {
            fifo_.clear();
            fault_ = Fault::None;
            setting_ = kPowerUpSetting;
        }
        if (setup.bRequest == 0xC2) answer = setting_;
        if (setup.bRequest == 0xC3) setting_.assign(urb.sent(), urb.sent() + 16);
        urb.answer(answer);
    }

    void takeOut(EmulatedUrb& urb) {
        if (fault_ == Fault::SilentOut) return;
        if (fault_ == Fault::StallOut) return urb.finish(-EPIPE);
        if (fault_ == Fault::ErrorOut) return urb.finish(-EPROTO);
        if (fault_ == Fault::Unplug) return unplug();
        const std::size_t count = urb.length();
        for (std::size_t i = 0; reads_ && i < count; ++i) fifo_.push_back(static_cast<unsigned char>(~urb.bytes()[i]));
        busyPolls_ = 2;
        urb.finish(0, count);
    }

    void unplug() {
        usb_.isUnplugged = true;
        for (EmulatedUrb& urb : usb_.urbs) urb.finish(-ENODEV);
    }

    /// Bytes come back in pieces: full packets and short ones by turns.
    void feedIn() {
        for (EmulatedUrb& urb : usb_.urbs) {
            if (urb.isDone || !urb.isIn() || fifo_.empty() || fault_ == Fault::SilentIn) continue;
            const std::size_t piece = (pieces_++ % 2 != 0) ? 64 : 5;
            const std::size_t count = std::min({piece, fifo_.size(), urb.length()});
            const auto end = fifo_.begin() + static_cast<std::ptrdiff_t>(count);
            std::copy(fifo_.begin(), end, urb.bytes());
            fifo_.erase(fifo_.begin(), end);
            urb.finish(0, count);
        }
    }

    EmulatedUsb& usb_ = EmulatedUsb::instance();
    std::vector<std::string> journal_;
    Bytes fifo_;
    Bytes setting_ = kPowerUpSetting;
    Fault fault_ = Fault::None;
    bool reads_ = false;
    int busyPolls_ = 0;
    unsigned pieces_ = 0;
};

/// Kept until the end, as the emulation is.
Bridge& emulatedBridge() {
    static Bridge& bridge = *new Bridge;
    return bridge;
}

class EmulatedUsbTest : public testing::Test {
protected:
    EmulatedUsbTest() {
        EXPECT_EQ(CyGetListofDevices(&count), CY_SUCCESS);
        EXPECT_EQ(count, 1);
        EXPECT_EQ(CyOpen(0, 0, &handle), CY_SUCCESS);
        EXPECT_THAT(bridge.takeJournal(), ElementsAre("claim"));
        EXPECT_EQ(CySetSpiConfig(handle, &setting), CY_SUCCESS);
        bridge.takeJournal();  // the first test of a process sees a reset, too
    }
    ~EmulatedUsbTest() override {
        EXPECT_EQ(bridge.pending(), 0U);
        bridge.takeJournal();
        EXPECT_EQ(CyClose(handle), CY_SUCCESS);
        EXPECT_THAT(bridge.takeJournal(), ElementsAre("release", "attach driver"));
        bridge.plan(Fault::None);
    }

    CY_RETURN_STATUS transfer(std::size_t size, UINT32 timeout) {
        sent.resize(size);
        received.assign(size, 0);
        for (std::size_t i = 0; i < size; ++i) sent[i] = static_cast<unsigned char>(i * 7);
        CY_DATA_BUFFER write{sent.data(), static_cast<UINT32>(size), 0};
        CY_DATA_BUFFER read{received.data(), static_cast<UINT32>(size), 0};
        return CySpiReadWrite(handle, &read, &write, timeout);
    }

    Bridge& bridge = emulatedBridge();
    UINT8 count = 0;
    CY_HANDLE handle = nullptr;
    CY_SPI_CONFIG setting{900000, 8, CY_SPI_MOTOROLA, true, true, true, false, false, false};
    Bytes sent;
    Bytes received;
};

TEST_F(EmulatedUsbTest, IsDiscovered) {
    std::vector<platform::AttachedDevice> devices;
    EXPECT_EQ(platform::discoverDevices(devices), CY_SUCCESS);
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_STREQ(devices[0].info.serialNumber.text, "00001234");
    EXPECT_EQ(devices[0].info.portPath, EmulatedUsb::portPath());
    EXPECT_TRUE(devices[0].scb0IsSpi && devices[0].configFound && devices[0].info.neuronIdValid);
}

TEST_F(EmulatedUsbTest, FullDuplexBytesArriveInOrderHoweverTheyAreCut) {
    for (const std::size_t size : {1U, 4U, 64U, 260U, 4100U, 20000U}) {
        EXPECT_EQ(transfer(size, 10000), CY_SUCCESS) << size;
        for (unsigned char& byte : sent) byte = static_cast<unsigned char>(~byte);
        EXPECT_TRUE(received == sent) << size;
        EXPECT_THAT(bridge.takeJournal(), ElementsAre("CA"));
    }
}

TEST_F(EmulatedUsbTest, AWriteEndsWhenTheBridgeIsIdle) {
    Bytes page(260, 0x5A);
    CY_DATA_BUFFER write{page.data(), 260, 0};
    EXPECT_EQ(CySpiReadWrite(handle, nullptr, &write, 10000), CY_SUCCESS);
    EXPECT_THAT(bridge.takeJournal(), ElementsAre("CA", "CC", "CC", "CC"));
}

TEST_F(EmulatedUsbTest, AfterATimeoutTheTransfersAreBackAndTheNextOneWorks) {
    bridge.plan(Fault::SilentIn);
    EXPECT_EQ(transfer(4, 50), CY_ERROR_IO_TIMEOUT);
    EXPECT_THAT(bridge.takeJournal(), ElementsAre("CA", "discard", "CB", "C2", "C3"));
    bridge.plan(Fault::SilentOut);
    EXPECT_EQ(transfer(4, 50), CY_ERROR_IO_TIMEOUT);
    EXPECT_THAT(bridge.takeJournal(), ElementsAre("CA", "discard", "discard", "CB", "C2", "C3"));
    EXPECT_EQ(transfer(4, 0), CY_SUCCESS);
}

TEST_F(EmulatedUsbTest, AStallTakesTheReadBackBeforeTheHaltIsCleared) {
    bridge.plan(Fault::StallOut);
    EXPECT_EQ(transfer(4, 10000), CY_ERROR_PIPE_HALTED);
    EXPECT_THAT(bridge.takeJournal(), ElementsAre("CA", "discard", "CB", "clear halt", "C2", "C3"));
    EXPECT_EQ(transfer(4, 10000), CY_SUCCESS);
}

TEST_F(EmulatedUsbTest, ABusErrorLeavesTheInterfaceUsableAndItsSettingAsItWas) {
    bridge.plan(Fault::ErrorOut);  // until the reset
    EXPECT_EQ(transfer(4, 10000), CY_ERROR_REQUEST_FAILED);
    EXPECT_THAT(bridge.takeJournal(), ElementsAre("CA", "discard", "CB", "C2", "C3"));
    EXPECT_EQ(transfer(4, 10000), CY_SUCCESS);
    CY_SPI_CONFIG now{};
    EXPECT_EQ(CyGetSpiConfig(handle, &now), CY_SUCCESS);
    EXPECT_TRUE(now.isMaster && now.frequency == 900000);
}

TEST_F(EmulatedUsbTest, TheKernelDriverOfAnInterfaceIsNamed) {
    char name[16] = "?";
    EXPECT_EQ(CyGetKernelDriver(0, 0, name, sizeof name), CY_SUCCESS);
    EXPECT_STREQ(name, "cdc_acm");
    EXPECT_EQ(CyGetKernelDriver(0, 1, name, sizeof name), CY_SUCCESS);
    EXPECT_STREQ(name, "") << "a program's claim is no driver";
}

TEST_F(EmulatedUsbTest, AnUnpluggedDeviceIsGoneForEveryFunction) {
    bridge.plan(Fault::Unplug);
    UINT8 level = 0;
    EXPECT_EQ(transfer(4, 10000), CY_ERROR_DEVICE_NOT_FOUND);
    EXPECT_EQ(CyGetGpioValue(handle, 8, &level), CY_ERROR_DEVICE_NOT_FOUND);
}

}  // namespace
