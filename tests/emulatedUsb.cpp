#include "tests/emulatedUsb.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace {

constexpr unsigned char kDescriptors[] = {
    18, 1, 0,    2, 0,  0,    0, 64,   0xB4, 0x04, 0x04, 0x00, 0, 0, 1, 2, 3,    1,  // device
    9,  2, 57,   0, 2,  1,    0, 0x80, 50,                                           // configuration
    9,  4, 0,    0, 3,  0xFF, 2, 0,    0,                                            // SPI
    7,  5, 0x01, 2, 64, 0,    0, 7,    5,    0x82, 2,    64,   0, 0, 7, 5, 0x83, 3,
    64, 0, 10,   9, 4,  1,    0, 0,    0xFF, 5,    0,    0};  // manufacturing

template <typename... Values>
std::string text(const char* format, Values... values) {
    char line[1000];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

// Programs that run side by side do not meet in the locks of their devices.
int busNumber() {
    return getpid() / 255 % 255 + 1;
}
int portNumber() {
    return getpid() % 255 + 1;
}
std::string node() {
    return text("/dev/bus/usb/%03d/002", busNumber());
}

std::string deviceText() {
    const std::string port = EmulatedUsb::portPath();
    std::string device = text(
        "P: /devices/usb%d/%s\nN: %s\nE: DEVNAME=%s\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nE: BUSNUM=%03d\n"
        "E: DEVNUM=002\nE: MAJOR=189\nE: MINOR=1\nA: busnum=%d\\n\nA: devnum=2\\n\nA: speed=12\\n\n"
        "A: bConfigurationValue=1\\n\nA: bNumConfigurations=1\\n\nH: descriptors=",
        busNumber(), port.c_str(), node().c_str() + std::strlen("/dev/"), node().c_str(), busNumber(), busNumber());
    for (const unsigned char byte : kDescriptors) device += text("%02X", byte);
    device += "\n\n";
    for (const auto& [interface, driver] : {std::pair{0, "cdc_acm"}, std::pair{1, "usbfs"}}) {
        device += text(
            "P: /devices/usb%d/%s/%s:1.%d\nE: DEVTYPE=usb_interface\nE: SUBSYSTEM=usb\n"
            "L: driver=../../../../bus/usb/drivers/%s\n\n",
            busNumber(), port.c_str(), port.c_str(), interface, driver);
    }
    return device;
}

void require(bool done, const char* what) {
    if (done) return;
    std::fprintf(stderr, "cannot emulate a USB device: %s; run this with umockdev-wrapper\n", what);
    std::exit(1);
}

}  // namespace

usb_ctrlrequest EmulatedUrb::setup() const {
    usb_ctrlrequest setup;
    std::memcpy(&setup, bytes(), sizeof setup);
    return setup;
}

void EmulatedUrb::answer(std::vector<unsigned char> answer, std::uint64_t at) {
    const usb_ctrlrequest request = setup();
    if ((request.bRequestType & USB_DIR_IN) == 0) return finish(0, request.wLength, at);
    answer.resize(std::min<std::size_t>(answer.size(), request.wLength));
    std::copy(answer.begin(), answer.end(), bytes() + sizeof request);
    finish(0, answer.size(), at);
}

void EmulatedUrb::finish(int status, std::size_t count, std::uint64_t at) {
    urb().status = status;
    urb().actual_length = static_cast<int>(count);
    due = at;
    isDone = true;
}

EmulatedUsb& EmulatedUsb::instance() {
    static EmulatedUsb& usb = *new EmulatedUsb;  // umockdev's thread goes on after the end of main
    return usb;
}

EmulatedUsb::EmulatedUsb() {
    UMockdevTestbed* testbed = umockdev_testbed_new();
    require(umockdev_in_mock_environment(), "umockdev is not in this program");
    require(umockdev_testbed_add_from_string(testbed, deviceText().c_str(), nullptr), "no device");
    UMockdevIoctlBase* handler = umockdev_ioctl_base_new();
    g_signal_connect(handler, "handle-ioctl", G_CALLBACK(onIoctl), this);
    require(umockdev_testbed_attach_ioctl(testbed, node().c_str(), handler, nullptr), "no requests");
}

std::string EmulatedUsb::portPath() {
    return text("%d-%d", busNumber(), portNumber());
}

void EmulatedUsb::attach(EmulatedEndpoints endpoints) {
    const std::lock_guard lock(mutex);
    endpoints_ = std::move(endpoints);
}

std::vector<unsigned char> EmulatedUsb::stringDescriptor(unsigned index) {
    if (index == 0) return {4, USB_DT_STRING, 0x09, 0x04};
    const std::string text = std::vector<std::string>{"Tavo", "LON Interface", "00001234"}.at(index - 1);
    std::vector<unsigned char> descriptor = {static_cast<unsigned char>(2 + 2 * text.size()), USB_DT_STRING};
    for (const char c : text) descriptor.insert(descriptor.end(), {static_cast<unsigned char>(c), 0});
    return descriptor;
}

gboolean EmulatedUsb::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto& usb = *static_cast<EmulatedUsb*>(self);
    const std::lock_guard lock(usb.mutex);
    usb.client_ = client;
    const int error = usb.handle(umockdev_ioctl_client_get_request(client), umockdev_ioctl_client_get_arg(client));
    umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
    return TRUE;
}

int EmulatedUsb::handle(gulong request, UMockdevIoctlData* argument) {
    switch (request) {
        case USBDEVFS_GET_CAPABILITIES: {
            const IoctlData capabilities(umockdev_ioctl_data_resolve(argument, 0, 4, nullptr));
            *reinterpret_cast<unsigned*>(capabilities->data) =
                USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_NO_PACKET_SIZE_LIM;
            return 0;
        }
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

int EmulatedUsb::note(const char* event) {
    endpoints_.note(event);
    return 0;
}

int EmulatedUsb::submit(UMockdevIoctlData* argument) {
    if (isUnplugged) return ENODEV;
    IoctlData data(umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_urb), nullptr));
    const auto length = static_cast<std::size_t>(reinterpret_cast<usbdevfs_urb*>(data->data)->buffer_length);
    IoctlData buffer(umockdev_ioctl_data_resolve(data.get(), offsetof(usbdevfs_urb, buffer), length, nullptr));
    urbs.push_back({client_, std::move(data), std::move(buffer)});
    endpoints_.submit(urbs.back());
    return 0;
}

int EmulatedUsb::reap(UMockdevIoctlData* argument) {
    const auto comesFirst = [this](const EmulatedUrb& one, const EmulatedUrb& other) {
        const auto rank = [this](const EmulatedUrb& urb) {
            return std::pair(!urb.isDone || urb.owner != client_, urb.due);
        };
        return rank(one) < rank(other);
    };
    const auto first = std::min_element(urbs.begin(), urbs.end(), comesFirst);
    if (first == urbs.end() || !first->isDone || first->owner != client_) return isUnplugged ? ENODEV : EAGAIN;
    const IoctlData pointer(umockdev_ioctl_data_resolve(argument, 0, sizeof(void*), nullptr));
    umockdev_ioctl_data_set_ptr(pointer.get(), 0, first->data.get());
    endpoints_.reaped(first->due);
    urbs.erase(first);
    return 0;
}

int EmulatedUsb::discard(gulong address) {
    for (EmulatedUrb& urb : urbs) {
        if (urb.data->client_addr != address || urb.isDone) continue;
        urb.finish(-ENOENT);
        return note("discard");
    }
    return EINVAL;
}
