// The platform over the real libusb, on a device that umockdev emulates below it at the kernel's interface:
// what the scripted libusb cannot show is whether libusb agrees.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/cyusbserial.h"
#include "platform/discovery.h"
#include "platform/portPath.h"

namespace {

using testing::ElementsAre;
using Bytes = std::vector<unsigned char>;

constexpr char kNode[] = "/dev/bus/usb/001/002";

const Bytes kDescriptors = {18, 1, 0,    2, 0,  0,    0, 64,   0xB4, 0x04, 0x04, 0x00, 0, 0, 1, 2, 3,    1,  // device
                            9,  2, 57,   0, 2,  1,    0, 0x80, 50,  // configuration
                            9,  4, 0,    0, 3,  0xFF, 2, 0,    0,   // SPI
                            7,  5, 0x01, 2, 64, 0,    0, 7,    5,    0x82, 2,    64,   0, 0, 7, 5, 0x83, 3,
                            64, 0, 10,   9, 4,  1,    0, 0,    0xFF, 5,    0,    0};  // manufacturing

/// An SPI slave at 1 MHz; this emulation takes a reset for one of the setting, too.
const Bytes kPowerUpSetting = {0x40, 0x42, 0x0F, 0, 8, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};

std::string deviceText() {
    std::string text =
        "P: /devices/usb1/1-4\nN: bus/usb/001/002\nE: DEVNAME=/dev/bus/usb/001/002\nE: DEVTYPE=usb_device\n"
        "E: SUBSYSTEM=usb\nE: BUSNUM=001\nE: DEVNUM=002\nE: MAJOR=189\nE: MINOR=1\nA: busnum=1\\n\nA: devnum=2\\n\n"
        "A: speed=12\\n\nA: bConfigurationValue=1\\n\nA: bNumConfigurations=1\\n\nH: descriptors=";
    char digits[3];
    for (const unsigned char byte : kDescriptors) {
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    text += "\n\n";
    for (const auto& [interface, driver] : {std::pair{"0", "cdc_acm"}, std::pair{"1", "usbfs"}}) {
        text += std::string("P: /devices/usb1/1-4/1-4:1.") + interface +
                "\nE: DEVTYPE=usb_interface\nE: SUBSYSTEM=usb\nL: driver=../../../../bus/usb/drivers/" + driver +
                "\n\n";
    }
    return text;
}

enum class Fault { None, SilentIn, SilentOut, StallOut, ErrorOut, Unplug, Unplugged };

/// Answers usbfs requests as a bridge does whose SPI side inverts every byte. Runs on umockdev's thread.
class Bridge {
public:
    static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        auto& bridge = *static_cast<Bridge*>(self);
        const std::lock_guard lock(bridge.mutex_);
        bridge.client_ = client;
        const int error =
            bridge.handle(umockdev_ioctl_client_get_request(client), umockdev_ioctl_client_get_arg(client));
        umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
        return TRUE;
    }

    void plan(Fault fault) {
        const std::lock_guard lock(mutex_);
        fault_ = fault;
    }
    std::vector<std::string> takeJournal() {
        const std::lock_guard lock(mutex_);
        return std::exchange(journal_, {});
    }
    std::size_t pending() {
        const std::lock_guard lock(mutex_);
        return urbs_.size();
    }

private:
    struct Urb {
        UMockdevIoctlClient* owner;  // a request comes back through the open file it was made on
        UMockdevIoctlData* data;
        UMockdevIoctlData* buffer;
        usbdevfs_urb* urb;
        bool done = false;
        void finish(int status, std::size_t count = 0) {
            urb->status = status;
            urb->actual_length = static_cast<int>(count);
            done = true;
        }
        bool isIn() const { return (urb->endpoint & USB_DIR_IN) != 0; }
    };

    int handle(gulong request, UMockdevIoctlData* argument) {
        switch (request) {
            case USBDEVFS_GET_CAPABILITIES:
                *reinterpret_cast<unsigned*>(umockdev_ioctl_data_resolve(argument, 0, 4, nullptr)->data) =
                    USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_NO_PACKET_SIZE_LIM;
                return 0;
            case USBDEVFS_DISCONNECT_CLAIM:
                return note("claim");
            case USBDEVFS_RELEASEINTERFACE:
                return note("release");
            case USBDEVFS_IOCTL:
                return note("attach driver");
            case USBDEVFS_CLEAR_HALT:
                return note("clear halt");
            case USBDEVFS_SUBMITURB:
                return submit(argument);
            case USBDEVFS_REAPURBNDELAY:
                return reap(argument);
            case USBDEVFS_DISCARDURB:
                return discard(*reinterpret_cast<gulong*>(argument->data));
            default:
                return ENOTTY;
        }
    }

    int note(const std::string& event) {
        journal_.push_back(event);
        return 0;
    }

    int submit(UMockdevIoctlData* argument) {
        if (fault_ == Fault::Unplugged) return ENODEV;
        UMockdevIoctlData* data = umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_urb), nullptr);
        auto* urb = reinterpret_cast<usbdevfs_urb*>(data->data);
        UMockdevIoctlData* buffer = umockdev_ioctl_data_resolve(data, offsetof(usbdevfs_urb, buffer),
                                                                static_cast<std::size_t>(urb->buffer_length), nullptr);
        urbs_.push_back({client_, umockdev_ioctl_data_ref(data), umockdev_ioctl_data_ref(buffer), urb});
        if (urb->type == USBDEVFS_URB_TYPE_CONTROL) {
            control(urbs_.back());
        } else if (!urbs_.back().isIn()) {
            takeOut(urbs_.back());
        }
        feedIn();
        return 0;
    }

    void control(Urb& urb) {
        usb_ctrlrequest setup;
        std::memcpy(&setup, urb.buffer->data, sizeof setup);
        Bytes answer;
        if (setup.bRequest == USB_REQ_GET_DESCRIPTOR) {
            answer = stringDescriptor(setup.wValue & 0xFF);
        } else {
            char name[8];
            std::snprintf(name, sizeof name, "%02X", setup.bRequest);
            note(name);
        }
        if (setup.bRequest == 0xCC) answer = {busyPolls_-- > 0, 0, 0, 0};
        if (setup.bRequest == 0xBD) answer = {'C', 'Y', 'U', 'S'};
        if (setup.bRequest == 0xE1) answer = {5, 1, 2, 3, 4, 5};
        if (setup.bRequest == 0xCB) {
            fifo_.clear();
            fault_ = Fault::None;
            setting_ = kPowerUpSetting;
        }
        if (setup.bRequest == 0xC2) answer = setting_;
        if (setup.bRequest == 0xC3)
            setting_.assign(urb.buffer->data + sizeof setup, urb.buffer->data + sizeof setup + 16);
        if ((setup.bRequestType & USB_DIR_IN) == 0) return urb.finish(0, setup.wLength);
        answer.resize(std::min<std::size_t>(answer.size(), setup.wLength));
        std::copy(answer.begin(), answer.end(), urb.buffer->data + sizeof setup);
        urb.finish(0, answer.size());
    }

    static Bytes stringDescriptor(unsigned index) {
        if (index == 0) return {4, USB_DT_STRING, 0x09, 0x04};
        const std::string text = std::vector<std::string>{"Tavo", "LON Interface", "00001234"}.at(index - 1);
        Bytes descriptor = {static_cast<unsigned char>(2 + 2 * text.size()), USB_DT_STRING};
        for (const char c : text) descriptor.insert(descriptor.end(), {static_cast<unsigned char>(c), 0});
        return descriptor;
    }

    void takeOut(Urb& urb) {
        if (fault_ == Fault::SilentOut) return;
        if (fault_ == Fault::StallOut) return urb.finish(-EPIPE);
        if (fault_ == Fault::ErrorOut) return urb.finish(-EPROTO);
        if (fault_ == Fault::Unplug) return unplug();
        const auto count = static_cast<std::size_t>(urb.urb->buffer_length);
        for (std::size_t i = 0; i < count; ++i) fifo_.push_back(static_cast<unsigned char>(~urb.buffer->data[i]));
        busyPolls_ = 2;
        urb.finish(0, count);
    }

    void unplug() {
        fault_ = Fault::Unplugged;
        for (Urb& urb : urbs_) urb.finish(-ENODEV);
    }

    /// Bytes come back in pieces: full packets and short ones by turns.
    void feedIn() {
        for (Urb& urb : urbs_) {
            if (urb.done || !urb.isIn() || fifo_.empty() || fault_ == Fault::SilentIn) continue;
            const std::size_t piece = (pieces_++ % 2 != 0) ? 64 : 5;
            const std::size_t count = std::min({piece, fifo_.size(), static_cast<std::size_t>(urb.urb->buffer_length)});
            const auto end = fifo_.begin() + static_cast<std::ptrdiff_t>(count);
            std::copy(fifo_.begin(), end, urb.buffer->data);
            fifo_.erase(fifo_.begin(), end);
            urb.finish(0, count);
        }
    }

    int reap(UMockdevIoctlData* argument) {
        const auto found = std::find_if(urbs_.begin(), urbs_.end(),
                                        [this](const Urb& urb) { return urb.done && urb.owner == client_; });
        if (found == urbs_.end()) return fault_ == Fault::Unplugged ? ENODEV : EAGAIN;
        UMockdevIoctlData* pointer = umockdev_ioctl_data_resolve(argument, 0, sizeof(void*), nullptr);
        umockdev_ioctl_data_set_ptr(pointer, 0, found->data);
        urbs_.erase(found);
        return 0;
    }

    int discard(gulong address) {
        for (Urb& urb : urbs_) {
            if (urb.data->client_addr != address || urb.done) continue;
            note("discard");
            urb.finish(-ENOENT);
            return 0;
        }
        return EINVAL;
    }

    std::mutex mutex_;
    UMockdevIoctlClient* client_ = nullptr;  // whose request is being handled
    std::list<Urb> urbs_;
    std::vector<std::string> journal_;
    Bytes fifo_;
    Bytes setting_ = kPowerUpSetting;
    Fault fault_ = Fault::None;
    int busyPolls_ = 0;
    unsigned pieces_ = 0;
};

