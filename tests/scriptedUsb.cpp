#include "tests/scriptedUsb.h"

#include <Poco/Thread.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

ScriptedUsb& scriptedUsb() {
    static ScriptedUsb usb;
    return usb;
}

namespace {

ScriptedUsb& usb = scriptedUsb();

template <typename... Values>
std::string text(const char* format, Values... values) {
    char line[64];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

constexpr auto kReturn = "return ";
constexpr auto kEvents = "events";

bool isReturn(const Step& step) {
    return step.call.rfind(kReturn, 0) == 0;
}

void giveBack(libusb_transfer* transfer, const Step& step) {
    const bool cancelled = usb.inFlight[transfer];
    usb.inFlight.erase(transfer);
    transfer->status = static_cast<libusb_transfer_status>(step.result);
    EXPECT_TRUE(cancelled || transfer->status != LIBUSB_TRANSFER_CANCELLED) << "nobody cancelled it";
    if (transfer->endpoint & LIBUSB_ENDPOINT_IN) {
        ASSERT_LE(step.reply.size(), static_cast<std::size_t>(transfer->length)) << "the script overfills the buffer";
        std::copy(step.reply.begin(), step.reply.end(), transfer->buffer);
    }
    transfer->actual_length = static_cast<int>(step.reply.size());
    if (step.meanwhile) step.meanwhile();
    transfer->callback(transfer);
}

void giveBackAll() {
    while (!usb.inFlight.empty()) giveBack(usb.inFlight.begin()->first, {"", LIBUSB_TRANSFER_NO_DEVICE, {}, {}});
}

void returnNext() {
    const Step step = usb.script.front();
    usb.script.pop_front();
    const auto found = std::find_if(usb.inFlight.begin(), usb.inFlight.end(), [&](const auto& entry) {
        return step.call == kReturn + text("%02X", entry.first->endpoint);
    });
    if (found == usb.inFlight.end()) {
        ADD_FAILURE() << "not in flight: " << step.call;
        return;
    }
    giveBack(found->first, step);
}

}  // namespace

std::string hex(const unsigned char* data, std::size_t count) {
    std::string line;
    for (std::size_t i = 0; i < count; ++i) line += text(i == 0 ? "%02X" : " %02X", data[i]);
    return line;
}

Step ScriptedUsb::next(const std::string& call) {
    if (script.empty() || script.front().call != call) {
        ADD_FAILURE() << "called:   " << call << "\nexpected: " << (script.empty() ? "nothing" : script.front().call);
        return {call, LIBUSB_ERROR_OTHER, {}, {}};
    }
    const Step step = script.front();
    script.pop_front();
    return step;
}

Step control(const std::string& setup, const Bytes& reply) {
    const int sent = std::atoi(setup.c_str() + std::strlen("40 CA 0000 0000 "));
    return {"control " + setup, reply.empty() ? sent : static_cast<int>(reply.size()), reply, {}};
}
Step controlFails(const std::string& setup, int result) {
    return {"control " + setup, result, {}, {}};
}
Step submit(const std::string& what, int result) {
    return {"submit " + what, result, {}, {}};
}
Step cancel(const std::string& endpoint) {
    return {"cancel " + endpoint, 0, {}, {}};
}
Step clearHalt(const std::string& endpoint) {
    return {"clear halt " + endpoint, 0, {}, {}};
}
Step sleepStep(long milliseconds) {
    return {"sleep " + std::to_string(milliseconds), 0, {}, {}};
}
Step comesBack(const std::string& endpoint, libusb_transfer_status status, const Bytes& data) {
    return {kReturn + endpoint, status, data, {}};
}
Step comesBackWritten(const std::string& endpoint, int count) {
    return comesBack(endpoint, LIBUSB_TRANSFER_COMPLETED, Bytes(static_cast<std::size_t>(count)));
}
Step eventsFail() {
    return {kEvents, LIBUSB_ERROR_IO, {}, {}};
}

void Poco::ThreadImpl::sleepImpl(long milliseconds) {
    usb.longestSleep = std::max(usb.longestSleep, milliseconds);
    if (usb.busyForever) return;
    const Step step = usb.next("sleep " + std::to_string(milliseconds));
    if (step.meanwhile) step.meanwhile();
}

extern "C" {

int libusb_init(libusb_context** context) {
    static libusb_context only;
    *context = &only;
    if (usb.initResult != LIBUSB_SUCCESS) return usb.initResult;
    ++usb.contextsMade;
    ++usb.contextsOpen;
    return usb.initResult;
}
void libusb_exit(libusb_context*) {
    --usb.contextsOpen;
}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list) {
    *list = new libusb_device*[usb.attached.size() + 1]();
    std::copy(usb.attached.begin(), usb.attached.end(), *list);
    for (libusb_device* device : usb.attached) ++device->references;
    return static_cast<ssize_t>(usb.attached.size());
}
void libusb_free_device_list(libusb_device** list, int unref) {
    for (libusb_device** device = list; unref && *device != nullptr; ++device) libusb_unref_device(*device);
    delete[] list;
}
libusb_device* libusb_ref_device(libusb_device* device) {
    ++device->references;
    return device;
}
void libusb_unref_device(libusb_device* device) {
    EXPECT_GT(device->references--, 0);
}
uint8_t libusb_get_bus_number(libusb_device* device) {
    return device->busNumber;
}
uint8_t libusb_get_device_address(libusb_device* device) {
    return device->address;
}
int libusb_get_port_numbers(libusb_device* device, uint8_t* ports, int length) {
    if (device->ports.size() > static_cast<std::size_t>(length)) return LIBUSB_ERROR_OVERFLOW;
    std::copy(device->ports.begin(), device->ports.end(), ports);
    return static_cast<int>(device->ports.size());
}
int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    *descriptor = {};
    descriptor->idVendor = device->vendorId;
    descriptor->idProduct = device->productId;
    descriptor->iManufacturer = 1;
    descriptor->iProduct = 2;
    descriptor->iSerialNumber = device->strings.size() == 3 ? 3 : 0;
    return LIBUSB_SUCCESS;
}
int libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** config) {
    const std::size_t count = device->interfaces.size();
    auto* interfaces = new libusb_interface[count]();
    for (std::size_t i = 0; i < count; ++i) {
        auto* setting = new libusb_interface_descriptor{};
        const InterfaceSpec& spec = device->interfaces[i];
        setting->bInterfaceNumber = static_cast<uint8_t>(i);
        setting->bInterfaceClass = spec.interfaceClass;
        setting->bInterfaceSubClass = spec.subclass;
        setting->bNumEndpoints = static_cast<uint8_t>(spec.endpoints.size());
        setting->endpoint = spec.endpoints.data();
        interfaces[i] = {setting, 1};
    }
    *config = new libusb_config_descriptor{};
    (*config)->bNumInterfaces = static_cast<uint8_t>(count);
    (*config)->interface = interfaces;
    ++usb.configs;
    return LIBUSB_SUCCESS;
}
void libusb_free_config_descriptor(libusb_config_descriptor* config) {
    for (int i = 0; i < config->bNumInterfaces; ++i) delete config->interface[i].altsetting;
    delete[] config->interface;
    delete config;
    --usb.configs;
}

