#include "platform/usb/bus.h"

#include <Poco/Thread.h>

#include <algorithm>

#include "platform/usb/portPathOf.h"

namespace usb {
namespace {

constexpr std::size_t kMaxDevices = 255;  // so that no device has number 255, which means "none"

// A look at a device by another program takes milliseconds; a longer claim is a program at work.
constexpr long kClaimInterval = 20;  // ms
constexpr int kClaimIntervals = 25;

CY_RETURN_STATUS openStatus(int result) {
    switch (result) {
        case LIBUSB_SUCCESS:
            return CY_SUCCESS;
        case LIBUSB_ERROR_ACCESS:
            return CY_ERROR_ACCESS_DENIED;
        case LIBUSB_ERROR_NO_DEVICE:
            return CY_ERROR_DEVICE_NOT_FOUND;
        case LIBUSB_ERROR_NO_MEM:
            return CY_ERROR_ALLOCATION_FAILED;
        default:
            return CY_ERROR_DRIVER_OPEN_FAILED;
    }
}

/// Where a device is plugged in, the root hubs and what the kernel gives no port for told apart by address.
std::string placeOf(libusb_device* device) {
    char path[64] = {};
    portPathOf(device, path, sizeof path);
    UINT8 port = 0;
    if (libusb_get_port_numbers(device, &port, 1) != 0) return path;  // an overflow is a port, too
    return std::string(path) + "#" + std::to_string(libusb_get_device_address(device));
}

}  // namespace

const libusb_interface_descriptor* findInterface(const libusb_config_descriptor& config, unsigned char number) {
    for (int i = 0; i < config.bNumInterfaces; ++i) {
        const libusb_interface& interface = config.interface[i];
        if (interface.num_altsetting > 0 && interface.altsetting[0].bInterfaceNumber == number) {
            return &interface.altsetting[0];
        }
    }
    return nullptr;
}

ConfigDescriptor activeConfig(libusb_device* device) {
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_active_config_descriptor(device, &config) != LIBUSB_SUCCESS) return nullptr;
    return ConfigDescriptor(config);
}

Claim::Claim(DeviceHandle usb, const libusb_interface_descriptor& interface, std::shared_ptr<SpiSide> spi)
    : usb_(std::move(usb)),
      spi_(std::move(spi)),
      interfaceNumber_(interface.bInterfaceNumber),
      subclass_(interface.bInterfaceClass == CY_CLASS_VENDOR ? interface.bInterfaceSubClass : 0) {
    for (int i = 0; i < interface.bNumEndpoints; ++i) {
        const libusb_endpoint_descriptor& endpoint = interface.endpoint[i];
        if ((endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK) != LIBUSB_TRANSFER_TYPE_BULK) continue;
        const bool in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
        (in ? bulkIn_ : bulkOut_) = endpoint.bEndpointAddress;
    }
}

CY_RETURN_STATUS Claim::make(libusb_device* device, unsigned char interfaceNumber, std::shared_ptr<SpiSide> spi,
                             std::shared_ptr<Claim>& claim, bool& claimedElsewhere) {
    libusb_device_handle* opened = nullptr;
    if (const auto status = openStatus(libusb_open(device, &opened)); status != CY_SUCCESS) return status;
    DeviceHandle usb(opened);
    const ConfigDescriptor config = activeConfig(device);
    const libusb_interface_descriptor* interface = config ? findInterface(*config, interfaceNumber) : nullptr;
    if (interface == nullptr) return CY_ERROR_DRIVER_OPEN_FAILED;
    // libusb detaches a driver when it claims and attaches it when it releases. Where it cannot, a
    // bound driver makes the claim fail.
    libusb_set_auto_detach_kernel_driver(opened, 1);
    const int result = libusb_claim_interface(opened, interfaceNumber);
    claimedElsewhere = result == LIBUSB_ERROR_BUSY;
    if (result == LIBUSB_ERROR_NO_DEVICE) return CY_ERROR_DEVICE_NOT_FOUND;
    if (result != LIBUSB_SUCCESS) return CY_ERROR_DRIVER_OPEN_FAILED;
    claim.reset(new Claim(std::move(usb), *interface, std::move(spi)));
    return CY_SUCCESS;
}

Claim::~Claim() {
    libusb_release_interface(usb_.get(), interfaceNumber_);
}

bool Claim::isOf(libusb_device* device, unsigned char number) const {
    return number == interfaceNumber_ && libusb_get_device(usb_.get()) == device;
}

Bus& Bus::instance() {
    static Bus bus;
    return bus;
}

CY_RETURN_STATUS Bus::makeContext() {
    // A context learns of devices that come later from udev alone. Where none runs, in a container say,
    // only a new context sees them. While handles are open their context has to stay.
    if (context_ && !handles_.empty()) return CY_SUCCESS;
    devices_.clear();
    context_.reset();
    libusb_context* context = nullptr;
    if (libusb_init(&context) != LIBUSB_SUCCESS) return CY_ERROR_DRIVER_INIT_FAILED;
    context_.reset(context, libusb_exit);
    return CY_SUCCESS;
}

