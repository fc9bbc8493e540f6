// What USB devices answer: libusb's functions are this program's own, and say what the input says. Requests and waits
// take the time they may take, on a clock of this program's own.
#include <Poco/Thread.h>
#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <set>

#include "fuzz/fuzz.h"
#include "platform/cyusbserial.h"

struct libusb_context {};

struct libusb_device {
    libusb_device_descriptor facts{};
    std::vector<libusb_interface_descriptor> settings;
    std::vector<libusb_interface> interfaces;
    std::list<std::vector<libusb_endpoint_descriptor>> endpoints;
    std::set<int> claims;
    std::uint8_t address = 1;
    int references = 0;
};

struct libusb_device_handle {
    libusb_device* device;
};

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kRequestMs = 5000;  // a request is given at most that long
constexpr unsigned kMostRequests = 8;       // beside the transfer itself: resets, the setting, the state of the block

struct World {
    fuzz::Supply* supply = nullptr;
    std::uint64_t now = 0;  // ms
    std::vector<std::unique_ptr<libusb_device>> devices;
    std::set<libusb_device_handle*> open;
    std::set<libusb_transfer*> transfers;
    std::map<libusb_transfer*, bool> inFlight;  // true: cancelled
    Bytes received;                             // by the bulk-in endpoint, since the transfer began
    int configs = 0;
    int contexts = 0;
};
World world;

/// Mostly a success; else one of libusb's errors.
int outcome(int success) {
    constexpr int kErrors[] = {LIBUSB_ERROR_IO,     LIBUSB_ERROR_ACCESS,  LIBUSB_ERROR_NO_DEVICE,
                               LIBUSB_ERROR_BUSY,   LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_PIPE,
                               LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_OVERFLOW};
    const std::uint8_t kind = world.supply->byte();
    return kind < 0xC0 ? success : kErrors[kind % std::size(kErrors)];
}

void giveBack(libusb_transfer* transfer) {
    const bool cancelled = world.inFlight.at(transfer);
    const std::uint8_t kind = world.supply->byte();
    const bool isIn = (transfer->endpoint & LIBUSB_ENDPOINT_IN) != 0;
    int count = transfer->length;
    if (kind >= 0x80) count = std::min<int>(count, world.supply->byte());
    transfer->status = LIBUSB_TRANSFER_COMPLETED;
    if (kind >= 0xC0) {
        transfer->status = static_cast<libusb_transfer_status>(kind % 7);
        if (transfer->status == LIBUSB_TRANSFER_CANCELLED) transfer->status = LIBUSB_TRANSFER_ERROR;
        if (transfer->status == LIBUSB_TRANSFER_TIMED_OUT) world.now += transfer->timeout;
    }
    if (cancelled) transfer->status = LIBUSB_TRANSFER_CANCELLED;
    if (isIn) {
        const Bytes data = world.supply->bytes(static_cast<std::size_t>(count));
        std::copy(data.begin(), data.end(), transfer->buffer);
        world.received.insert(world.received.end(), data.begin(), data.end());
    }
    transfer->actual_length = count;
    world.inFlight.erase(transfer);
    transfer->callback(transfer);
}

std::unique_ptr<libusb_device> deviceOf(fuzz::Supply& supply, std::uint8_t address) {
    auto device = std::make_unique<libusb_device>();
    device->address = address;
    const std::uint8_t kind = supply.byte();
    device->facts.idVendor = kind & 1 ? supply.word() : 0x04B4;
    device->facts.idProduct = kind & 1 ? supply.word() : 0x0004;
    device->facts.iManufacturer = 1;
    device->facts.iProduct = 2;
    device->facts.iSerialNumber = kind & 2 ? 0 : 3;
    const std::size_t count = kind & 4 ? supply.byte() % 8 : 3;
    for (std::size_t i = 0; i < count; ++i) {
        libusb_interface_descriptor setting{};
        const bool isPlain = (kind & 8) == 0;  // as the bridge has them: two SPI blocks, the configuration interface
        setting.bInterfaceNumber = static_cast<std::uint8_t>(isPlain ? i : supply.byte() % 8);
        setting.bInterfaceClass = isPlain ? 0xFF : supply.byte();
        setting.bInterfaceSubClass = isPlain ? (i < 2 ? 2 : 5) : supply.byte();
        auto& endpoints = device->endpoints.emplace_back(isPlain ? 2U : supply.byte() % 4U);
        for (std::size_t at = 0; at < endpoints.size(); ++at) {
            endpoints[at] = {};
            endpoints[at].bEndpointAddress = isPlain ? (at == 0 ? 0x01 : 0x82) : supply.byte();
            endpoints[at].bmAttributes = isPlain ? 2 : supply.byte();
        }
        setting.bNumEndpoints = static_cast<std::uint8_t>(endpoints.size());
        setting.endpoint = endpoints.data();
        device->settings.push_back(setting);
    }
    for (const auto& setting : device->settings) device->interfaces.push_back({&setting, 1});
    if ((kind & 16) != 0 && !device->interfaces.empty()) device->interfaces.front() = {nullptr, 0};
    return device;
}