int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    if (device->openResult != LIBUSB_SUCCESS) return device->openResult;
    *handle = new libusb_device_handle{libusb_ref_device(device), false, {}};
    usb.open.insert(*handle);
    return LIBUSB_SUCCESS;
}
void libusb_close(libusb_device_handle* handle) {
    ASSERT_EQ(usb.open.erase(handle), 1U);
    for (const auto& claim : handle->device->claims) EXPECT_NE(claim.second, handle) << "closed with a claim";
    libusb_unref_device(handle->device);
    delete handle;
}
libusb_device* libusb_get_device(libusb_device_handle* handle) {
    return handle->device;
}
int libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index, unsigned char* data, int length) {
    const std::string& string = handle->device->strings.at(index - 1U);
    if (string == "!") return LIBUSB_ERROR_PIPE;
    return std::snprintf(reinterpret_cast<char*>(data), static_cast<std::size_t>(length), "%s", string.c_str());
}
int libusb_kernel_driver_active(libusb_device_handle* handle, int number) {
    return handle->device->boundDrivers.count(number) != 0 ? 1 : 0;
}
int libusb_set_auto_detach_kernel_driver(libusb_device_handle* handle, int enable) {
    handle->autoDetach = enable != 0;
    return LIBUSB_SUCCESS;
}
int libusb_claim_interface(libusb_device_handle* handle, int number) {
    libusb_device& device = *handle->device;
    if (device.claims.count(number) || device.foreignClaims.count(number)) return LIBUSB_ERROR_BUSY;
    if (device.boundDrivers.count(number)) {
        if (!handle->autoDetach) return LIBUSB_ERROR_BUSY;
        device.boundDrivers.erase(number);
        handle->detached.insert(number);
    }
    device.claims[number] = handle;
    return LIBUSB_SUCCESS;
}
int libusb_release_interface(libusb_device_handle* handle, int number) {
    EXPECT_TRUE(usb.inFlight.empty()) << "released with a transfer in flight";
    EXPECT_EQ(handle->device->claims.erase(number), 1U);
    if (handle->detached.count(number)) handle->device->boundDrivers.insert(number);
    return LIBUSB_SUCCESS;
}
int libusb_clear_halt(libusb_device_handle*, unsigned char endpoint) {
    EXPECT_TRUE(usb.inFlight.empty()) << "halt cleared under a transfer";
    return usb.next(text("clear halt %02X", endpoint)).result;
}

int libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request, uint16_t value, uint16_t index,
                            unsigned char* data, uint16_t length, unsigned timeout) {
    EXPECT_EQ(usb.open.count(handle), 1U);
    EXPECT_EQ(timeout, request == 0xE0 || request == 0xE1 || request == 0xBD ? 1000U : 5000U);
    if (usb.busyForever && request == 0xCC) return std::memset(data, 1, length) ? length : 0;
    if (request == 0xCB) usb.busyForever = false;
    std::string call = text("control %02X %02X %04X %04X %u", type, request, value, index, length);
    if (!(type & LIBUSB_ENDPOINT_IN) && length != 0) call += " | " + hex(data, length);
    const Step step = usb.next(call);
    std::copy(step.reply.begin(), step.reply.end(), data);
    return step.result;
}

libusb_transfer* libusb_alloc_transfer(int) {
    if (usb.allocationsFail) return nullptr;
    auto* transfer = new libusb_transfer{};
    usb.transfers.insert(transfer);
    return transfer;
}
void libusb_free_transfer(libusb_transfer* transfer) {
    EXPECT_EQ(usb.inFlight.count(transfer), 0U) << "freed in flight";
    ASSERT_EQ(usb.transfers.erase(transfer), 1U);
    delete transfer;
}
int libusb_submit_transfer(libusb_transfer* transfer) {
    EXPECT_EQ(usb.inFlight.count(transfer), 0U) << "submitted twice";
    EXPECT_FALSE(transfer->dev_handle->device->claims.empty()) << "interface not claimed";
    EXPECT_TRUE(usb.limit == 0 ? transfer->timeout == 0 : transfer->timeout > 0 && transfer->timeout <= usb.limit);
    std::string call = text("submit %02X %d", transfer->endpoint, transfer->length);
    if (!(transfer->endpoint & LIBUSB_ENDPOINT_IN)) {
        call += " | " + hex(transfer->buffer, static_cast<std::size_t>(transfer->length));
    }
    const int result = usb.next(call).result;
    if (result == LIBUSB_SUCCESS) usb.inFlight[transfer] = false;
    return result;
}
int libusb_cancel_transfer(libusb_transfer* transfer) {
    const auto found = usb.inFlight.find(transfer);
    if (found == usb.inFlight.end() || found->second) return LIBUSB_ERROR_NOT_FOUND;
    found->second = true;
    return usb.next(text("cancel %02X", transfer->endpoint)).result;
}
int libusb_handle_events_timeout_completed(libusb_context*, timeval*, int* completed) {
    EXPECT_EQ(*completed, 0);
    if (!usb.script.empty() && usb.script.front().call == kEvents) return usb.next(kEvents).result;
    if (usb.script.empty() || !isReturn(usb.script.front())) {
        ADD_FAILURE() << "waits for events, but the transcript goes on with "
                      << (usb.script.empty() ? "nothing" : usb.script.front().call);
        giveBackAll();
    }
    while (!*completed && !usb.script.empty() && isReturn(usb.script.front())) returnNext();
    return LIBUSB_SUCCESS;
}

}  // extern "C"