/// Made before libusb looks for devices, and kept until the end: the context lives as long.
Bridge& emulatedBridge() {
    static Bridge bridge;
    static UMockdevTestbed* testbed = [] {
        UMockdevTestbed* made = umockdev_testbed_new();
        EXPECT_TRUE(umockdev_testbed_add_from_string(made, deviceText().c_str(), nullptr));
        UMockdevIoctlBase* handler = umockdev_ioctl_base_new();
        g_signal_connect(handler, "handle-ioctl", G_CALLBACK(Bridge::onIoctl), &bridge);
        EXPECT_TRUE(umockdev_testbed_attach_ioctl(made, kNode, handler, nullptr));
        return made;
    }();
    EXPECT_NE(testbed, nullptr);
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
    EXPECT_STREQ(devices[0].info.portPath, "1-4");
    EXPECT_TRUE(devices[0].scb0IsSpi && devices[0].configFound && devices[0].info.neuronIdValid);
}

TEST_F(EmulatedUsbTest, FullDuplexBytesArriveInOrderHoweverTheyAreCut) {
    for (const std::size_t size : {1U, 4U, 64U, 260U, 4100U, 20000U}) {
        EXPECT_EQ(transfer(size, 10000), CY_SUCCESS) << size;
        for (unsigned char& byte : sent) byte = static_cast<unsigned char>(~byte);
        EXPECT_TRUE(received == sent) << size;
        EXPECT_THAT(bridge.takeJournal(), ElementsAre("CA", "CC", "CC", "CC"));
    }
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