// ---- what is asked of the bridge

using Handles = std::vector<CY_HANDLE>;

CY_HANDLE pick(const Handles& handles, fuzz::Supply& supply) {
    const std::uint8_t number = supply.byte();
    return handles.empty() ? nullptr : handles[number % handles.size()];
}

void list(Handles&, fuzz::Supply&) {
    UINT8 count = 0;
    if (CyGetListofDevices(&count) == CY_SUCCESS) HOLDS(count >= world.devices.size());
}

void describe(Handles&, fuzz::Supply& supply) {
    const auto info = std::make_unique<CY_DEVICE_INFO>();
    if (CyGetDeviceInfo(supply.byte() % 4, info.get()) != CY_SUCCESS) return;
    for (const UCHAR* text : {info->manufacturerName, info->productName, info->serialNum})
        HOLDS(std::memchr(text, 0, CY_STRING_DESCRIPTOR_SIZE) != nullptr);
    for (const auto type : info->deviceType) HOLDS(type <= CY_TYPE_MFG);
}

void open(Handles& handles, fuzz::Supply& supply) {
    CY_HANDLE handle = nullptr;
    const UINT8 number = supply.byte() % 4;
    const CY_RETURN_STATUS status = CyOpen(number, supply.byte() % 4, &handle);
    HOLDS((status == CY_SUCCESS) == (handle != nullptr));
    if (handle != nullptr) handles.push_back(handle);
}

void close(Handles& handles, fuzz::Supply& supply) {
    CY_HANDLE handle = pick(handles, supply);
    HOLDS((CyClose(handle) == CY_SUCCESS) == (handle != nullptr));
    handles.erase(std::remove(handles.begin(), handles.end(), handle), handles.end());
}

/// Both buffers are exactly as long as they are said to be. What came in is there in order, and a call with a time of
/// its own is over when that and the requests' times are.
void transfer(Handles& handles, fuzz::Supply& supply) {
    CY_HANDLE handle = pick(handles, supply);
    const std::uint8_t kind = supply.byte();
    const UINT32 length = kind & 4 ? supply.word() : supply.byte();
    const UINT32 other = kind & 8 ? supply.byte() : length;
    const UINT32 timeout = kind & 16 ? supply.word() : 1000;
    Bytes in(length);
    Bytes out(other, 0x5A);
    CY_DATA_BUFFER read{in.data(), length, 0};
    CY_DATA_BUFFER write{out.data(), other, 0};
    world.received.clear();
    const std::uint64_t begin = world.now;
    const CY_RETURN_STATUS status =
        CySpiReadWrite(handle, kind & 1 ? nullptr : &read, kind & 2 ? nullptr : &write, timeout);
    HOLDS(world.inFlight.empty() && world.transfers.empty());
    HOLDS(timeout == 0 || world.now - begin <= timeout + kMostRequests * kRequestMs);
    HOLDS(read.transferCount <= length && write.transferCount <= other);
    HOLDS(world.received.size() <= length);
    HOLDS(std::equal(world.received.begin(), world.received.end(), in.begin()));
    if (status != CY_SUCCESS) return;
    HOLDS(kind & 1 || (read.transferCount == length && world.received.size() == length));
    HOLDS(kind & 2 || write.transferCount == other);
}