CY_RETURN_STATUS Bus::refreshLocked() {
    if (const auto status = makeContext(); status != CY_SUCCESS) return status;
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(context_.get(), &list);
    if (count == LIBUSB_ERROR_NO_MEM) return CY_ERROR_ALLOCATION_FAILED;
    if (count < 0) return CY_ERROR_REQUEST_FAILED;
    std::vector<Device> attached(list, list + count);
    libusb_free_device_list(list, 0);  // the references are ours now
    assignNumbers(std::move(attached));
    forgetSpiSidesOfTheGone();
    listed_ = true;
    return CY_SUCCESS;
}

void Bus::assignNumbers(std::vector<Device> attached) {
    std::vector<Device> numbered(kMaxDevices);
    const auto put = [&](Device& device, std::vector<std::string>::iterator place) {
        if (place != places_.end()) numbered[static_cast<std::size_t>(place - places_.begin())] = std::move(device);
    };
    for (Device& device : attached) put(device, std::find(places_.begin(), places_.end(), placeOf(device.get())));
    for (Device& device : attached) {
        if (device) put(device, freePlace(placeOf(device.get()), numbered));
    }
    while (!numbered.empty() && !numbered.back()) numbered.pop_back();
    // The old list goes after the new one is there, so that a device in both keeps its identity.
    devices_.swap(numbered);
}

/// The end when all numbers are in use.
std::vector<std::string>::iterator Bus::freePlace(const std::string& place, const std::vector<Device>& numbered) {
    if (places_.size() < kMaxDevices) return places_.insert(places_.end(), place);
    const auto number = std::find(numbered.begin(), numbered.end(), nullptr) - numbered.begin();
    const auto free = places_.begin() + number;
    if (free != places_.end()) *free = place;
    return free;
}

void Bus::forgetSpiSidesOfTheGone() {
    const auto isGone = [&](const auto& side) {
        const auto [bus, address, interface] = side.first;
        return std::none_of(devices_.begin(), devices_.end(), [bus = bus, address = address](const Device& device) {
            return device && libusb_get_bus_number(device.get()) == bus &&
                   libusb_get_device_address(device.get()) == address;
        });
    };
    std::erase_if(spiSides_, isGone);
}

std::shared_ptr<SpiSide> Bus::spiSide(libusb_device* device, UINT8 interfaceNumber) {
    const SpiSideKey key{libusb_get_bus_number(device), libusb_get_device_address(device), interfaceNumber};
    std::shared_ptr<SpiSide>& side = spiSides_[key];
    if (!side) side = std::make_shared<SpiSide>();
    return side;
}

CY_RETURN_STATUS Bus::refresh(UINT8& count) {
    const std::lock_guard lock(mutex_);
    if (const auto status = refreshLocked(); status != CY_SUCCESS) return status;
    count = static_cast<UINT8>(devices_.size());
    return CY_SUCCESS;
}

libusb_device* Bus::find(UINT8 number) {
    if (!listed_) refreshLocked();  // a host program may know the number from elsewhere
    return number < devices_.size() ? devices_[number].get() : nullptr;
}

BorrowedDevice Bus::device(UINT8 number) {
    const std::lock_guard lock(mutex_);
    libusb_device* device = find(number);
    if (device == nullptr) return {};
    return {context_, Device(libusb_ref_device(device))};
}

std::shared_ptr<Claim> Bus::sharedClaim(libusb_device* device, UINT8 interfaceNumber) const {
    for (const auto& open : handles_) {
        if (open->claim->isOf(device, interfaceNumber)) return open->claim;
    }
    return nullptr;
}

CY_RETURN_STATUS Bus::open(UINT8 number, UINT8 interfaceNumber, CY_HANDLE& handle) {
    for (int waited = 0;; ++waited) {
        bool claimedElsewhere = false;
        const CY_RETURN_STATUS status = tryOpen(number, interfaceNumber, handle, claimedElsewhere);
        if (!claimedElsewhere || waited == kClaimIntervals) return status;
        Poco::Thread::sleep(kClaimInterval);
    }
}

CY_RETURN_STATUS Bus::tryOpen(UINT8 number, UINT8 interfaceNumber, CY_HANDLE& handle, bool& claimedElsewhere) {
    const std::lock_guard lock(mutex_);
    libusb_device* device = find(number);
    if (device == nullptr) return CY_ERROR_INVALID_PARAMETER;
    std::shared_ptr<Claim> claim = sharedClaim(device, interfaceNumber);
    if (!claim) {
        const auto status =
            Claim::make(device, interfaceNumber, spiSide(device, interfaceNumber), claim, claimedElsewhere);
        if (status != CY_SUCCESS) return status;
    }
    auto open = std::make_unique<OpenInterface>();
    open->record.interfaceNumber = interfaceNumber;
    open->record.usb = claim->usb();
    open->claim = std::move(claim);
    handle = open.get();
    handles_.push_back(std::move(open));
    return CY_SUCCESS;
}

CY_RETURN_STATUS Bus::close(CY_HANDLE handle) {
    const std::lock_guard lock(mutex_);
    const auto open =
        std::find_if(handles_.begin(), handles_.end(), [&](const auto& entry) { return entry.get() == handle; });
    if (open == handles_.end()) return CY_ERROR_INVALID_HANDLE;
    // Under the lock, so that nobody claims an interface that is being released.
    handles_.erase(open);
    return CY_SUCCESS;
}

}  // namespace usb
