#include <algorithm>
#include <iterator>

#include "platform/deviceIds.h"
#include "platform/usb/bus.h"
#include "tavo/export.h"

namespace {

CY_DEVICE_CLASS knownClass(unsigned char interfaceClass) {
    for (const auto known : {CY_CLASS_CDC, CY_CLASS_PHDC, CY_CLASS_VENDOR}) {
        if (interfaceClass == known) return known;
    }
    return CY_CLASS_DISABLED;
}

void describeInterfaces(libusb_device* device, CY_DEVICE_INFO& info) {
    const usb::ConfigDescriptor config = usb::activeConfig(device);
    if (!config) return;
    info.numInterfaces = config->bNumInterfaces;
    const auto count = std::min<std::size_t>(config->bNumInterfaces, CY_MAX_DEVICE_INTERFACE);
    for (std::size_t i = 0; i < count; ++i) {
        const libusb_interface_descriptor* interface = usb::findInterface(*config, static_cast<unsigned char>(i));
        if (interface == nullptr) continue;
        info.deviceClass[i] = knownClass(interface->bInterfaceClass);
        const bool vendor = interface->bInterfaceClass == CY_CLASS_VENDOR;
        if (vendor && interface->bInterfaceSubClass <= CY_TYPE_MFG) {
            info.deviceType[i] = static_cast<CY_DEVICE_TYPE>(interface->bInterfaceSubClass);
        }
    }
}

bool hasManufacturingInterface(const CY_DEVICE_INFO& info) {
    return std::find(std::begin(info.deviceType), std::end(info.deviceType), CY_TYPE_MFG) != std::end(info.deviceType);
}

bool readString(libusb_device_handle* usb, unsigned char index, UCHAR (&text)[CY_STRING_DESCRIPTOR_SIZE]) {
    if (index == 0) return true;  // the device has no such string
    return libusb_get_string_descriptor_ascii(usb, index, text, sizeof text) >= 0;
}

CY_RETURN_STATUS readStrings(libusb_device* device, const libusb_device_descriptor& descriptor, CY_DEVICE_INFO& info) {
    libusb_device_handle* opened = nullptr;
    const int result = libusb_open(device, &opened);
    if (result == LIBUSB_ERROR_ACCESS) return CY_ERROR_ACCESS_DENIED;
    if (result != LIBUSB_SUCCESS) return CY_ERROR_DEVICE_INFO_FETCH_FAILED;
    const usb::DeviceHandle usb(opened);
    const bool complete = readString(opened, descriptor.iManufacturer, info.manufacturerName) &&
                          readString(opened, descriptor.iProduct, info.productName) &&
                          readString(opened, descriptor.iSerialNumber, info.serialNum);
    return complete ? CY_SUCCESS : CY_ERROR_DEVICE_INFO_FETCH_FAILED;
}

}  // namespace

/// What needs no open device (IDs, interfaces) is filled in also when the strings cannot be read; the
/// strings of devices without an expected ID or without the manufacturing interface are left empty.
extern "C" TAVO_API CY_RETURN_STATUS CyGetDeviceInfo(UINT8 deviceNumber, CY_DEVICE_INFO* deviceInfo) {
    if (deviceInfo == nullptr) return CY_ERROR_INVALID_PARAMETER;
    const usb::BorrowedDevice device = usb::Bus::instance().device(deviceNumber);
    if (!device) return CY_ERROR_INVALID_PARAMETER;
    *deviceInfo = CY_DEVICE_INFO{};
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(device.get(), &descriptor) != LIBUSB_SUCCESS) {
        return CY_ERROR_DEVICE_INFO_FETCH_FAILED;
    }
    deviceInfo->vidPid = {descriptor.idVendor, descriptor.idProduct};
    describeInterfaces(device.get(), *deviceInfo);
    // Opening a device wakes it from suspend, and its strings may come late: what is not ours stays alone.
    if (!platform::isDeviceIdExpected(descriptor.idVendor, descriptor.idProduct)) return CY_SUCCESS;
    if (!hasManufacturingInterface(*deviceInfo)) return CY_SUCCESS;
    return readStrings(device.get(), descriptor, *deviceInfo);
}
