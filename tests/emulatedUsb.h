// A bridge below the real libusb: umockdev emulates its node at the kernel's interface (usbfs). What stands
// behind its endpoints is the user's.
#pragma once

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <umockdev.h>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

template <auto release>
struct EmulationReleaser {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};
using IoctlData = std::unique_ptr<UMockdevIoctlData, EmulationReleaser<umockdev_ioctl_data_unref>>;

/// A request that the program under test has submitted.
struct EmulatedUrb {
    UMockdevIoctlClient* owner;  // it comes back through the open file it was made on
    IoctlData data;
    IoctlData buffer;
    bool isDone = false;
    std::uint64_t due = 0;  // of those that are done the earliest comes back first

    usbdevfs_urb& urb() const { return *reinterpret_cast<usbdevfs_urb*>(data->data); }
    bool isControl() const { return urb().type == USBDEVFS_URB_TYPE_CONTROL; }
    bool isIn() const { return (urb().endpoint & USB_DIR_IN) != 0; }
    unsigned char* bytes() const { return buffer->data; }
    std::size_t length() const { return static_cast<std::size_t>(urb().buffer_length); }

    usb_ctrlrequest setup() const;
    const unsigned char* sent() const { return bytes() + sizeof(usb_ctrlrequest); }  // of a control request
    /// Ends a control request; an answer is cut to what was asked for.
    void answer(std::vector<unsigned char> bytes, std::uint64_t at = 0);
    void finish(int status, std::size_t count = 0, std::uint64_t at = 0);
};

/// Called on umockdev's thread, with the mutex of the emulation held.
struct EmulatedEndpoints {
    std::function<void(EmulatedUrb&)> submit;  // finishes it, now or later
    std::function<void(const char*)> note;     // "claim", "release", "attach driver", "clear halt", "discard"
    std::function<void(std::uint64_t)> reaped = [](std::uint64_t) {};  // the program has one that was due then
};

class EmulatedUsb {
public:
    /// A device with an SPI interface and the manufacturing one. Has to be made before libusb looks for devices and
    /// to stay until the end: libusb's context lives as long. One in a process.
    static EmulatedUsb& instance();
    static std::string portPath();  ///< where it is plugged in; another one in each process
    void attach(EmulatedEndpoints endpoints);
    /// The answer to a request for one of the strings: "Tavo", "LON Interface", "00001234".
    static std::vector<unsigned char> stringDescriptor(unsigned index);

    std::mutex mutex;  // guards what follows and what the endpoints keep
    std::list<EmulatedUrb> urbs;
    bool isUnplugged = false;

private:
    EmulatedUsb();
    static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self);
    int handle(gulong request, UMockdevIoctlData* argument);
    int note(const char* event);
    int submit(UMockdevIoctlData* argument);
    int reap(UMockdevIoctlData* argument);
    int discard(gulong address);

    EmulatedEndpoints endpoints_;
    UMockdevIoctlClient* client_ = nullptr;  // whose request is being handled
};