void setting(Handles& handles, fuzz::Supply& supply) {
    CY_HANDLE handle = pick(handles, supply);
    CY_SPI_CONFIG config{};
    if (CyGetSpiConfig(handle, &config) != CY_SUCCESS || supply.byte() % 2 == 0) return;
    config.frequency = supply.word() * std::uint32_t{100};
    if (CySetSpiConfig(handle, &config) == CY_SUCCESS) HOLDS(config.frequency >= 1000 && config.frequency <= 3000000);
}

void pin(Handles& handles, fuzz::Supply& supply) {
    CY_HANDLE handle = pick(handles, supply);
    UINT8 value = 0xEE;
    if (supply.byte() % 2 == 0)
        HOLDS(CyGetGpioValue(handle, supply.byte(), &value) == CY_SUCCESS || value == 0xEE);
    else
        static_cast<void>(CySetGpioValue(handle, supply.byte(), supply.byte()));
}

void userFlash(Handles& handles, fuzz::Supply& supply) {
    CY_HANDLE handle = pick(handles, supply);
    Bytes bytes(supply.byte());
    CY_DATA_BUFFER buffer{bytes.data(), static_cast<UINT32>(bytes.size()), 0};
    const auto request = supply.byte() % 2 == 0 ? CyReadUserFlash : CyProgUserFlash;
    const CY_RETURN_STATUS status = request(handle, &buffer, supply.word(), 1000);
    HOLDS(buffer.transferCount <= bytes.size());
    HOLDS((status == CY_SUCCESS) == (buffer.transferCount > 0));
}

using Request = void (*)(Handles&, fuzz::Supply&);
constexpr Request kRequests[] = {list, describe, open, close, transfer, setting, pin, userFlash};

}  // namespace

// ---- the clock, and what passes it

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return time_point(std::chrono::milliseconds(world.now));
}

void Poco::ThreadImpl::sleepImpl(long milliseconds) {
    world.now += static_cast<std::uint64_t>(milliseconds);
}

// ---- libusb

