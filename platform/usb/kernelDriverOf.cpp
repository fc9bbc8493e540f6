#include "platform/usb/kernelDriverOf.h"

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/usb/portPathOf.h"

namespace usb {
namespace {

namespace fs = std::filesystem;

constexpr char kProgramsOwn[] = "usbfs";  // a claim of a program goes by this name: no driver
constexpr char kUnnamed[] = "unknown";

/// The kernel's folder of an interface; the bridge has one configuration, number 1.
fs::path interfaceFolder(libusb_device* device, UINT8 interfaceNumber) {
    char place[64] = {};
    portPathOf(device, place, sizeof place);
    return fs::path("/sys/bus/usb/devices") / (std::string(place) + ":1." + std::to_string(interfaceNumber));
}

/// Without sysfs, in a container say, the device has to be opened, and the driver stays without a name.
CY_RETURN_STATUS askDevice(libusb_device* device, UINT8 interfaceNumber, std::string& driver) {
    libusb_device_handle* opened = nullptr;
    const int result = libusb_open(device, &opened);
    if (result == LIBUSB_ERROR_ACCESS) return CY_ERROR_ACCESS_DENIED;
    if (result == LIBUSB_ERROR_NO_DEVICE) return CY_ERROR_DEVICE_NOT_FOUND;
    if (result != LIBUSB_SUCCESS) return CY_ERROR_DRIVER_OPEN_FAILED;
    const int active = libusb_kernel_driver_active(opened, interfaceNumber);
    libusb_close(opened);
    if (active < 0) return CY_ERROR_REQUEST_FAILED;
    driver = active != 0 ? kUnnamed : "";
    return CY_SUCCESS;
}

CY_RETURN_STATUS findDriver(libusb_device* device, UINT8 interfaceNumber, std::string& driver) {
    const fs::path folder = interfaceFolder(device, interfaceNumber);
    std::error_code error;
    if (!fs::exists(folder, error)) return askDevice(device, interfaceNumber, driver);
    driver = fs::read_symlink(folder / "driver", error).filename().string();  // no link: none is bound
    if (driver == kProgramsOwn) driver.clear();
    return CY_SUCCESS;
}

}  // namespace

CY_RETURN_STATUS kernelDriverOf(libusb_device* device, UINT8 interfaceNumber, char* name, UINT32 size) {
    std::string driver;
    if (const auto status = findDriver(device, interfaceNumber, driver); status != CY_SUCCESS) return status;
    if (driver.size() >= size) return CY_ERROR_INVALID_PARAMETER;
    std::memcpy(name, driver.c_str(), driver.size() + 1);
    return CY_SUCCESS;
}

}  // namespace usb