extern "C" {

int libusb_init(libusb_context** context) {
    static libusb_context only;
    *context = &only;
    const int result = outcome(LIBUSB_SUCCESS);
    if (result == LIBUSB_SUCCESS) ++world.contexts;
    return result;
}
void libusb_exit(libusb_context*) {
    --world.contexts;
}
ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list) {
    if (const int result = outcome(LIBUSB_SUCCESS); result != LIBUSB_SUCCESS) return result;
    *list = new libusb_device*[world.devices.size() + 1]();
    for (std::size_t i = 0; i < world.devices.size(); ++i) {
        (*list)[i] = world.devices[i].get();
        ++world.devices[i]->references;
    }
    return static_cast<ssize_t>(world.devices.size());
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
    HOLDS(device->references-- > 0);
}
uint8_t libusb_get_bus_number(libusb_device*) {
    return 1;
}
uint8_t libusb_get_device_address(libusb_device* device) {
    return device->address;
}
int libusb_get_port_numbers(libusb_device* device, uint8_t* ports, int length) {
    if (length < 1) return LIBUSB_ERROR_OVERFLOW;
    ports[0] = device->address;
    return 1;
}
int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    *descriptor = device->facts;
    return outcome(LIBUSB_SUCCESS);
}
int libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** config) {
    if (const int result = outcome(LIBUSB_SUCCESS); result != LIBUSB_SUCCESS) return result;
    *config = new libusb_config_descriptor{};
    (*config)->bNumInterfaces = static_cast<uint8_t>(device->interfaces.size());
    (*config)->interface = device->interfaces.data();
    ++world.configs;
    return LIBUSB_SUCCESS;
}
void libusb_free_config_descriptor(libusb_config_descriptor* config) {
    delete config;
    --world.configs;
}
int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    if (const int result = outcome(LIBUSB_SUCCESS); result != LIBUSB_SUCCESS) return result;
    *handle = new libusb_device_handle{libusb_ref_device(device)};
    world.open.insert(*handle);
    return LIBUSB_SUCCESS;
}
void libusb_close(libusb_device_handle* handle) {
    HOLDS(world.open.erase(handle) == 1);
    libusb_unref_device(handle->device);
    delete handle;
}
libusb_device* libusb_get_device(libusb_device_handle* handle) {
    return handle->device;
}
int libusb_get_string_descriptor_ascii(libusb_device_handle*, uint8_t, unsigned char* data, int length) {
    const std::string text = world.supply->text();
    const std::size_t count = std::min(text.size(), static_cast<std::size_t>(length - 1));
    std::memcpy(data, text.data(), count);
    data[count] = 0;
    return outcome(static_cast<int>(count));
}
int libusb_kernel_driver_active(libusb_device_handle*, int) {
    return outcome(0);
}
int libusb_set_auto_detach_kernel_driver(libusb_device_handle*, int) {
    return LIBUSB_SUCCESS;
}
int libusb_claim_interface(libusb_device_handle* handle, int number) {
    const int result = outcome(LIBUSB_SUCCESS);
    if (result == LIBUSB_SUCCESS) HOLDS(handle->device->claims.insert(number).second);
    return result;
}
int libusb_release_interface(libusb_device_handle* handle, int number) {
    HOLDS(world.inFlight.empty() && handle->device->claims.erase(number) == 1);
    return LIBUSB_SUCCESS;
}
int libusb_clear_halt(libusb_device_handle*, unsigned char) {
    HOLDS(world.inFlight.empty());
    return outcome(LIBUSB_SUCCESS);
}
int libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t, uint16_t, uint16_t,
                            unsigned char* data, uint16_t length, unsigned timeout) {
    HOLDS(world.open.count(handle) == 1);
    HOLDS(timeout > 0 && timeout <= kRequestMs);
    int result = outcome(length);
    if (result == LIBUSB_ERROR_TIMEOUT) world.now += timeout;
    if ((type & LIBUSB_ENDPOINT_IN) == 0 || result < 0) return result;
    const std::uint8_t kind = world.supply->byte();
    if (kind >= 0xE0) result = std::min<int>(result, world.supply->byte());
    const Bytes answer = world.supply->bytes(static_cast<std::size_t>(result));
    std::copy(answer.begin(), answer.end(), data);
    return result;
}
libusb_transfer* libusb_alloc_transfer(int) {
    if (world.supply->byte() == 0xFF) return nullptr;
    auto* transfer = new libusb_transfer{};
    world.transfers.insert(transfer);
    return transfer;
}
void libusb_free_transfer(libusb_transfer* transfer) {
    HOLDS(world.inFlight.count(transfer) == 0);
    HOLDS(world.transfers.erase(transfer) == 1);
    delete transfer;
}
int libusb_submit_transfer(libusb_transfer* transfer) {
    HOLDS(world.inFlight.count(transfer) == 0 && transfer->length > 0);
    HOLDS(!transfer->dev_handle->device->claims.empty());
    const int result = outcome(LIBUSB_SUCCESS);
    if (result == LIBUSB_SUCCESS) world.inFlight[transfer] = false;
    return result;
}
int libusb_cancel_transfer(libusb_transfer* transfer) {
    const auto found = world.inFlight.find(transfer);
    if (found == world.inFlight.end() || found->second) return LIBUSB_ERROR_NOT_FOUND;
    found->second = true;
    return LIBUSB_SUCCESS;
}
int libusb_handle_events_timeout_completed(libusb_context*, timeval*, int* completed) {
    HOLDS(*completed == 0 && !world.inFlight.empty());
    const std::uint8_t kind = world.supply->byte();
    world.now += kind % 8;
    if (kind >= 0xF8) return LIBUSB_ERROR_IO;
    auto next = world.inFlight.begin();
    if (kind >= 0x80 && world.inFlight.size() > 1) ++next;
    giveBack(next->first);
    return LIBUSB_SUCCESS;
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    world.supply = &supply;
    const std::size_t count = 1 + supply.byte() % 3U;
    for (std::size_t i = 0; i < count; ++i) world.devices.push_back(deviceOf(supply, static_cast<std::uint8_t>(i + 1)));
    Handles handles;
    list(handles, supply);
    while (!supply.isEmpty()) kRequests[supply.byte() % std::size(kRequests)](handles, supply);
    for (CY_HANDLE handle : handles) HOLDS(CyClose(handle) == CY_SUCCESS);
    const auto gone = std::move(world.devices);
    world.devices.clear();
    UINT8 left = 1;
    HOLDS(CyGetListofDevices(&left) == CY_SUCCESS && left == 0);
    HOLDS(world.open.empty() && world.configs == 0 && world.contexts == 1);
    for (const auto& device : gone) HOLDS(device->references == 0 && device->claims.empty());
    world.now = 0;
    return 0;
}
